#include "Localization/LocalizationStrings.h"

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
        QStringLiteral("\"((?:%1)\\.[A-Za-z][A-Za-z0-9.]*)\"").arg(QStringList(firstWords.values()).join(u'|')));
    static const QRegularExpression comment(QStringLiteral("^\\s*//.*$"), QRegularExpression::MultilineOption);
    Keys found;
    QDirIterator files(QStringLiteral(QUILLO_SOURCES),
                       {QStringLiteral("*.cpp"), QStringLiteral("*.h"), QStringLiteral("*.qml")}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (!file.open(QIODevice::ReadOnly))
            ADD_FAILURE() << file.fileName().toStdString();
        const auto code = QString::fromUtf8(file.readAll()).remove(comment);
        for (auto matches = literal.globalMatch(code); matches.hasNext();)
            found.insert(matches.next().captured(1), file.fileName());
    }
    return found;
}

/// Keys whose code is still to come.
bool isAwaited(const QString& key) {
    static const QSet<QString> awaited{QStringLiteral("hotkey.unavailable"),
                                       QStringLiteral("error.microphoneSilent"),
                                       QStringLiteral("error.recogniserUnavailable"),
                                       QStringLiteral("error.languageNotServed"),
                                       QStringLiteral("error.unexpected"),
                                       QStringLiteral("pill.command"),
                                       QStringLiteral("pill.commandProcessing"),
                                       QStringLiteral("pill.microphoneNotReady")};
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
