#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <chrono>

namespace quillo {

/// Tells when the active window's program has taken in the keys sent so far.
///
/// A client looks up what a key means when it handles the event, which may be long after the server sent it: the
/// mapping must stand still until then. Most programs answer the window manager's ping (_NET_WM_PING) in the order of
/// their events, so a ping sent after the keys is answered once they are understood. For the others only time helps.
class TargetSync {
public:
    explicit TargetSync(XcbConnection& connection);

    /// Returns when the program has answered, or after `unanswered` when it is known not to answer pings; a program
    /// that should and does not is given up on after `patience`.
    void wait(std::chrono::milliseconds unanswered, std::chrono::milliseconds patience);
    /// Whether the active window's program says that it answers.
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
