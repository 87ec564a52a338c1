#pragma once

#include <QString>

#include <concepts>
#include <variant>

namespace quillo {

/// The closed set of failures that end a dictation.
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
        bool operator==(const AudioCaptureFailed&) const = default;
    };
    struct TranscriptionFailed {
        QString message;
        bool operator==(const TranscriptionFailed&) const = default;
    };
    struct Unknown {
        QString message;
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

    /// The key of the localized description; empty for `Unknown`, which shows its message.
    [[nodiscard]] QString messageKey() const;
    /// What to tell the user, in the interface language.
    [[nodiscard]] QString errorDescription() const;
    /// The reason or message carried, for the log and for small print; may be empty.
    [[nodiscard]] QString detail() const;

    bool operator==(const RecordingError&) const = default;

private:
    Kind m_kind;
};

} // namespace quillo
