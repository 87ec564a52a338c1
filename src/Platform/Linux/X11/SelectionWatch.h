#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <optional>

namespace quillo {

/// Counts how often a selection's owner changed, by the notifications of the XFIXES extension. It has its own
/// connection, so that the count is exact at any moment, even while another thread waits for a slow owner. One thread.
class SelectionWatch {
public:
    explicit SelectionWatch(const char* selection);

    /// Increases when a client takes the selection, gives it up, or exits while owning it. Nothing without XFIXES or
    /// with a broken connection. Takes one round trip to the server.
    [[nodiscard]] std::optional<uint64_t> count();

private:
    std::unique_ptr<XcbConnection> m_connection;
    uint8_t m_event = 0; ///< the type of the notifications; 0 when they are not available
    uint64_t m_count = 0;
};

} // namespace quillo
