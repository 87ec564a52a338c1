#pragma once

#include <QHash>
#include <QString>

#include <optional>
#include <utility>
#include <vector>

namespace quillo {

/// The dictation languages offered to the user and sent to the server. Thread-safe.
class SupportedLanguages {
public:
    struct Language {
        QString code;       ///< ISO 639-1
        QString name;       ///< in English
        QString nativeName; ///< in the language itself
        bool operator==(const Language&) const = default;
    };
    using CodeAndName = std::pair<QString, QString>;

    /// The code that leaves the choice to the server.
    static inline const QString automatic = QStringLiteral("auto");

    static const std::vector<Language>& all();
    /// Code and native name, in the order of `all`.
    static const std::vector<CodeAndName>& allTuples();
    /// The same after an entry for automatic detection.
    static const std::vector<CodeAndName>& allWithAuto();
    static const QHash<QString, QString>& nativeNameByCode();
    [[nodiscard]] static bool contains(const QString& code) { return nativeNameByCode().contains(code); }
    /// The supported language for a locale name such as "pt_BR.UTF-8" or "nb-NO", if any.
    static std::optional<QString> codeForLocale(const QString& locale);
};

} // namespace quillo
