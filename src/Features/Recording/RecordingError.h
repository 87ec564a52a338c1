#pragma once

#include "Core/UserMessage.h"

#include <QString>

#include <concepts>
#include <variant>

namespace quillo {

/// The closed set of failures that end a dictation. What a case carries in `reason`, `message` or `detail` is for the
/// log; a person reads the words of `userMessage`.
class RecordingError {
public:
    struct ConnectionFailed {
        QString reason;
        bool operator==(const ConnectionFailed&) const = default;
    };
    struct ConnectionLost {
        QString recoveredText;
        bool operator==(const ConnectionLost&) const = default;
    };
    struct AudioCaptureFailed {
        QString reason;
        QString silentDevice = {}; ///< its name, when it was opened and delivered nothing
        bool operator==(const AudioCaptureFailed&) const = default;
    };
    struct TranscriptionFailed {
        QString message;
        QString code = {}; ///< the server's
        bool operator==(const TranscriptionFailed&) const = default;
    };
    struct Unknown {
        QString message;
        UserMessage words = {}; ///< more exact ones than "an unexpected failure"
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
    /// What a person reads: the case's text, or a more exact one where more is known.
    [[nodiscard]] UserMessage userMessage() const;
    /// `userMessage` in the interface language. Main thread.
    [[nodiscard]] QString errorDescription() const;
    /// The reason or message carried, for the log; may be empty.
    [[nodiscard]] QString detail() const;

    bool operator==(const RecordingError&) const = default;

private:
    Kind m_kind;
};

} // namespace quillo
