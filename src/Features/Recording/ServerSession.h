#pragma once

#include "Concurrency/AsyncEvent.h"
#include "Services/Protocol/ServerMessage.h"
#include "Services/Protocol/SessionTexts.h"

#include <QString>

#include <optional>

namespace quillo {

/// A text and what it was before a voice command or a clean-up changed it.
struct SessionText {
    QString text;
    QString original; ///< empty when it is the same

    /// `next` after this one, with a blank between them.
    [[nodiscard]] SessionText joined(const SessionText& next) const;
};

/// One session of the server, from `start_session` to its last word. A dictation that needs another one gets a new
/// object: nothing of the old one can be taken for the new one's.
struct ServerSession {
    QString id;
    bool isStarted = false;
    /// It has started, or never will.
    AsyncEvent decided;
    /// The last word has come, or never will.
    AsyncEvent over;
    std::optional<server::SessionEnded> ended;
    std::optional<server::CommandResult> command;
    bool isProcessingCommand = false;
    /// When the server last showed that it is at work on this session.
    std::optional<Clock::Instant> lastProgressAt;
    int chunksSent = 0;

    /// The best text there is: the last word, else a command's result, else what was recognised so far (`texts`, of
    /// this session alone).
    [[nodiscard]] SessionText bestText(const SessionTexts& texts) const;
};

} // namespace quillo
