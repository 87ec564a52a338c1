#include "Services/Recordings/PendingAudioFiles.h"

#include "Services/Recordings/RecordingsFolder.h"

#include <sys/stat.h>

namespace quillo::test {
namespace {

const QDateTime now = QDateTime::fromString(u"2026-05-04T10:11:12.013Z"_qs, Qt::ISODateWithMs);
const QByteArray audio(320, '\x11');

QStringList ids(const std::vector<PendingAudioMetadata>& recordings) {
    QStringList found;
    for (const auto& metadata : recordings)
        found << metadata.id;
    return found;
}

TEST(PendingAudioMetadata, IsWrittenInTheFixedOrderAndReadBack) {
    auto metadata = RecordingsFolder::metadata(u"a-1"_qs, now);
    metadata.durationMs = 60'000;
    metadata.targetApp = QString::fromUtf8("Ünïcode \"editor\" \xF0\x9F\x8E\x99");
    metadata.targetAppPid = 4711;
    metadata.chunkCount = 600;
    metadata.totalBytes = 460'800'000'000;
    const auto bare = metadata.encode();
    EXPECT_EQ(PendingAudioMetadata::decode(bare), metadata);
    EXPECT_FALSE(bare.contains("completedAt"));

    metadata.systemAudioId = u"a-1-system"_qs;
    metadata.systemAudioChunkCount = 5;
    metadata.systemAudioTotalBytes = 16'000;
    metadata.completedAt = now.addSecs(5);
    metadata.clientRecordingId = u"client"_qs;
    metadata.emptyResultCount = 1;
    const auto full = metadata.encode();
    EXPECT_EQ(PendingAudioMetadata::decode(full), metadata);
    const auto order =
        u"id createdAt durationMs primaryLanguage secondaryLanguage targetApp targetAppPid userId sampleRate channels "
        u"bitDepth chunkCount totalBytes reason systemAudioId systemAudioChunkCount systemAudioTotalBytes completedAt "
        u"clientRecordingId emptyResultCount"_qs;
    qsizetype last = 0;
    for (const auto& key : order.split(u' ')) {
        const auto position = full.indexOf('"' + key.toUtf8() + '"');
        EXPECT_GT(position, last) << key.toStdString();
        last = position;
    }
    // Half a surrogate pair in a window's name, and a process that is not known.
    metadata.targetApp = QString(QChar(0xD83C));
    metadata.targetAppPid = -1;
    EXPECT_NO_THROW(PendingAudioMetadata::decode(metadata.encode()));
}

TEST(PendingAudioMetadata, RejectsWhatIsNone) {
    const auto with = [](const QByteArray& fields) {
        return R"({"id":"a","createdAt":"2026-05-04T10:11:12.013Z")" + fields + "}";
    };
    EXPECT_NO_THROW(PendingAudioMetadata::decode(with("")));
    EXPECT_NO_THROW(PendingAudioMetadata::decode(with(R"(,"completedAt":null,"unknown":[1])")));
    QByteArrayList cases{QByteArray(100'000, '['), "", "{", "[]", "null", "\"a\"", "\xFF\xFE", R"({"id":"a"})"};
    for (const auto* const fields :
         {R"("createdAt":"2026-05-04T10:11:12.013Z")", R"("id":7,"createdAt":"2026-05-04T10:11:12.013Z")",
          R"("id":"a","createdAt":"yesterday")", R"("id":"a","createdAt":1)",
          R"("id":"a","createdAt":"-4000-05-04T10:11:12.013Z")"})
        cases << "{" + QByteArray(fields) + "}";
    for (const auto* const field : {R"("durationMs":-1)", R"("durationMs":"1")", R"("durationMs":1.5)",
                                    R"("chunkCount":99999999999)", R"("totalBytes":18446744073709551615)",
                                    R"("userId":{})", R"("completedAt":true)", R"("emptyResultCount":[])"})
        cases << with(QByteArray(",") + field);
    for (const auto& json : cases)
        EXPECT_THROW(PendingAudioMetadata::decode(json), std::runtime_error) << json.left(100).toStdString();
}

TEST(PendingAudioFiles, NoIdLeadsOutOfTheFolder) {
    const RecordingsFolder folder;
    folder.write(u"good.pcm"_qs, audio);
    for (const auto* const bad : {"../secret", "..", ".", "a/b", "/etc/passwd", "a/../../b", "", ".hidden", "a..b",
                                  "a b", "a\nb", "\xC3\xA4"}) {
        const auto id = QString::fromUtf8(bad);
        EXPECT_THROW(pendingAudioFiles::audioPath(id), FileError) << bad;
        EXPECT_THROW(pendingAudioFiles::readMetadata(id), FileError) << bad;
        EXPECT_THROW(AudioFileWriter(id).startWriting(), FileError) << bad;
        EXPECT_FALSE(pendingAudioFiles::audioFilesExist(id)) << bad;
        EXPECT_FALSE(pendingAudioFiles::deleteFiles(id)) << bad;
        EXPECT_FALSE(pendingAudioFiles::markCompleted(id)) << bad;
        auto metadata = RecordingsFolder::metadata(id, now);
        EXPECT_THROW(pendingAudioFiles::writeMetadata(metadata), FileError) << bad;
        // The same as a meeting's second channel: the meeting remains, without it.
        metadata = RecordingsFolder::metadata(u"good"_qs, now);
        metadata.systemAudioId = id;
        pendingAudioFiles::writeMetadata(metadata);
        const auto listed = pendingAudioFiles::listPendingRecordings();
        ASSERT_EQ(ids(listed), QStringList(u"good"_qs));
        EXPECT_EQ(listed.front().systemAudioId, std::nullopt) << bad;
    }
    EXPECT_FALSE(pendingAudioFiles::isRecordingId(QString(129, u'a')));
    EXPECT_FALSE(pendingAudioFiles::isRecordingId(u"a"_qs + QChar(0) + u'b'));
    EXPECT_TRUE(pendingAudioFiles::isRecordingId(QUuid::createUuid().toString(QUuid::WithoutBraces)));
}

TEST(PendingAudioFiles, ListsWhatCanBeUsedTheOldestFirst) {
    const RecordingsFolder folder;
    EXPECT_TRUE(pendingAudioFiles::listPendingRecordings().empty()) << "no folder yet";
    folder.add(RecordingsFolder::metadata(u"young"_qs, now), audio);
    folder.add(RecordingsFolder::metadata(u"old"_qs, now.addDays(-3)), audio);
    auto done = RecordingsFolder::metadata(u"done"_qs, now.addDays(-9));
    done.completedAt = now;
    folder.add(done, audio);

    folder.write(u"broken.json"_qs, "{");
    folder.write(u"broken.pcm"_qs, audio);
    folder.write(u"huge.json"_qs, QByteArray(1'000'000, ' '));
    folder.write(u"huge.pcm"_qs, audio);
    pendingAudioFiles::writeMetadata(RecordingsFolder::metadata(u"gone"_qs, now));
    folder.add(RecordingsFolder::metadata(u"silent"_qs, now), {});
    folder.add(RecordingsFolder::metadata(u"half"_qs, now), "x");
    // Names another recording's audio.
    folder.write(u"impostor.json"_qs, folder.read(u"old.json"_qs));
    folder.write(u"impostor.pcm"_qs, audio);
    // Audio that is a link to another file, a pipe that would block its reader, or a folder.
    folder.write(u"link.json"_qs, RecordingsFolder::metadata(u"link"_qs, now).encode());
    writeFile(folder.outside(u"private.txt"_qs), "secret");
    ASSERT_TRUE(QFile::link(folder.outside(u"private.txt"_qs), folder.path(u"link.pcm"_qs)));
    ASSERT_EQ(::mkfifo(QFile::encodeName(folder.path(u"pipe.json"_qs)).constData(), 0600), 0);
    QDir().mkpath(folder.path(u"folder.json"_qs));

    EXPECT_EQ(ids(pendingAudioFiles::listPendingRecordings()), QStringList({u"old"_qs, u"young"_qs}));
    EXPECT_EQ(ids(pendingAudioFiles::listRecordings()), QStringList({u"done"_qs, u"old"_qs, u"young"_qs}));
    QStringList stray;
    for (const auto& found : pendingAudioFiles::listAudioWithoutMetadata()) {
        stray << found.recordingId;
        EXPECT_EQ(found.bytes, audio.size());
    }
    EXPECT_EQ(stray, QStringList({u"broken"_qs, u"huge"_qs, u"impostor"_qs}));
}

TEST(PendingAudioFiles, MarksCountsAndDeletes) {
    const RecordingsFolder folder;
    const auto id = u"meeting"_qs;
    auto metadata = RecordingsFolder::metadata(id, now);
    metadata.systemAudioId = u"meeting-system"_qs;
    folder.add(metadata, audio);
    folder.write(u"meeting-system.pcm"_qs, audio);
    EXPECT_TRUE(pendingAudioFiles::listAudioWithoutMetadata().empty()) << "the second channel is part of the meeting";

    EXPECT_EQ(pendingAudioFiles::diskEmptyResultCount(id), 0);
    EXPECT_FALSE(pendingAudioFiles::incrementDiskEmptyResultCount(id));
    EXPECT_TRUE(pendingAudioFiles::incrementDiskEmptyResultCount(id));
    EXPECT_EQ(pendingAudioFiles::diskEmptyResultCount(id), 2);

    EXPECT_TRUE(pendingAudioFiles::markCompleted(id, now.addSecs(9)));
    EXPECT_EQ(pendingAudioFiles::readMetadata(id).completedAt, now.addSecs(9));
    EXPECT_TRUE(pendingAudioFiles::deleteFiles(id));
    EXPECT_EQ(folder.names(), QStringList());
    EXPECT_FALSE(pendingAudioFiles::markCompleted(id));

    // Audio whose metadata never came is kept as well once its text is there.
    folder.write(u"bare.pcm"_qs, QByteArray(32'000, '\0'));
    EXPECT_TRUE(pendingAudioFiles::markCompleted(u"bare"_qs, now));
    EXPECT_EQ(pendingAudioFiles::readMetadata(u"bare"_qs).durationMs, 1000);
    // A meeting that names another recording's audio as its own does not take it along.
    metadata.systemAudioId = u"bare"_qs;
    folder.add(metadata, audio);
    EXPECT_TRUE(pendingAudioFiles::deleteFiles(id));
    EXPECT_TRUE(pendingAudioFiles::audioFilesExist(u"bare"_qs));
}

TEST(PendingAudioFiles, CleanupDeletesOnlyWhatHasWaitedTooLong) {
    const RecordingsFolder folder;
    const auto add = [&](const QString& id, const QDateTime& createdAt, bool completed) {
        auto metadata = RecordingsFolder::metadata(id, createdAt);
        if (completed)
            metadata.completedAt = createdAt;
        folder.add(metadata, audio);
    };
    add(u"expired"_qs, now.addDays(-8), false);
    add(u"retained"_qs, now.addDays(-8), true);
    add(u"last-moment"_qs, now.addSecs(-604'800), false);
    add(u"from-the-future"_qs, now.addDays(400), false);
    add(u"in-hand"_qs, now.addDays(-8), false);
    const RecordingsInUse::Lease lease(u"in-hand"_qs, RecordingsInUse::Purpose::writing);
    EXPECT_EQ(pendingAudioFiles::cleanupOldPendingFiles(now), 1);
    EXPECT_FALSE(pendingAudioFiles::audioFilesExist(u"expired"_qs));
    EXPECT_EQ(pendingAudioFiles::listRecordings().size(), 4);
}

TEST(PendingAudioFiles, StaleFilesAreThoseThatBelongToNoAudio) {
    const RecordingsFolder folder;
    folder.add(RecordingsFolder::metadata(u"good"_qs, now), audio);
    folder.write(u"empty.pcm"_qs, {});
    folder.write(u"alone.json"_qs, "{}");
    folder.write(u"good.json.new"_qs, "{");
    folder.write(u"good_retranscribe.wav"_qs, "RIFF");
    folder.write(u"notes.txt"_qs, "not ours");
    AudioFileWriter writer(u"just-begun"_qs);
    writer.startWriting();
    EXPECT_EQ(pendingAudioFiles::listStaleFiles(),
              QStringList({u"alone.json"_qs, u"empty.pcm"_qs, u"good.json.new"_qs, u"good_retranscribe.wav"_qs}));
}

} // namespace
} // namespace quillo::test
