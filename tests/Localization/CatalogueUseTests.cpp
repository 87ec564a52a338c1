#include "Localization/LocalizationStrings.h"
#include "Support/Files.h"

#include <QDirIterator>
#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

using Keys = QMap<QString, QString>; ///< with the file that names it

/// Every literal of the sources that looks like a key: its first word is that of some key.
Keys keysInSources() {
    QSet<QString> firstWords;
    const auto& strings = LocalizationStrings::strings();
    for (auto key = strings.keyBegin(); key != strings.keyEnd(); ++key)
        firstWords << key->section(u'.', 0, 0);
    const QRegularExpression literal(
        u"\"((?:%1)\\.[A-Za-z][A-Za-z0-9.]*)\""_qs.arg(QStringList(firstWords.values()).join(u'|')));
    static const QRegularExpression comment(u"^\\s*//.*$"_qs, QRegularExpression::MultilineOption);
    Keys found;
    QDirIterator files(QStringLiteral(QUILLO_SOURCES), {u"*.cpp"_qs, u"*.h"_qs, u"*.qml"_qs}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const auto file = files.next();
        const auto code = QString::fromUtf8(contentOf(file)).remove(comment);
        for (auto matches = literal.globalMatch(code); matches.hasNext();)
            found.insert(matches.next().captured(1), file);
    }
    return found;
}

/// Keys whose code is still to come.
bool isAwaited(const QString& key) {
    static const QSet<QString> awaited{
        u"hotkey.unavailable"_qs,      u"error.microphoneSilent"_qs, u"error.recogniserUnavailable"_qs,
        u"error.languageNotServed"_qs, u"error.unexpected"_qs,       u"pill.command"_qs,
        u"pill.commandProcessing"_qs,  u"pill.microphoneNotReady"_qs};
    return awaited.contains(key);
}

TEST(Catalogues, HoldEveryKeyThatTheProgramNames) {
    const auto named = keysInSources();
    ASSERT_GE(named.size(), 100);
    for (auto key = named.begin(); key != named.end(); ++key)
        EXPECT_TRUE(LocalizationStrings::strings().contains(key.key()))
            << key.key().toStdString() << " in " << key.value().toStdString();
}

TEST(Catalogues, HoldNoKeyThatTheProgramDoesNotName) {
    const auto named = keysInSources();
    const auto& strings = LocalizationStrings::strings();
    for (auto key = strings.keyBegin(); key != strings.keyEnd(); ++key)
        EXPECT_TRUE(named.contains(*key) || isAwaited(*key)) << key->toStdString();
}

} // namespace
} // namespace quillo::test
