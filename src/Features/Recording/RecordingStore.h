#pragma once

#include "Architecture/Store.h"
#include "Features/Recording/RecordingAction.h"
#include "Features/Recording/RecordingEffect.h"
#include "Features/Recording/RecordingState.h"

namespace quillo {

/// The application's only store.
using RecordingStore = Store<RecordingState, RecordingAction, RecordingEffect>;
extern template class Store<RecordingState, RecordingAction, RecordingEffect>; // compiled once

} // namespace quillo
