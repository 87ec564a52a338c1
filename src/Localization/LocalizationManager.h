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

/// Chooses the interface language and looks texts up. Follows the stored choice, whatever writes it. Main thread.
class LocalizationManager final : public QObject {
    Q_OBJECT
public:
    static LocalizationManager& shared();
    static inline const QString localeKey = QStringLiteral("quillo-interface-locale");

    /// Takes the stored locale, else the first of `systemLanguages` ("de-DE", ...), each when the interface offers it.
    LocalizationManager(Preferences& preferences, const QStringList& systemLanguages);

    [[nodiscard]] const QString& locale() const { return m_locale; }
    /// Persists the choice and announces it; false when the interface has no such locale.
    bool setLocale(const QString& code);
    static const std::vector<LocaleInfo>& locales();

    /// The text of `key` in the current locale, else in English, else the key itself.
    [[nodiscard]] QString t(const QString& key) const { return textFor(key, m_locale, LocalizationStrings::strings()); }
    /// The same with %1, %2, ... replaced by `arguments`.
    [[nodiscard]] QString t(const QString& key, const QStringList& arguments) const;
    [[nodiscard]] QString t(const UserMessage& message) const { return t(message.key, message.arguments); }

    static QString textFor(const QString& key, const QString& locale,
                           const QHash<QString, LocalizationStrings::Texts>& strings);
    /// The name of the language with this ISO 639 code in the interface language: "Russisch". Empty for no language.
    [[nodiscard]] QString languageName(const QString& code) const;
    /// The language of the first of `systemLanguages` when the interface offers it, else "en".
    static QString detectSystemLocale(const QStringList& systemLanguages);

Q_SIGNALS:
    void localeChanged();

private:
    /// The stored locale, else the system's.
    [[nodiscard]] QString chosenLocale() const;
    void adopt(const QString& code);

    Preferences& m_preferences;
    QStringList m_systemLanguages;
    QString m_locale;
};

} // namespace quillo
