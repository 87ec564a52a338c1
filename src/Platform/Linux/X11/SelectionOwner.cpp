#include "Platform/Linux/X11/SelectionOwner.h"

#include <algorithm>

namespace quillo {

namespace {
// Do not keep a large transfer for ever when its reader vanishes or stalls.
constexpr size_t mostTransfers = 16;
} // namespace

SelectionOwner::SelectionOwner(XcbConnection& connection, xcb_window_t window, ReadHandler onRead, LostHandler onLost)
    : m_connection(connection), m_window(window), m_onRead(std::move(onRead)), m_onLost(std::move(onLost)) {}

qsizetype SelectionOwner::pieceSize() const {
    constexpr qsizetype most = 256LL * 1024;
    const auto request = static_cast<qsizetype>(xcb_get_maximum_request_length(m_connection.get())) * 4;
    return std::min(most, request - 128);
}

bool SelectionOwner::own(xcb_atom_t selection, SelectionFormats formats, xcb_timestamp_t time) {
    xcb_set_selection_owner(m_connection.get(), m_window, selection, time);
    const auto owner = adopt(xcb_get_selection_owner_reply(
        m_connection.get(), xcb_get_selection_owner(m_connection.get(), selection), nullptr));
    if (!owner || owner->owner != m_window)
        return false;
    m_held[selection] = Held{std::move(formats), time};
    return true;
}

void SelectionOwner::disown(xcb_atom_t selection) {
    const auto found = m_held.find(selection);
    if (found == m_held.end())
        return;
    // Pass the time at which we took it: if another client has taken it since, the request does nothing.
    xcb_set_selection_owner(m_connection.get(), XCB_WINDOW_NONE, selection, found->second.time);
    m_connection.flush();
    m_held.erase(found);
}

const SelectionFormats* SelectionOwner::held(xcb_atom_t selection) const {
    const auto found = m_held.find(selection);
    return found == m_held.end() ? nullptr : &found->second.formats;
}

bool SelectionOwner::handle(const xcb_generic_event_t& event) {
    switch (eventType(event)) {
    case XCB_SELECTION_REQUEST:
        serve(reinterpret_cast<const xcb_selection_request_event_t&>(event));
        return true;
    case XCB_SELECTION_CLEAR: {
        const auto& clear = reinterpret_cast<const xcb_selection_clear_event_t&>(event);
        const auto found = m_held.find(clear.selection);
        // Ignore the loss of an ownership that we have renewed since.
        if (found != m_held.end() && static_cast<int32_t>(clear.time - found->second.time) >= 0) {
            m_held.erase(found);
            m_onLost(clear.selection);
        }
        return true;
    }
    case XCB_PROPERTY_NOTIFY:
        return continueTransfer(reinterpret_cast<const xcb_property_notify_event_t&>(event));
    default:
        return false;
    }
}

void SelectionOwner::serve(const xcb_selection_request_event_t& request) {
    const auto found = m_held.find(request.selection);
    // Obsolete clients do not name a property; the target's name is used instead.
    const xcb_atom_t property = request.property != XCB_ATOM_NONE ? request.property : request.target;
    bool done = false;
    m_reader.reset();
    if (found != m_held.end()) {
        done = request.target == m_connection.atom("MULTIPLE")
                   ? convertMultiple(found->second, request)
                   : convert(found->second, request, request.target, property);
    }
    xcb_selection_notify_event_t notify{};
    notify.response_type = XCB_SELECTION_NOTIFY;
    notify.time = request.time;
    notify.requestor = request.requestor;
    notify.selection = request.selection;
    notify.target = request.target;
    notify.property = done ? property : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    xcb_send_event(m_connection.get(), 0, request.requestor, XCB_EVENT_MASK_NO_EVENT,
                   reinterpret_cast<const char*>(&notify));
    m_connection.flush();
    if (m_reader)
        reportRead(request.selection, *m_reader);
}

void SelectionOwner::reportRead(xcb_atom_t selection, int64_t reader) {
    // Keys pressed after a read are sent over another connection. Wait until the X server has passed on the answer,
    // or those keys could reach the reader before its text.
    adopt(xcb_get_input_focus_reply(m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
    m_onRead(selection, reader);
}

bool SelectionOwner::convert(const Held& held, const xcb_selection_request_event_t& request, xcb_atom_t target,
                             xcb_atom_t property) {
    auto* const connection = m_connection.get();
    if (target == m_connection.atom("TARGETS")) {
        std::vector<xcb_atom_t> atoms{target, m_connection.atom("TIMESTAMP"), m_connection.atom("MULTIPLE")};
        for (const auto& [name, data] : held.formats)
            atoms.push_back(m_connection.atom(name.toLatin1().constData()));
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request.requestor, property, XCB_ATOM_ATOM, 32,
                            static_cast<uint32_t>(atoms.size()), atoms.data());
        return true;
    }
    if (target == m_connection.atom("TIMESTAMP")) {
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request.requestor, property, XCB_ATOM_INTEGER, 32, 1,
                            &held.time);
        return true;
    }
    const QString name = m_connection.atomName(target);
    const auto format = held.formats.find(name);
    if (format == held.formats.end())
        return false;
    const QByteArray& data = format->second;
    const xcb_atom_t type = m_connection.atom(typeOfTarget(name).toLatin1().constData());
    if (data.size() <= pieceSize()) {
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request.requestor, property, type, 8,
                            static_cast<uint32_t>(data.size()), data.constData());
        if (name != privacyHint)
            m_reader = m_connection.processOfWindow(request.requestor);
        return true;
    }
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_change_window_attributes(connection, request.requestor, XCB_CW_EVENT_MASK, &mask);
    const auto size = static_cast<uint32_t>(data.size());
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, request.requestor, property, m_connection.atom("INCR"), 32,
                        1, &size);
    if (m_transfers.size() >= mostTransfers)
        m_transfers.pop_front();
    m_transfers.push_back(
        {request.requestor, property, type, request.selection, data, m_connection.processOfWindow(request.requestor)});
    return true;
}

bool SelectionOwner::convertMultiple(const Held& held, const xcb_selection_request_event_t& request) {
    if (request.property == XCB_ATOM_NONE)
        return false;
    const auto pairs = m_connection.property(request.requestor, request.property);
    if (!pairs)
        return false;
    auto items = pairs->items();
    for (size_t index = 0; index + 1 < items.size(); index += 2) {
        if (!convert(held, request, items[index], items[index + 1]))
            items[index + 1] = XCB_ATOM_NONE;
    }
    xcb_change_property(m_connection.get(), XCB_PROP_MODE_REPLACE, request.requestor, request.property,
                        m_connection.atom("ATOM_PAIR"), 32, static_cast<uint32_t>(items.size()), items.data());
    return true;
}

bool SelectionOwner::continueTransfer(const xcb_property_notify_event_t& event) {
    if (event.state != XCB_PROPERTY_DELETE)
        return false;
    const auto transfer = std::find_if(m_transfers.begin(), m_transfers.end(), [&](const Transfer& t) {
        return t.requestor == event.window && t.property == event.atom;
    });
    if (transfer == m_transfers.end())
        return false;
    // An empty piece ends the transfer once everything else has been read.
    const qsizetype size = std::min(pieceSize(), transfer->data.size() - transfer->sent);
    xcb_change_property(m_connection.get(), XCB_PROP_MODE_REPLACE, transfer->requestor, transfer->property,
                        transfer->type, 8, static_cast<uint32_t>(size), transfer->data.constData() + transfer->sent);
    m_connection.flush();
    transfer->sent += size;
    if (size == 0) {
        const Transfer done = std::move(*transfer);
        m_transfers.erase(transfer);
        reportRead(done.selection, done.reader);
    }
    return true;
}

} // namespace quillo
