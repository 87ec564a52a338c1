#include "Platform/Linux/X11/SelectionReader.h"

#include <algorithm>

namespace quillo {

namespace {

constexpr std::chrono::milliseconds interruptionInterval(10);

/// Read the most valuable formats first, in case there is no time for all.
int rankOf(const QString& target) {
    if (isTextTarget(target))
        return 0;
    return target == u"image/png" ? 1 : 2;
}

} // namespace

SelectionReader::SelectionReader(XcbConnection& connection, xcb_window_t window, EventHandler others,
                                 Interruption isInterrupted)
    : m_connection(connection), m_window(window), m_others(std::move(others)),
      m_isInterrupted(std::move(isInterrupted)) {}

SelectionReader::Result SelectionReader::readAll(xcb_atom_t selection, qsizetype mostBytes, Deadline deadline) {
    Result result;
    const auto owner = adopt(xcb_get_selection_owner_reply(
        m_connection.get(), xcb_get_selection_owner(m_connection.get(), selection), nullptr));
    if (!owner || owner->owner == XCB_WINDOW_NONE)
        return result;
    XcbProperty value;
    if (convert(selection, m_connection.atom("TARGETS"), mostBytes, deadline, value) != Outcome::got) {
        result.complete = false;
        return result;
    }
    std::vector<std::pair<QString, xcb_atom_t>> targets;
    for (const xcb_atom_t atom : value.items()) {
        const QString name = m_connection.atomName(atom);
        if (!name.isEmpty() && !isProtocolTarget(name))
            targets.emplace_back(name, atom);
    }
    std::stable_sort(targets.begin(), targets.end(),
                     [](const auto& a, const auto& b) { return rankOf(a.first) < rankOf(b.first); });
    qsizetype left = mostBytes;
    for (const auto& [name, atom] : targets) {
        switch (convert(selection, atom, left, deadline, value)) {
        case Outcome::got:
            // Data of wider items contains atoms or numbers that have a meaning only to its owner.
            if (value.format == 8) {
                left -= value.data.size();
                result.formats.emplace(name, value.data);
            }
            break;
        case Outcome::refused:
            break;
        case Outcome::tooLarge:
            result.complete = false;
            break;
        case Outcome::timedOut:
            result.complete = false;
            return result;
        }
    }
    return result;
}

SelectionReader::Outcome SelectionReader::convert(xcb_atom_t selection, xcb_atom_t target, qsizetype mostBytes,
                                                  Deadline deadline, XcbProperty& value) {
    // Use a new property for each request, so that a late answer to an earlier one is not mistaken for this one's.
    constexpr unsigned properties = 64;
    const QByteArray name = "_QUILLO_SELECTION_" + QByteArray::number(m_next++ % properties);
    const xcb_atom_t property = m_connection.atom(name.constData());
    xcb_delete_property(m_connection.get(), m_window, property);
    xcb_convert_selection(m_connection.get(), m_window, selection, target, property, XCB_CURRENT_TIME);
    m_connection.flush();
    const auto event = waitFor(
        [&](const xcb_generic_event_t& e) {
            const auto& notify = reinterpret_cast<const xcb_selection_notify_event_t&>(e);
            return eventType(e) == XCB_SELECTION_NOTIFY && notify.requestor == m_window && notify.target == target &&
                   (notify.property == property || notify.property == XCB_ATOM_NONE);
        },
        deadline, m_isInterrupted);
    if (!event)
        return Outcome::timedOut;
    if (reinterpret_cast<const xcb_selection_notify_event_t*>(event.get())->property == XCB_ATOM_NONE)
        return Outcome::refused;
    auto taken = take(property, mostBytes);
    if (!taken)
        return Outcome::tooLarge;
    if (taken->type == m_connection.atom("INCR"))
        return receivePieces(property, mostBytes, deadline, value);
    value = std::move(*taken);
    return value.type == XCB_ATOM_NONE ? Outcome::refused : Outcome::got;
}

SelectionReader::Outcome SelectionReader::receivePieces(xcb_atom_t property, qsizetype mostBytes, Deadline deadline,
                                                        XcbProperty& value) {
    value = {};
    bool tooLarge = false;
    for (;;) {
        const auto event = waitFor(
            [&](const xcb_generic_event_t& e) {
                const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(e);
                return eventType(e) == XCB_PROPERTY_NOTIFY && notify.window == m_window && notify.atom == property &&
                       notify.state == XCB_PROPERTY_NEW_VALUE;
            },
            deadline, m_isInterrupted);
        if (!event)
            return tooLarge ? Outcome::tooLarge : Outcome::timedOut;
        auto piece = take(property, mostBytes);
        if (!piece) {
            tooLarge = true;
            continue;
        }
        if (piece->type == XCB_ATOM_NONE)
            continue; // the notification of a value that we have already read
        if (piece->data.isEmpty())
            return tooLarge ? Outcome::tooLarge : Outcome::got;
        // Read and discard the rest of data that is too large, so that its owner does not wait.
        tooLarge = tooLarge || value.data.size() + piece->data.size() > mostBytes;
        if (tooLarge) {
            value.data.clear();
            continue;
        }
        value.type = piece->type;
        value.format = piece->format;
        value.data += piece->data;
    }
}

std::optional<XcbProperty> SelectionReader::take(xcb_atom_t property, qsizetype mostBytes) {
    const auto words = static_cast<uint32_t>(std::max<qsizetype>(mostBytes, 4096) / 4 + 1);
    const auto reply = adopt(xcb_get_property_reply(
        m_connection.get(), xcb_get_property(m_connection.get(), 1, m_window, property, XCB_ATOM_ANY, 0, words),
        nullptr));
    if (!reply)
        return XcbProperty{};
    if (reply->bytes_after > 0) {
        xcb_delete_property(m_connection.get(), m_window, property);
        m_connection.flush();
        return std::nullopt;
    }
    return XcbProperty{reply->type, reply->format,
                       QByteArray(static_cast<const char*>(xcb_get_property_value(reply.get())),
                                  xcb_get_property_value_length(reply.get()))};
}

xcb_timestamp_t SelectionReader::serverTime() {
    const xcb_atom_t property = m_connection.atom("_QUILLO_TIME");
    xcb_change_property(m_connection.get(), XCB_PROP_MODE_APPEND, m_window, property, XCB_ATOM_INTEGER, 32, 0, nullptr);
    m_connection.flush();
    const auto event = waitFor(
        [&](const xcb_generic_event_t& e) {
            const auto& notify = reinterpret_cast<const xcb_property_notify_event_t&>(e);
            return eventType(e) == XCB_PROPERTY_NOTIFY && notify.window == m_window && notify.atom == property;
        },
        std::chrono::steady_clock::now() + std::chrono::seconds(1), [] { return false; });
    return event ? reinterpret_cast<const xcb_property_notify_event_t*>(event.get())->time : XCB_CURRENT_TIME;
}

XcbOwned<xcb_generic_event_t> SelectionReader::waitFor(const std::function<bool(const xcb_generic_event_t&)>& wanted,
                                                       Deadline deadline, const Interruption& isInterrupted) {
    while (!m_connection.isBroken() && !isInterrupted()) {
        while (auto event = m_connection.poll()) {
            if (wanted(*event))
                return event;
            m_others(*event);
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            break;
        m_connection.waitReadable(static_cast<int>(std::min(left, interruptionInterval).count()));
    }
    return nullptr;
}

} // namespace quillo
