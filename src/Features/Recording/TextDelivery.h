#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// How a delivery ended.
struct DeliveryOutcome {
    std::optional<RecordingError> failure; ///< why the text could not be inserted
    bool hadTextField = true;              ///< false: it was pasted where no text field had the focus
};

/// Puts the final text into the application it is meant for.
namespace textDelivery {

/// Injects the run's text once into the right application: the one that is frontmost now, or the one captured at the
/// start when Quillo itself is in front, which is then brought forward and handed back after.
Task<DeliveryOutcome> deliver(RunHandle run);

} // namespace textDelivery

} // namespace quillo
