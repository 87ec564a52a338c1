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
        EXPECT_TRUE(named.contains(*key)) << key->toStdString();
}

/// The catalogues name some keys that only an action can show which the program never sends. Meetings will send these;
/// `pill.meetingProcessing` and `error.sessionStartFailed` wait for them. `ConnectionFailed` has no sender, because a
/// dictation goes on without a connection.
TEST(Actions, AreAllSentButThoseThatWaitForMeetings) {
    const QString folder = QStringLiteral(QUILLO_SOURCES) + u"/Features/Recording/"_qs;
    QString code;
    QDirIterator files(QStringLiteral(QUILLO_SOURCES), {u"*.cpp"_qs, u"*.h"_qs}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext())
        if (const auto file = files.next(); file != folder + u"RecordingReducer.cpp"_qs)
            code += QString::fromUtf8(contentOf(file));
    static const QRegularExpression declaration(u"^struct (\\w+)"_qs, QRegularExpression::MultilineOption);
    QStringList unsent;
    for (auto action = declaration.globalMatch(QString::fromUtf8(contentOf(folder + u"RecordingAction.h"_qs)));
         action.hasNext();)
        if (const auto name = action.next().captured(1); !code.contains(u"action::"_qs + name + u'{'))
            unsent << name;
    EXPECT_EQ(unsent.join(u' ').toStdString(),
              "SetMeetingPreConfirmed ConnectionFailed SessionStartFailed SystemAudioLevelUpdated "
              "MeetingTextUpdated TranscriptionError ShowMeetingProcessingHint");
}

} // namespace
} // namespace quillo::test
