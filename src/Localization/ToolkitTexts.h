#pragma once

#include "Localization/LocalizationManager.h"

namespace quillo {

/// The texts that Qt itself shows, such as the menu of a text field: in the interface language where Qt's translations
/// are installed, in English elsewhere. To be called once, with an application. Main thread.
void translateToolkit(LocalizationManager& manager);

} // namespace quillo
