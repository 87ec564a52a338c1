#pragma once

#include "Platform/KeyEvents.h"
#include "Platform/Linux/X11/ModifierMap.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <vector>

namespace quillo {

/// The key combinations withheld from the focused application, as passive grabs of one connection: each in every state
/// of the lock keys. Closing the connection releases them.
class KeyGrabs {
public:
    explicit KeyGrabs(XcbConnection& connection) : m_connection(connection) {}

    /// Grabs `combinations`; skips those that another client has grabbed and lists them in `unavailable`. A lone
    /// modifier is never grabbed: while it is held, every other key would come to us.
    void grab(std::vector<KeyCombination> combinations);
    void release();
    /// Renews the grabs if `map`, the present modifier mapping, differs in what they depend on.
    void modifierMappingChanged(const ModifierMap& map);
    [[nodiscard]] const std::vector<KeyCombination>& unavailable() const { return m_unavailable; }
    /// Whether no other client has grabbed it.
    [[nodiscard]] bool isFree(const KeyCombination& combination);

private:
    struct Grabbed {
        xcb_keycode_t keycode = 0;
        uint16_t modifiers = 0;
    };
    void releaseFrom(size_t first);
    [[nodiscard]] bool grabOne(const KeyCombination& combination);

    XcbConnection& m_connection;
    ModifierMap m_map;
    std::vector<KeyCombination> m_wanted;
    std::vector<KeyCombination> m_unavailable;
    std::vector<Grabbed> m_grabbed;
};

} // namespace quillo
