#pragma once

#include "Localization/LocalizationManager.h"

namespace quillo {

/// Translates Qt's own texts, such as the menu of a text field, into the interface language if Qt's translations are
/// installed. Call it once, after creating the application. Main thread.
void translateToolkit(LocalizationManager& manager);

} // namespace quillo
