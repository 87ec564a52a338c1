#pragma once

#include <QByteArray>
#include <QString>

#include <xcb/xcb.h>

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace quillo {

struct FreeDeleter {
    void operator()(void* memory) const { std::free(memory); } // NOLINT: xcb hands out memory of malloc
};
/// A reply, event or error as returned by xcb.
template <class T>
using XcbOwned = std::unique_ptr<T, FreeDeleter>;

template <class T>
XcbOwned<T> adopt(T* memory) {
    return XcbOwned<T>(memory);
}

/// A window property.
struct XcbProperty {
    xcb_atom_t type = XCB_ATOM_NONE;
    uint8_t format = 0;
    QByteArray data;

    /// The value as 32-bit items; empty when it has another format.
    [[nodiscard]] std::vector<uint32_t> items() const;
};

/// A private connection to the X server. Used by one thread at a time. On a broken connection every call returns
/// nothing; unlike Xlib's, it never ends the process.
class XcbConnection {
public:
    /// Null, with a log line naming `purpose`, when there is no X server.
    static std::unique_ptr<XcbConnection> open(const QString& purpose);
    ~XcbConnection();
    XcbConnection(const XcbConnection&) = delete;
    XcbConnection& operator=(const XcbConnection&) = delete;

    [[nodiscard]] xcb_connection_t* get() const { return m_connection; }
    [[nodiscard]] xcb_window_t root() const { return m_root; }
    [[nodiscard]] int descriptor() const { return xcb_get_file_descriptor(m_connection); }
    [[nodiscard]] bool isBroken() const { return xcb_connection_has_error(m_connection) != 0; }
    void flush() const { xcb_flush(m_connection); }
    /// Flushes and waits until the server has handled everything sent so far.
    void roundTrip() const;

    /// The atom of that name, cached after the first call.
    xcb_atom_t atom(const char* name);
    [[nodiscard]] QString atomName(xcb_atom_t atom) const;
    [[nodiscard]] std::optional<XcbProperty> property(xcb_window_t window, xcb_atom_t name,
                                                      xcb_atom_t type = XCB_ATOM_ANY) const;
    /// The first 32-bit item of a property, 0 when there is none.
    [[nodiscard]] uint32_t item(xcb_window_t window, xcb_atom_t name, xcb_atom_t type = XCB_ATOM_ANY) const;
    /// The process that created `window`, according to the server; 0 for a remote one.
    [[nodiscard]] int64_t processOfWindow(xcb_window_t window) const;

    /// The next event that has arrived, without waiting.
    [[nodiscard]] XcbOwned<xcb_generic_event_t> poll() const { return adopt(xcb_poll_for_event(m_connection)); }
    /// Waits until something can be read or `milliseconds` have passed.
    void waitReadable(int milliseconds) const;

private:
    XcbConnection(xcb_connection_t* connection, xcb_window_t root) : m_connection(connection), m_root(root) {}
    xcb_connection_t* m_connection;
    xcb_window_t m_root;
    std::unordered_map<std::string, xcb_atom_t> m_atoms;
};

/// The kind of an event, without the flag for events sent by clients.
inline uint8_t eventType(const xcb_generic_event_t& event) { return event.response_type & 0x7f; }

} // namespace quillo
