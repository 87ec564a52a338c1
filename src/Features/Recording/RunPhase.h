#pragma once

#include "Concurrency/Clock.h"
#include "Services/Injection/TextInjectionServiceProtocol.h"

#include <QString>

#include <optional>
#include <variant>

namespace quillo {

/// What ended the audio of a dictation.
enum class StopCause { person, microphoneLost };

/// The phase of a dictation, with the data of that phase.
namespace phase {
/// Permissions are checked and the device is opening.
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

/// The result of a dictation.
struct DeliveryResult {
    QString text;
    QString originalText;        ///< before a voice command or clean-up changed it; may be empty
    bool isTried = false;        ///< a text is inserted only once, whatever the result
    bool isWithheld = false;     ///< the user has left the desktop: the text goes to the history only
    std::optional<Delivery> how; ///< absent when it could not be inserted
};

} // namespace quillo
