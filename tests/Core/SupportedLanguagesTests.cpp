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
    const QString cases = u"de_DE.UTF-8=de pt-BR=pt zh_Hans_CN=zh nb_NO=no fil=tl sr_RS@latin=sr C= ="_qs;
    for (const auto& row : cases.split(u' '))
        EXPECT_EQ(SupportedLanguages::codeForLocale(row.section(u'=', 0, 0)).value_or(QString()), row.section(u'=', 1))
            << row.toStdString();
}

} // namespace
} // namespace quillo::test
