#include "Localization/LocalizationStrings.h"

#include "Core/Log.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QResource>

// Without this the linker drops the resources of a static library; the macro must be outside every namespace.
static void keepCatalogues() { Q_INIT_RESOURCE(catalogues); }

namespace quillo {
namespace {

QHash<QString, LocalizationStrings::Texts> load() {
    keepCatalogues();
    QHash<QString, LocalizationStrings::Texts> strings;
    for (const auto& locale : LocalizationStrings::locales()) {
        QFile file(QStringLiteral(":/quillo/localization/catalogues/%1.json").arg(locale));
        QJsonParseError error;
        const auto document =
            file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll(), &error) : QJsonDocument();
        if (!document.isObject())
            appLog(QStringLiteral("[LocalizationStrings] ❌ The catalogue %1 is not readable: %2")
                       .arg(locale, error.errorString()),
                   LogLevel::error, QStringLiteral("Localization"));
        const auto texts = document.object();
        for (auto text = texts.begin(); text != texts.end(); ++text)
            strings[text.key()].insert(locale, text.value().toString());
    }
    return strings;
}

} // namespace

const QHash<QString, LocalizationStrings::Texts>& LocalizationStrings::strings() {
    static const auto loaded = load();
    return loaded;
}

const QStringList& LocalizationStrings::locales() {
    static const QStringList codes{QStringLiteral("en"), QStringLiteral("de"), QStringLiteral("es"),
                                   QStringLiteral("fr"), QStringLiteral("ru"), QStringLiteral("zh")};
    return codes;
}

} // namespace quillo
