#pragma once

#include "Features/Recording/RecordingRun.h"

namespace quillo {

/// How a delivery ended.
struct DeliveryOutcome {
    std::optional<Delivery> delivery; ///< absent when the text could not be inserted
    QString error;                    ///< what to tell the user then
    bool hadTextField = true;         ///< false: it was pasted where no text field had the focus
};

/// Puts the final text into the application it is meant for.
namespace textDelivery {

/// Injects `text` once per run into the right application: the one that is frontmost now, or the one captured at the
/// start when Quillo itself is in front, which is then brought forward and handed back after.
Task<DeliveryOutcome> deliver(RunHandle run, QString text);

} // namespace textDelivery

} // namespace quillo
