#include "Localization/LocalizationManager.h"

#include <QLocale>
#include <QRegularExpression>

#include <unicode/uloc.h>

#include <array>

namespace quillo {

LocalizationManager& LocalizationManager::shared() {
    static auto* const manager = new LocalizationManager(Preferences::shared(), QLocale::system().uiLanguages());
    return *manager;
}

LocalizationManager::LocalizationManager(Preferences& preferences, const QStringList& systemLanguages)
    : m_preferences(preferences), m_systemLanguages(systemLanguages), m_locale(chosenLocale()) {
    connect(&preferences, &Preferences::changed, this, [this](const QString& key) {
        if (key == localeKey)
            adopt(chosenLocale());
    });
}

QString LocalizationManager::chosenLocale() const {
    const QString stored = m_preferences.value(localeKey).toString();
    return LocalizationStrings::locales().contains(stored) ? stored : detectSystemLocale(m_systemLanguages);
}

void LocalizationManager::adopt(const QString& code) {
    if (m_locale == code)
        return;
    m_locale = code;
    Q_EMIT localeChanged();
}

bool LocalizationManager::setLocale(const QString& code) {
    if (!LocalizationStrings::locales().contains(code))
        return false;
    m_preferences.setValue(localeKey, code);
    adopt(code);
    return true;
}

const std::vector<LocaleInfo>& LocalizationManager::locales() {
    static const std::vector<LocaleInfo> infos{
        {QStringLiteral("en"), QStringLiteral("English")}, {QStringLiteral("de"), QStringLiteral("Deutsch")},
        {QStringLiteral("es"), QStringLiteral("Español")}, {QStringLiteral("fr"), QStringLiteral("Français")},
        {QStringLiteral("ru"), QStringLiteral("Русский")}, {QStringLiteral("zh"), QStringLiteral("简体中文")},
    };
    return infos;
}

QString LocalizationManager::t(const QString& key, const QStringList& arguments) const {
    QString text = t(key);
    // Replace all at once: an argument that contains "%2" must not be replaced again.
    static const QRegularExpression placeholder(QStringLiteral("%([1-9])"));
    qsizetype at = 0;
    QString result;
    for (auto matches = placeholder.globalMatch(text); matches.hasNext();) {
        const auto match = matches.next();
        result += QStringView(text).mid(at, match.capturedStart() - at);
        const int index = match.captured(1).toInt() - 1;
        result += index < arguments.size() ? arguments.at(index) : match.captured();
        at = match.capturedEnd();
    }
    return result + text.mid(at);
}

QString LocalizationManager::languageName(const QString& code) const {
    std::array<char16_t, 128> name{};
    UErrorCode status = U_ZERO_ERROR;
    const auto length = uloc_getDisplayLanguage(code.toLatin1().constData(), m_locale.toLatin1().constData(),
                                                name.data(), name.size(), &status);
    // A code without a name is returned unchanged.
    if (U_FAILURE(status) || length <= 0 || status == U_USING_DEFAULT_WARNING)
        return {};
    const auto text = QString::fromUtf16(name.data(), length);
    // Capitalise it like a title for lists; ICU returns the form used inside a sentence.
    return text.left(1).toUpper() + text.mid(1);
}

QString LocalizationManager::textFor(const QString& key, const QString& locale,
                                     const QHash<QString, LocalizationStrings::Texts>& strings) {
    const auto texts = strings.constFind(key);
    if (texts == strings.constEnd())
        return key;
    const auto text = texts->constFind(locale);
    return text != texts->constEnd() ? *text : texts->value(QStringLiteral("en"), key);
}

QString LocalizationManager::detectSystemLocale(const QStringList& systemLanguages) {
    const QString first = systemLanguages.value(0).toLower();
    const QString code = first.section(u'-', 0, 0).section(u'_', 0, 0);
    return LocalizationStrings::locales().contains(code) ? code : QStringLiteral("en");
}

} // namespace quillo
