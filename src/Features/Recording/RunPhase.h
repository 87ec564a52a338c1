#pragma once

#include "Concurrency/Clock.h"
#include "Services/Injection/TextInjectionServiceProtocol.h"

#include <QString>

#include <optional>
#include <variant>

namespace quillo {

/// Who or what ended the audio of a dictation.
enum class StopCause { person, microphoneLost };

/// Where a dictation is on its way, with what belongs to that stretch alone.
namespace phase {
/// Permissions are looked up and the device is opening.
struct Opening {};
/// The microphone is open.
struct Listening {};
/// The audio has ended; the text is awaited and delivered.
struct Stopping {
    StopCause cause = StopCause::person;
    Clock::Instant since;
    QString captureFailure{}; ///< why the microphone was lost
};
struct Over {};
} // namespace phase

using RunPhase = std::variant<phase::Opening, phase::Listening, phase::Stopping, phase::Over>;

/// What came out of a dictation.
struct DeliveryResult {
    QString text;
    QString originalText;        ///< before a voice command or clean-up changed it; may be empty
    bool isTried = false;        ///< a text is inserted once, whatever comes of it
    std::optional<Delivery> how; ///< absent when it could not be inserted
};

} // namespace quillo
