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
    /// Is given the events that belong to others while an answer is awaited.
    using EventHandler = std::function<void(const xcb_generic_event_t&)>;

    struct Result {
        SelectionFormats formats;
        bool complete = true;
    };

    SelectionReader(XcbConnection& connection, xcb_window_t window, EventHandler others);

    /// Every format of the selection, text first, of at most `mostBytes` together. What could not be had in time or was
    /// too large is left out, and the result then not complete.
    Result readAll(xcb_atom_t selection, qsizetype mostBytes, Deadline deadline);
    /// The server's time now.
    [[nodiscard]] xcb_timestamp_t serverTime();

private:
    enum class Outcome { got, refused, tooLarge, timedOut };
    Outcome convert(xcb_atom_t selection, xcb_atom_t target, qsizetype mostBytes, Deadline deadline,
                    XcbProperty& value);
    Outcome receivePieces(xcb_atom_t property, qsizetype mostBytes, Deadline deadline, XcbProperty& value);
    /// The property's value, deleted from the window.
    std::optional<XcbProperty> take(xcb_atom_t property, qsizetype mostBytes);
    XcbOwned<xcb_generic_event_t> waitFor(const std::function<bool(const xcb_generic_event_t&)>& wanted,
                                          Deadline deadline);

    XcbConnection& m_connection;
    xcb_window_t m_window;
    EventHandler m_others;
    unsigned m_next = 0;
};

} // namespace quillo
