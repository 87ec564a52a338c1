#pragma once

#include "Features/Recording/RecordingError.h"

#include <QDateTime>
#include <QString>

#include <optional>
#include <variant>

namespace quillo {

/// What the floating pill shows, derived from the state.
struct PillVisualState {
    struct Recording {
        float audioLevel = 0;
        QString partialText;
        bool operator==(const Recording&) const = default;
    };
    struct ProcessingCommand {
        UserMessage message;
        bool operator==(const ProcessingCommand&) const = default;
    };
    struct Error {
        UserMessage message;
        bool operator==(const Error&) const = default;
    };
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Hovering {
        bool operator==(const Hovering&) const = default;
    };
    struct Processing {
        bool operator==(const Processing&) const = default;
    };
};
using PillState = std::variant<PillVisualState::Recording, PillVisualState::ProcessingCommand, PillVisualState::Error,
                               PillVisualState::Idle, PillVisualState::Hovering, PillVisualState::Processing>;

/// Everything the interface shows about the current dictation. A plain value, compared field by field.
struct RecordingState {
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Connecting {
        bool operator==(const Connecting&) const = default;
    };
    struct Recording {
        bool operator==(const Recording&) const = default;
    };
    struct RecordingOffline {
        bool operator==(const RecordingOffline&) const = default;
    };
    struct Processing {
        bool operator==(const Processing&) const = default;
    };

    /// Phase of the dictation. An error is shown until the next start or a reset.
    class Status {
    public:
        using Phase = std::variant<RecordingError, Idle, Connecting, Recording, RecordingOffline, Processing>;

        Status();
        template <class T>
            requires std::constructible_from<Phase, T>
        Status(T phase) : m_phase(std::move(phase)) {} // NOLINT(google-explicit-constructor)
        Status(const Status&);
        Status(Status&&) noexcept;
        Status& operator=(const Status&);
        Status& operator=(Status&&) noexcept;
        ~Status();

        template <class T>
        [[nodiscard]] bool is() const {
            return std::holds_alternative<T>(m_phase);
        }
        [[nodiscard]] const RecordingError* error() const { return std::get_if<RecordingError>(&m_phase); }
        /// Connecting, recording or recording offline.
        [[nodiscard]] bool isActive() const { return is<Connecting>() || is<Recording>() || is<RecordingOffline>(); }
        /// Active or finishing.
        [[nodiscard]] bool isUnderWay() const { return isActive() || is<Processing>(); }
        /// The word for logs and the command line: "idle", "connecting", "error(cancelled)", ...
        [[nodiscard]] QString description() const;

        bool operator==(const Status&) const;

    private:
        Phase m_phase;
    };

    Status status;
    bool isHandsOff = false;
    bool meetingPreConfirmed = false;
    bool meetingPreConfirmedSnapshot = false;
    QString partialText;
    QString finalText;
    QString detectedLanguage;
    float confidence = 0;
    float audioLevel = 0;        ///< microphone, 0 to 1
    float systemAudioLevel = 0;  ///< 0 to 1
    QString awaitedMicrophone{}; ///< its name, while its first sample takes longer than usual
    int chunksSent = 0;          ///< microphone chunks captured in this session, sent or not
    std::optional<QString> sessionId;
    std::optional<QDateTime> startTime;
    QString meetingLabeledText;
    QString meetingPlainText;
    int meetingTotalWords = 0;
    std::optional<UserMessage> commandStatusMessage;
    bool isHovering = false;
    bool savedToHistoryHintVisible = false;
    std::optional<UserMessage> savedToHistoryHintMessage;
    std::optional<QString> activeApplicationName;

    /// What the pill shows for this state.
    [[nodiscard]] PillState pillState() const;

    bool operator==(const RecordingState&) const = default;
};

} // namespace quillo
