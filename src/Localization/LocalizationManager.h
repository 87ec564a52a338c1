#pragma once

#include "Core/Preferences.h"
#include "Core/UserMessage.h"
#include "Localization/LocalizationStrings.h"

#include <QObject>
#include <QStringList>

#include <vector>

namespace quillo {

/// An interface language.
struct LocaleInfo {
    QString code;
    QString nativeName;
};

/// Selects the interface language and looks up texts. Follows every change of the stored choice. Main thread.
class LocalizationManager final : public QObject {
    Q_OBJECT
public:
    static LocalizationManager& shared();
    static inline const QString localeKey = QStringLiteral("quillo-interface-locale");

    /// Uses the stored locale, otherwise the first of `systemLanguages` ("de-DE", ...), if the interface offers it.
    LocalizationManager(Preferences& preferences, const QStringList& systemLanguages);

    [[nodiscard]] const QString& locale() const { return m_locale; }
    /// Stores the choice and announces it; false when the interface does not have this locale.
    bool setLocale(const QString& code);
    static const std::vector<LocaleInfo>& locales();

    /// The text of `key` in the current locale, otherwise in English, otherwise the key itself.
    [[nodiscard]] QString t(const QString& key) const { return textFor(key, m_locale, LocalizationStrings::strings()); }
    /// The same with %1, %2, ... replaced by `arguments`.
    [[nodiscard]] QString t(const QString& key, const QStringList& arguments) const;
    [[nodiscard]] QString t(const UserMessage& message) const { return t(message.key, message.arguments); }

    static QString textFor(const QString& key, const QString& locale,
                           const QHash<QString, LocalizationStrings::Texts>& strings);
    /// The name of the language with this ISO 639 code in the interface language: "Russisch". Empty for no language.
    [[nodiscard]] QString languageName(const QString& code) const;
    /// The language of the first of `systemLanguages` if the interface offers it, otherwise "en".
    static QString detectSystemLocale(const QStringList& systemLanguages);

Q_SIGNALS:
    void localeChanged();

private:
    /// The stored locale, otherwise the system's.
    [[nodiscard]] QString chosenLocale() const;
    void adopt(const QString& code);

    Preferences& m_preferences;
    QStringList m_systemLanguages;
    QString m_locale;
};

} // namespace quillo
