#pragma once

#include "Platform/Linux/X11/SelectionTargets.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <functional>
#include <list>

namespace quillo {

/// Serves our content of the selections of one connection. One thread.
class SelectionOwner {
public:
    /// Called when a program has read the content in full. `process` is 0 when it is unknown.
    using ReadHandler = std::function<void(xcb_atom_t selection, int64_t process)>;
    using LostHandler = std::function<void(xcb_atom_t selection)>;

    SelectionOwner(XcbConnection& connection, xcb_window_t window, ReadHandler onRead, LostHandler onLost);

    /// Takes the selection; false when another client was faster.
    bool own(xcb_atom_t selection, SelectionFormats formats, xcb_timestamp_t time);
    /// Gives up the selection if we still own it.
    void disown(xcb_atom_t selection);
    [[nodiscard]] const SelectionFormats* held(xcb_atom_t selection) const;
    /// Handles an event; false when it concerns something else.
    bool handle(const xcb_generic_event_t& event);

private:
    struct Held {
        SelectionFormats formats;
        xcb_timestamp_t time = XCB_CURRENT_TIME;
    };
    /// A transfer of large content in pieces (ICCCM, 2.7.2).
    struct Transfer {
        xcb_window_t requestor;
        xcb_atom_t property;
        xcb_atom_t type;
        xcb_atom_t selection;
        QByteArray data;
        int64_t reader = 0;
        qsizetype sent = 0;
    };
    void serve(const xcb_selection_request_event_t& request);
    bool convert(const Held& held, const xcb_selection_request_event_t& request, xcb_atom_t target,
                 xcb_atom_t property);
    bool convertMultiple(const Held& held, const xcb_selection_request_event_t& request);
    void reportRead(xcb_atom_t selection, int64_t reader);
    bool continueTransfer(const xcb_property_notify_event_t& event);
    [[nodiscard]] qsizetype pieceSize() const;

    XcbConnection& m_connection;
    xcb_window_t m_window;
    ReadHandler m_onRead;
    LostHandler m_onLost;
    std::map<xcb_atom_t, Held> m_held;
    std::list<Transfer> m_transfers;
    /// Set if the request being served reads content, not only the list of formats: the process that asks. Asked for
    /// before the answer, because a program may end as soon as it has it.
    std::optional<int64_t> m_reader;
};

} // namespace quillo
