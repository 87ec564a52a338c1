#pragma once

#include "Platform/Linux/X11/SelectionTargets.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <chrono>
#include <functional>
#include <optional>

namespace quillo {

/// Reads another client's selection, with a deadline. One thread.
class SelectionReader {
public:
    using Deadline = std::chrono::steady_clock::time_point;
    /// Whether a reading should end early. Called every few milliseconds while one waits.
    using Interruption = std::function<bool()>;
    /// Receives events for other components while we wait for an answer.
    using EventHandler = std::function<void(const xcb_generic_event_t&)>;

    struct Result {
        SelectionFormats formats;
        bool complete = true;
    };

    SelectionReader(XcbConnection& connection, xcb_window_t window, EventHandler others, Interruption isInterrupted);

    /// Every format of the selection, text first, of at most `mostBytes` together. Formats that were too slow or too
    /// large are left out; the result is then incomplete.
    Result readAll(xcb_atom_t selection, qsizetype mostBytes, Deadline deadline);
    /// The server's current time.
    [[nodiscard]] xcb_timestamp_t serverTime();

private:
    enum class Outcome { got, refused, tooLarge, timedOut };
    Outcome convert(xcb_atom_t selection, xcb_atom_t target, qsizetype mostBytes, Deadline deadline,
                    XcbProperty& value);
    Outcome receivePieces(xcb_atom_t property, qsizetype mostBytes, Deadline deadline, XcbProperty& value);
    /// Reads the property's value and deletes it from the window.
    std::optional<XcbProperty> take(xcb_atom_t property, qsizetype mostBytes);
    XcbOwned<xcb_generic_event_t> waitFor(const std::function<bool(const xcb_generic_event_t&)>& wanted,
                                          Deadline deadline, const Interruption& isInterrupted);

    XcbConnection& m_connection;
    xcb_window_t m_window;
    EventHandler m_others;
    Interruption m_isInterrupted;
    unsigned m_next = 0;
};

} // namespace quillo
