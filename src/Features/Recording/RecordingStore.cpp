#include "Features/Recording/RecordingStore.h"

namespace quillo {

template class Store<RecordingState, RecordingAction, RecordingEffect>;

} // namespace quillo
