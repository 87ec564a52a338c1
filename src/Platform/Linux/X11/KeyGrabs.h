#pragma once

#include "Platform/KeyEvents.h"
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
    /// Renews the grabs if the modifier mapping has changed.
    void modifierMappingChanged();
    [[nodiscard]] const std::vector<KeyCombination>& unavailable() const { return m_unavailable; }

private:
    /// The server's modifier bits for ours, which depend on the keyboard mapping.
    struct Masks {
        uint16_t option = XCB_MOD_MASK_1;
        uint16_t command = XCB_MOD_MASK_4;
        std::vector<uint16_t> locks; ///< every combination of the lock keys; the first is "no lock"
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
