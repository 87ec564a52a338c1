#pragma once

#include "Localization/LocalizationManager.h"
#include "Platform/KeyEvents.h"

#include <optional>

namespace quillo {

/// Keys by the names that a person reads and types.
namespace keyNames {

/// The key with its modifiers in the interface language, in the order Control, Alt, Shift, Super: "Strg+Alt+Leertaste".
QString of(const KeyCombination& combination, const LocalizationManager& texts = LocalizationManager::shared());

/// The combination that `text` names in English or in the interface language, without regard to case: "Right Ctrl",
/// "ctrl+alt+space", "F9". Nothing when it names none.
std::optional<KeyCombination> parse(const QString& text,
                                    const LocalizationManager& texts = LocalizationManager::shared());
/// The bits of `keyflag::mask` that `text` names: "Ctrl+Alt"; 0 for "none". Nothing when it names none.
std::optional<uint64_t> parseModifiers(const QString& text,
                                       const LocalizationManager& texts = LocalizationManager::shared());
/// The inverse of `parseModifiers`, in English.
QString modifiersToString(uint64_t modifiers);

} // namespace keyNames

} // namespace quillo
