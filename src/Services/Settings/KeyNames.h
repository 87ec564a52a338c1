#pragma once

#include "Localization/LocalizationManager.h"
#include "Platform/KeyEvents.h"

#include <optional>

namespace quillo {

/// The names of keys, for display and input.
namespace keyNames {

/// The key with its modifiers in the interface language, in the order Control, Alt, Shift, Super: "Strg+Alt+Leertaste".
QString of(const KeyCombination& combination, const LocalizationManager& texts = LocalizationManager::shared());

/// The combination named by `text` in English or in the interface language, ignoring case: "Right Ctrl",
/// "ctrl+alt+space", "F9". Nothing for any other text.
std::optional<KeyCombination> parse(const QString& text,
                                    const LocalizationManager& texts = LocalizationManager::shared());
/// The bits of `keyflag::mask` named by `text`: "Ctrl+Alt"; 0 for "none". Nothing for any other text.
std::optional<uint64_t> parseModifiers(const QString& text,
                                       const LocalizationManager& texts = LocalizationManager::shared());
/// The inverse of `parseModifiers`, in English.
QString modifiersToString(uint64_t modifiers);

} // namespace keyNames

} // namespace quillo
