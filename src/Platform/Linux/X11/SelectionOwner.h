#pragma once

#include "Platform/Linux/X11/SelectionTargets.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <functional>
#include <list>

namespace quillo {

/// Serves what we hold on the selections of one connection. One thread.
class SelectionOwner {
public:
    /// A program has taken in the content in full. `process` is 0 when it cannot be told.
    using ReadHandler = std::function<void(xcb_atom_t selection, int64_t process)>;
    using LostHandler = std::function<void(xcb_atom_t selection)>;

    SelectionOwner(XcbConnection& connection, xcb_window_t window, ReadHandler onRead, LostHandler onLost);

    /// Takes the selection; false when another client was quicker.
    bool own(xcb_atom_t selection, SelectionFormats formats, xcb_timestamp_t time);
    /// Gives the selection up, if it is still ours.
    void disown(xcb_atom_t selection);
    [[nodiscard]] const SelectionFormats* held(xcb_atom_t selection) const;
    /// Takes an event in; false when it is none of ours.
    bool handle(const xcb_generic_event_t& event);

private:
    struct Held {
        SelectionFormats formats;
        xcb_timestamp_t time = XCB_CURRENT_TIME;
    };
    /// A large content on its way, piece by piece (ICCCM, 2.7.2).
    struct Transfer {
        xcb_window_t requestor;
        xcb_atom_t property;
        xcb_atom_t type;
        xcb_atom_t selection;
        QByteArray data;
        qsizetype sent = 0;
    };
    void serve(const xcb_selection_request_event_t& request);
    bool convert(const Held& held, const xcb_selection_request_event_t& request, xcb_atom_t target,
                 xcb_atom_t property);
    bool convertMultiple(const Held& held, const xcb_selection_request_event_t& request);
    bool continueTransfer(const xcb_property_notify_event_t& event);
    [[nodiscard]] qsizetype pieceSize() const;

    XcbConnection& m_connection;
    xcb_window_t m_window;
    ReadHandler m_onRead;
    LostHandler m_onLost;
    std::map<xcb_atom_t, Held> m_held;
    std::list<Transfer> m_transfers;
};

} // namespace quillo
