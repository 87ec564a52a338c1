#pragma once

#include "Architecture/Store.h"
#include "Features/Recording/RecordingAction.h"
#include "Features/Recording/RecordingEffect.h"
#include "Features/Recording/RecordingState.h"

namespace quillo {

/// The one store of the application.
using RecordingStore = Store<RecordingState, RecordingAction, RecordingEffect>;

} // namespace quillo
