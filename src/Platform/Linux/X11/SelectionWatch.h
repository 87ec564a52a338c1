#pragma once

#include "Platform/Linux/X11/XcbConnection.h"

#include <optional>

namespace quillo {

/// Counts how often a selection changed hands, by the notifications of the XFIXES extension. It has a connection of its
/// own, so that the count is exact at the moment of the question while another thread waits for a slow owner. One
/// thread.
class SelectionWatch {
public:
    explicit SelectionWatch(const char* selection);

    /// Grows when a client takes the selection, gives it up or ends while it holds it. Nothing without XFIXES or with a
    /// broken connection. Takes one round trip to the server.
    [[nodiscard]] std::optional<uint64_t> count();

private:
    std::unique_ptr<XcbConnection> m_connection;
    uint8_t m_event = 0; ///< the type of the notifications; 0 when there will be none
    uint64_t m_count = 0;
};

} // namespace quillo
