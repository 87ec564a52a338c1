#pragma once

#include "Platform/KeyEvents.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <memory>

namespace quillo::test {

/// What the shell of a desktop does with keys, as a client of its own: it opens a launcher when Super or Alt is pressed
/// and released with no other key in between, and it holds key combinations of its own.
class DesktopShell {
public:
    DesktopShell();

    /// How often the launcher has been opened, by all keys up to now.
    [[nodiscard]] int launches();
    /// Grabs the key with this kernel code with these modifiers of the server.
    void hold(uint16_t evdevCode, uint16_t modifiers);

private:
    std::unique_ptr<XcbConnection> m_connection;
    int m_launches = 0;
    uint32_t m_lone = 0; ///< the lone modifier that is down
};

} // namespace quillo::test
