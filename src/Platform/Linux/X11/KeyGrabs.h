#pragma once

#include "Platform/KeyEvents.h"
#include "Platform/Linux/X11/XcbConnection.h"

#include <vector>

namespace quillo {

/// The key combinations we keep from the focused application, as passive grabs of one connection: each with every
/// state of the lock keys. Dropping it with its connection releases them.
class KeyGrabs {
public:
    explicit KeyGrabs(XcbConnection& connection) : m_connection(connection) {}

    /// Grabs `combinations`; those another client holds are left and listed by `unavailable`. A lone modifier is never
    /// grabbed: while it is held every other key would come to us.
    void grab(std::vector<KeyCombination> combinations);
    void release();
    /// Grabs afresh if the modifier keys have moved since.
    void modifierMappingChanged();
    [[nodiscard]] const std::vector<KeyCombination>& unavailable() const { return m_unavailable; }

private:
    /// The server's modifier bits for ours; they depend on the keyboard mapping.
    struct Masks {
        uint16_t option = XCB_MOD_MASK_1;
        uint16_t command = XCB_MOD_MASK_4;
        std::vector<uint16_t> locks; ///< every combination of the lock keys, none of them first
        bool operator==(const Masks&) const = default;
    };
    struct Grabbed {
        xcb_keycode_t keycode;
        uint16_t modifiers;
    };
    [[nodiscard]] Masks readMasks() const;
    [[nodiscard]] bool grabOne(const KeyCombination& combination);

    XcbConnection& m_connection;
    Masks m_masks;
    std::vector<KeyCombination> m_wanted;
    std::vector<KeyCombination> m_unavailable;
    std::vector<Grabbed> m_grabbed;
};

} // namespace quillo
