#include "Core/SupportedLanguages.h"

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

TEST(SupportedLanguages, HoldTheWholeTable) {
    const auto& all = SupportedLanguages::all();
    ASSERT_EQ(all.size(), 67U);
    EXPECT_EQ(SupportedLanguages::nativeNameByCode().size(), 67) << "a code stands there twice";
    EXPECT_EQ(SupportedLanguages::nativeNameByCode().value(u"vi"_qs), u"Tiếng Việt"_qs);
}

TEST(SupportedLanguages, AreFoundForALocale) {
    const std::pair<const char*, const char*> cases[] = {{"de_DE.UTF-8", "de"},
                                                         {"pt-BR", "pt"},
                                                         {"zh_Hans_CN", "zh"},
                                                         {"nb_NO", "no"},
                                                         {"fil", "tl"},
                                                         {"sr_RS@latin", "sr"},
                                                         {"C", ""},
                                                         {"", ""}};
    for (const auto& [locale, code] : cases)
        EXPECT_EQ(SupportedLanguages::codeForLocale(QString::fromLatin1(locale)).value_or(QString()),
                  QString::fromLatin1(code))
            << locale;
}

} // namespace
} // namespace quillo::test
