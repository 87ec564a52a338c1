#include "Core/SupportedLanguages.h"

namespace quillo {
namespace {

struct Row {
    const char* code;
    const char* name;
    const char* nativeName;
};

constexpr Row rows[] = {
    {"en", "English", "English"},
    {"es", "Spanish", "Español"},
    {"fr", "French", "Français"},
    {"de", "German", "Deutsch"},
    {"ru", "Russian", "Русский"},
    {"zh", "Chinese", "中文"},
    {"pt", "Portuguese", "Português"},
    {"ja", "Japanese", "日本語"},
    {"it", "Italian", "Italiano"},
    {"ko", "Korean", "한국어"},
    {"hi", "Hindi", "हिन्दी"},
    {"ar", "Arabic", "العربية"},
    {"nl", "Dutch", "Nederlands"},
    {"pl", "Polish", "Polski"},
    {"tr", "Turkish", "Türkçe"},
    {"uk", "Ukrainian", "Українська"},
    {"af", "Afrikaans", "Afrikaans"},
    {"hy", "Armenian", "Հայերեն"},
    {"az", "Azerbaijani", "Azərbaycan"},
    {"eu", "Basque", "Euskara"},
    {"be", "Belarusian", "Беларуская"},
    {"bn", "Bengali", "বাংলা"},
    {"bs", "Bosnian", "Bosanski"},
    {"bg", "Bulgarian", "Български"},
    {"ca", "Catalan", "Català"},
    {"hr", "Croatian", "Hrvatski"},
    {"cs", "Czech", "Čeština"},
    {"da", "Danish", "Dansk"},
    {"et", "Estonian", "Eesti"},
    {"tl", "Filipino", "Filipino"},
    {"fi", "Finnish", "Suomi"},
    {"gl", "Galician", "Galego"},
    {"ka", "Georgian", "ქართული"},
    {"el", "Greek", "Ελληνικά"},
    {"gu", "Gujarati", "ગુજરાતી"},
    {"he", "Hebrew", "עברית"},
    {"hu", "Hungarian", "Magyar"},
    {"is", "Icelandic", "Íslenska"},
    {"id", "Indonesian", "Bahasa Indonesia"},
    {"kn", "Kannada", "ಕನ್ನಡ"},
    {"la", "Latin", "Latina"},
    {"lv", "Latvian", "Latviešu"},
    {"lt", "Lithuanian", "Lietuvių"},
    {"mk", "Macedonian", "Македонски"},
    {"ms", "Malay", "Bahasa Melayu"},
    {"ml", "Malayalam", "മലയാളം"},
    {"mt", "Maltese", "Malti"},
    {"mi", "Maori", "Māori"},
    {"mr", "Marathi", "मराठी"},
    {"mn", "Mongolian", "Монгол"},
    {"ne", "Nepali", "नेपाली"},
    {"no", "Norwegian", "Norsk"},
    {"fa", "Persian", "فارسی"},
    {"pa", "Punjabi", "ਪੰਜਾਬੀ"},
    {"ro", "Romanian", "Română"},
    {"sr", "Serbian", "Српски"},
    {"si", "Sinhala", "සිංහල"},
    {"sk", "Slovak", "Slovenčina"},
    {"sl", "Slovenian", "Slovenščina"},
    {"sw", "Swahili", "Kiswahili"},
    {"sv", "Swedish", "Svenska"},
    {"ta", "Tamil", "தமிழ்"},
    {"te", "Telugu", "తెలుగు"},
    {"th", "Thai", "ไทย"},
    {"ur", "Urdu", "اردو"},
    {"vi", "Vietnamese", "Tiếng Việt"},
    {"cy", "Welsh", "Cymraeg"},
};

std::vector<SupportedLanguages::Language> makeAll() {
    std::vector<SupportedLanguages::Language> languages;
    for (const auto& row : rows)
        languages.push_back(
            {QString::fromUtf8(row.code), QString::fromUtf8(row.name), QString::fromUtf8(row.nativeName)});
    return languages;
}

} // namespace

const std::vector<SupportedLanguages::Language>& SupportedLanguages::all() {
    static const auto languages = makeAll();
    return languages;
}

const std::vector<SupportedLanguages::CodeAndName>& SupportedLanguages::allTuples() {
    static const auto tuples = [] {
        std::vector<CodeAndName> result;
        for (const auto& language : all())
            result.emplace_back(language.code, language.nativeName);
        return result;
    }();
    return tuples;
}

const std::vector<SupportedLanguages::CodeAndName>& SupportedLanguages::allWithAuto() {
    static const auto tuples = [] {
        std::vector<CodeAndName> result{{automatic, QStringLiteral("Auto")}};
        result.insert(result.end(), allTuples().begin(), allTuples().end());
        return result;
    }();
    return tuples;
}

const QHash<QString, QString>& SupportedLanguages::nativeNameByCode() {
    static const auto names = [] {
        QHash<QString, QString> result;
        for (const auto& [code, nativeName] : allTuples())
            result.insert(code, nativeName);
        return result;
    }();
    return names;
}

std::optional<QString> SupportedLanguages::codeForLocale(const QString& locale) {
    QString code = locale.toLower();
    for (const QChar separator : {u'_', u'-', u'.', u'@'})
        code = code.section(separator, 0, 0);
    // The table has one row for languages whose locales have several or older names.
    static const QHash<QString, QString> aliases{{QStringLiteral("nb"), QStringLiteral("no")},
                                                 {QStringLiteral("nn"), QStringLiteral("no")},
                                                 {QStringLiteral("fil"), QStringLiteral("tl")},
                                                 {QStringLiteral("iw"), QStringLiteral("he")},
                                                 {QStringLiteral("in"), QStringLiteral("id")}};
    code = aliases.value(code, code);
    if (!contains(code))
        return std::nullopt;
    return code;
}

} // namespace quillo
