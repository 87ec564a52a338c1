#pragma once

#include "Features/Recording/RecordingError.h"
#include "Features/Recording/ServerSession.h"

#include <QStringList>

#include <memory>
#include <optional>

namespace quillo {

/// Why the server will not transcribe this dictation, as shown to the user at its end.
struct ServerRefusal {
    RecordingError error;
    QString reason;        ///< the run's reason, such as "failed(auth_required)"
    QString pendingReason; ///< the reason stored with the waiting audio
    bool needsSignIn = false;
};

/// The parameters of all sessions of a dictation.
struct SessionPlan {
    QStringList audioSources;
    std::optional<QString> mode; ///< absent: a plain dictation

    [[nodiscard]] bool isMeeting() const { return audioSources.size() > 1; }
};

/// A dictation's part of the only connection to the server. Dictations take turns: the next one may record while the
/// last one still waits for its text.
struct ServerLink {
    SessionPlan plan;
    /// The current session; replaced as a whole.
    std::shared_ptr<ServerSession> session = std::make_shared<ServerSession>();
    /// The text of the sessions before it.
    SessionText earlier;
    /// Consecutive sessions that ended before receiving any audio.
    int barrenSessions = 0;
    QString detectedLanguage;
    /// The server did not receive or lost part of the audio, so its text is incomplete.
    bool isIncomplete = false;
    /// The recording continues without the server.
    bool isOffline = false;
    /// There is no connection, and there will be none.
    AsyncEvent gone;
    std::optional<ServerRefusal> refusal;

    // The turn.
    std::optional<AsyncEvent> before;     ///< set when the previous dictation has released the connection
    std::optional<Clock::Instant> turnAt; ///< when this dictation got the connection
    bool isReleased = false;              ///< released or being released
    AsyncEvent released;                  ///< the connection is free for the next one

    // The audio on its way.
    bool isSending = false; ///< the backlog is being sent; chunks still join it at its end
    AsyncEvent sent;        ///< set when the current or latest sending has ended
};

} // namespace quillo
