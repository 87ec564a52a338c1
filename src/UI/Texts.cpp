#include "UI/Texts.h"

#include "Localization/LocalizationManager.h"

namespace quillo {

QString Texts::lookUp(const QString& key) { return LocalizationManager::shared().t(key); }

} // namespace quillo
