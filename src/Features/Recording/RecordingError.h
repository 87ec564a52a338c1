#pragma once

#include "Core/UserMessage.h"

#include <QString>

#include <concepts>
#include <variant>

namespace quillo {

/// The failures that end a dictation. `reason`, `message` and `detail` are for the log; the user sees the text of
/// `userMessage`.
class RecordingError {
public:
    struct ConnectionFailed {
        QString reason;
        bool needsSignIn = false; ///< the server was reached, and accepts no session that there is
        bool operator==(const ConnectionFailed&) const = default;
    };
    struct ConnectionLost {
        QString recoveredText;
        bool operator==(const ConnectionLost&) const = default;
    };
    struct AudioCaptureFailed {
        QString reason;
        QString silentDevice = {}; ///< the name of a device that was opened but delivered nothing
        bool operator==(const AudioCaptureFailed&) const = default;
    };
    struct TranscriptionFailed {
        QString message;
        QString code = {}; ///< the server's
        bool operator==(const TranscriptionFailed&) const = default;
    };
    struct Unknown {
        QString message;
        UserMessage words = {}; ///< a more exact text than "an unexpected failure"
        bool operator==(const Unknown&) const = default;
    };
    struct MicrophonePermissionDenied {
        bool operator==(const MicrophonePermissionDenied&) const = default;
    };
    struct AccessibilityPermissionDenied {
        bool operator==(const AccessibilityPermissionDenied&) const = default;
    };
    struct SessionStartFailed {
        bool operator==(const SessionStartFailed&) const = default;
    };
    struct Cancelled {
        bool operator==(const Cancelled&) const = default;
    };
    using Kind = std::variant<ConnectionFailed, ConnectionLost, AudioCaptureFailed, TranscriptionFailed, Unknown,
                              MicrophonePermissionDenied, AccessibilityPermissionDenied, SessionStartFailed, Cancelled>;

    template <class T>
        requires std::constructible_from<Kind, T>
    RecordingError(T kind) : m_kind(std::move(kind)) {} // NOLINT(google-explicit-constructor)

    [[nodiscard]] const Kind& kind() const { return m_kind; }
    template <class T>
    [[nodiscard]] bool is() const {
        return std::holds_alternative<T>(m_kind);
    }

    /// The case's own key in the catalogues; empty for `Unknown`.
    [[nodiscard]] QString messageKey() const;
    /// The text for the user: the case's text, or a more exact one if more is known.
    [[nodiscard]] UserMessage userMessage() const;
    /// `userMessage` in the interface language. Main thread.
    [[nodiscard]] QString errorDescription() const;
    /// The reason or message for the log; may be empty.
    [[nodiscard]] QString detail() const;

    bool operator==(const RecordingError&) const = default;

private:
    Kind m_kind;
};

} // namespace quillo
