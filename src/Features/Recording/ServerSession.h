#pragma once

#include "Concurrency/AsyncEvent.h"
#include "Services/Protocol/ServerMessage.h"
#include "Services/Protocol/SessionTexts.h"

#include <QString>

#include <optional>

namespace quillo {

/// A text, and its original before a voice command or a clean-up.
struct SessionText {
    QString text;
    QString original; ///< empty when it is the same

    /// This text followed by `next`, with a space in between.
    [[nodiscard]] SessionText joined(const SessionText& next) const;
};

/// One session of the server, from `start_session` to its result. A dictation that needs another session gets a new
/// object, so that their data cannot be mixed up.
struct ServerSession {
    QString id;
    bool isStarted = false;
    /// Set when the session has started, or never will.
    AsyncEvent decided;
    bool isEndSent = false; ///< end_session has been handed to the connection
    /// Set when the result has arrived, or never will.
    AsyncEvent over;
    std::optional<server::SessionEnded> ended;
    std::optional<server::CommandResult> command;
    bool isProcessingCommand = false;
    /// When the server last showed progress in this session.
    std::optional<Clock::Instant> lastProgressAt;
    int chunksSent = 0;

    /// The best available text: the result, otherwise a command's result, otherwise the text recognised so far
    /// (`texts`, only of this session).
    [[nodiscard]] SessionText bestText(const SessionTexts& texts) const;
};

} // namespace quillo
