#include "Localization/ToolkitTexts.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

namespace quillo {

void translateToolkit(LocalizationManager& manager) {
    auto* const translator = new QTranslator(QCoreApplication::instance());
    const auto load = [&manager, translator] {
        // An empty translator, for English or a language that is not installed, translates nothing.
        if (!translator->load(QStringLiteral("qtbase_") + manager.locale(),
                              QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
            (void)translator->load(QString());
        QCoreApplication::removeTranslator(translator);
        QCoreApplication::installTranslator(translator);
    };
    load();
    QObject::connect(&manager, &LocalizationManager::localeChanged, translator, load);
}

} // namespace quillo
