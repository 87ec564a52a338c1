#pragma once

#include "Features/Recording/RecordingError.h"
#include "Features/Recording/ServerSession.h"

#include <QStringList>

#include <memory>
#include <optional>

namespace quillo {

/// Why the server will not transcribe this dictation, as the person reads it at its end.
struct ServerRefusal {
    RecordingError error;
    QString reason;        ///< the run's reason, such as "failed(auth_required)"
    QString pendingReason; ///< the word beside the audio that waits
    bool needsSignIn = false;
};

/// What every session of a dictation asks the server for.
struct SessionPlan {
    QStringList audioSources;
    std::optional<QString> mode; ///< absent: a plain dictation
};

/// A dictation's side of the one connection to the server. Dictations take turns with it: the next one may record while
/// the last one is still waiting for its text.
struct ServerLink {
    SessionPlan plan;
    /// The present session; replaced as a whole.
    std::shared_ptr<ServerSession> session = std::make_shared<ServerSession>();
    /// The text of the sessions before it.
    SessionText earlier;
    /// Sessions in a row that ended without having got any audio.
    int barrenSessions = 0;
    QString detectedLanguage;
    /// The server did not get, or did not keep, all that was captured: its text is not the whole of what was said.
    bool isIncomplete = false;
    /// The recording goes on without the server.
    bool isOffline = false;
    /// There is no connection, and there will be none.
    AsyncEvent gone;
    std::optional<ServerRefusal> refusal;

    // The turn.
    std::optional<AsyncEvent> before;     ///< set when the dictation before this one has left the connection
    std::optional<Clock::Instant> turnAt; ///< since when the connection is this dictation's
    bool isReleased = false;              ///< it was given up, or is being given up
    AsyncEvent released;                  ///< the connection is free for the next one

    // The way of the audio.
    bool isSending = false; ///< the backlog is being sent; chunks still join it at its end
    AsyncEvent sent;        ///< of the sending under way or the latest one
};

} // namespace quillo
