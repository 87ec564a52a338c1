#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// How a delivery ended.
struct DeliveryOutcome {
    std::optional<RecordingError> failure; ///< why the text could not be inserted
    bool hadTextField = true;              ///< false: it was pasted where no text field had the focus
};

/// Inserts the final text into the target application.
namespace textDelivery {

/// Injects the run's text once, into the application that is frontmost now. If Quillo itself is in front, brings the
/// application captured at the start to the front first.
Task<DeliveryOutcome> deliver(RunHandle run);

} // namespace textDelivery

} // namespace quillo
