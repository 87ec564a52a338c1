#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <chrono>

namespace quillo {

/// Waits until the active window's program has processed the keys sent so far.
///
/// A client looks up the meaning of a key when it handles the event, which may be long after the server sent it; the
/// mapping must not change until then. Most programs answer the window manager's ping (_NET_WM_PING) in the order of
/// their events, so they answer a ping sent after the keys once they have processed them. For other programs we can
/// only wait.
class TargetSync {
public:
    explicit TargetSync(XcbConnection& connection);

    /// Returns when the program has answered. Waits `unanswered` for a program that is known not to answer pings, and
    /// at most `patience` for one that should.
    void wait(std::chrono::milliseconds unanswered, std::chrono::milliseconds patience);
    /// Whether the active window's program declares that it answers pings.
    [[nodiscard]] bool canTell();

private:
    [[nodiscard]] xcb_window_t activeWindow();
    [[nodiscard]] bool answersPing(xcb_window_t window);
    void listen(bool on);
    void awaitAnswer(const xcb_client_message_event_t& ping, std::chrono::steady_clock::time_point deadline);
    XcbConnection& m_connection;
    uint32_t m_serial = 0;
};

} // namespace quillo
