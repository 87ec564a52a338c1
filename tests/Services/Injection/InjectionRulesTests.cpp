#include "Services/Injection/InjectionRules.h"

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

TEST(InjectionRules, ABlankPartsWordsOfScriptsThatPartThem) {
    const std::tuple<QString, QString, bool> cases[] = {
        {u"a"_qs, u"b"_qs, true},   {u"?"_qs, u"9"_qs, true},   {u"”"_qs, u"Ж"_qs, true},
        {u"("_qs, u"b"_qs, false},  {u" "_qs, u"b"_qs, false},  {u"\n"_qs, u"b"_qs, false},
        {u"a"_qs, u" b"_qs, false}, {u"a"_qs, u"-b"_qs, false}, {u"本"_qs, u"日"_qs, false},
        {u"。"_qs, u"b"_qs, false}, {u"a"_qs, u"ไ"_qs, false},  {QString(), u"b"_qs, false},
        {u"a"_qs, QString(), false}};
    for (const auto& [before, text, expected] : cases)
        EXPECT_EQ(needsBlankBetween(before, text), expected) << before.toStdString() << "|" << text.toStdString();
}

TEST(InjectionRules, StripControlCharacters) {
    const std::pair<QString, QString> cases[] = {
        {u"a\r\nb\rc\nd\te"_qs, u"a\nb\nc\nd\te"_qs},
        {u"\x1b[31mred\x1b[0m"_qs, u"[31mred[0m"_qs},
        {u"\u0085\u007f\u0003x"_qs, u"x"_qs},
        {u"one\u2028two\u2029three"_qs, u"one\ntwo\nthree"_qs},
        {u"👩\u200d👧 naïve \u00a0 עברית"_qs, u"👩\u200d👧 naïve \u00a0 עברית"_qs}};
    for (const auto& [given, expected] : cases)
        EXPECT_EQ(withoutControlCharacters(given), expected);
}

TEST(InjectionRules, ChooseTheChordOfTheTarget) {
    const std::tuple<const char*, bool, PasteChord> cases[] = {
        {"firefox", false, PasteChord::controlV},   {"org.gnome.Terminal", true, PasteChord::controlShiftV},
        {"kitty", true, PasteChord::controlShiftV}, {"XTerm", true, PasteChord::shiftInsert},
        {"URxvt", true, PasteChord::shiftInsert},   {"org.gnu.emacs", false, PasteChord::shiftInsert}};
    for (const auto& [identifier, isTerminal, chord] : cases)
        EXPECT_EQ(pasteChordFor(RunningApplication{.pid = 1,
                                                   .name = QString::fromLatin1(identifier),
                                                   .bundleIdentifier = QString::fromLatin1(identifier),
                                                   .isTerminal = isTerminal}),
                  chord)
            << identifier;
    EXPECT_EQ(pasteChordFor(std::nullopt), PasteChord::controlV);
}

} // namespace
} // namespace quillo::test
