#include "Services/Recordings/PendingAudioFiles.h"

#include "Services/Recordings/RecordingsFolder.h"

#include <sys/stat.h>
#include <unistd.h>

namespace quillo::test {
namespace {

const QDateTime now = QDateTime::fromString(QStringLiteral("2026-05-04T10:11:12.013Z"), Qt::ISODateWithMs);
const QByteArray audio(320, '\x11');

QStringList ids(const std::vector<PendingAudioMetadata>& recordings) {
    QStringList found;
    for (const auto& metadata : recordings)
        found << metadata.id;
    return found;
}

TEST(PendingAudioMetadata, IsWrittenInTheFixedOrderAndReadBack) {
    auto metadata = RecordingsFolder::metadata(QStringLiteral("a-1"), now);
    metadata.durationMs = 60'000;
    metadata.targetApp = QString::fromUtf8("Ünïcode \"editor\" \xF0\x9F\x8E\x99");
    metadata.targetAppPid = 4711;
    metadata.chunkCount = 600;
    metadata.totalBytes = 460'800'000'000;
    const auto bare = metadata.encode();
    EXPECT_EQ(PendingAudioMetadata::decode(bare), metadata);
    EXPECT_FALSE(bare.contains("completedAt"));

    metadata.systemAudioId = QStringLiteral("a-1-system");
    metadata.systemAudioChunkCount = 5;
    metadata.systemAudioTotalBytes = 16'000;
    metadata.completedAt = now.addSecs(5);
    metadata.clientRecordingId = QStringLiteral("client");
    metadata.emptyResultCount = 1;
    const auto full = metadata.encode();
    EXPECT_EQ(PendingAudioMetadata::decode(full), metadata);
    qsizetype last = 0;
    for (const auto* const key : {"id",
                                  "createdAt",
                                  "durationMs",
                                  "primaryLanguage",
                                  "secondaryLanguage",
                                  "targetApp",
                                  "targetAppPid",
                                  "userId",
                                  "sampleRate",
                                  "channels",
                                  "bitDepth",
                                  "chunkCount",
                                  "totalBytes",
                                  "reason",
                                  "systemAudioId",
                                  "systemAudioChunkCount",
                                  "systemAudioTotalBytes",
                                  "completedAt",
                                  "clientRecordingId",
                                  "emptyResultCount"}) {
        const auto position = full.indexOf('"' + QByteArray(key) + '"');
        EXPECT_GT(position, last) << key;
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
    for (const auto& json : {QByteArray(),
                             QByteArray("{"),
                             QByteArray("[]"),
                             QByteArray("null"),
                             QByteArray("\"a\""),
                             QByteArray(R"({"createdAt":"2026-05-04T10:11:12.013Z"})"),
                             QByteArray(R"({"id":"a"})"),
                             QByteArray(R"({"id":7,"createdAt":"2026-05-04T10:11:12.013Z"})"),
                             QByteArray(R"({"id":"a","createdAt":"yesterday"})"),
                             QByteArray(R"({"id":"a","createdAt":1})"),
                             QByteArray(R"({"id":"a","createdAt":"-4000-05-04T10:11:12.013Z"})"),
                             QByteArray("\xFF\xFE"),
                             with(R"(,"durationMs":-1)"),
                             with(R"(,"durationMs":"1")"),
                             with(R"(,"durationMs":1.5)"),
                             with(R"(,"chunkCount":99999999999)"),
                             with(R"(,"totalBytes":18446744073709551615)"),
                             with(R"(,"userId":{})"),
                             with(R"(,"completedAt":true)"),
                             with(R"(,"emptyResultCount":[])"),
                             QByteArray(100'000, '[')})
        EXPECT_THROW(PendingAudioMetadata::decode(json), std::runtime_error) << json.left(100).toStdString();
}

TEST(PendingAudioFiles, NoIdLeadsOutOfTheFolder) {
    const RecordingsFolder folder;
    folder.write(QStringLiteral("good.pcm"), audio);
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
        metadata = RecordingsFolder::metadata(QStringLiteral("good"), now);
        metadata.systemAudioId = id;
        pendingAudioFiles::writeMetadata(metadata);
        const auto listed = pendingAudioFiles::listPendingRecordings();
        ASSERT_EQ(ids(listed), QStringList(QStringLiteral("good")));
        EXPECT_EQ(listed.front().systemAudioId, std::nullopt) << bad;
    }
    EXPECT_FALSE(pendingAudioFiles::isRecordingId(QString(129, u'a')));
    EXPECT_FALSE(pendingAudioFiles::isRecordingId(QStringLiteral("a") + QChar(0) + u'b'));
    EXPECT_TRUE(pendingAudioFiles::isRecordingId(QUuid::createUuid().toString(QUuid::WithoutBraces)));
}

TEST(PendingAudioFiles, ListsWhatCanBeUsedTheOldestFirst) {
    const RecordingsFolder folder;
    EXPECT_TRUE(pendingAudioFiles::listPendingRecordings().empty()) << "no folder yet";
    folder.add(RecordingsFolder::metadata(QStringLiteral("young"), now), audio);
    folder.add(RecordingsFolder::metadata(QStringLiteral("old"), now.addDays(-3)), audio);
    auto done = RecordingsFolder::metadata(QStringLiteral("done"), now.addDays(-9));
    done.completedAt = now;
    folder.add(done, audio);

    folder.write(QStringLiteral("broken.json"), "{");
    folder.write(QStringLiteral("broken.pcm"), audio);
    folder.write(QStringLiteral("huge.json"), QByteArray(1'000'000, ' '));
    folder.write(QStringLiteral("huge.pcm"), audio);
    pendingAudioFiles::writeMetadata(RecordingsFolder::metadata(QStringLiteral("gone"), now));
    folder.add(RecordingsFolder::metadata(QStringLiteral("silent"), now), {});
    folder.add(RecordingsFolder::metadata(QStringLiteral("half"), now), "x");
    // Names another recording's audio.
    folder.write(QStringLiteral("impostor.json"), folder.read(QStringLiteral("old.json")));
    folder.write(QStringLiteral("impostor.pcm"), audio);
    // Audio that is a link to another file, a pipe that would block its reader, or a folder.
    folder.write(QStringLiteral("link.json"), RecordingsFolder::metadata(QStringLiteral("link"), now).encode());
    QFile elsewhere(folder.outside(QStringLiteral("private.txt")));
    ASSERT_TRUE(elsewhere.open(QIODevice::WriteOnly) && elsewhere.write("secret") == 6 && elsewhere.flush());
    ASSERT_TRUE(QFile::link(elsewhere.fileName(), folder.path(QStringLiteral("link.pcm"))));
    ASSERT_EQ(::mkfifo(QFile::encodeName(folder.path(QStringLiteral("pipe.json"))).constData(), 0600), 0);
    QDir().mkpath(folder.path(QStringLiteral("folder.json")));

    EXPECT_EQ(ids(pendingAudioFiles::listPendingRecordings()),
              QStringList({QStringLiteral("old"), QStringLiteral("young")}));
    EXPECT_EQ(ids(pendingAudioFiles::listRecordings()),
              QStringList({QStringLiteral("done"), QStringLiteral("old"), QStringLiteral("young")}));
    QStringList stray;
    for (const auto& found : pendingAudioFiles::listAudioWithoutMetadata()) {
        stray << found.recordingId;
        EXPECT_EQ(found.bytes, audio.size());
    }
    EXPECT_EQ(stray, QStringList({QStringLiteral("broken"), QStringLiteral("huge"), QStringLiteral("impostor")}));
}

TEST(PendingAudioFiles, MarksCountsAndDeletes) {
    const RecordingsFolder folder;
    const auto id = QStringLiteral("meeting");
    auto metadata = RecordingsFolder::metadata(id, now);
    metadata.systemAudioId = QStringLiteral("meeting-system");
    folder.add(metadata, audio);
    folder.write(QStringLiteral("meeting-system.pcm"), audio);
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
    folder.write(QStringLiteral("bare.pcm"), QByteArray(32'000, '\0'));
    EXPECT_TRUE(pendingAudioFiles::markCompleted(QStringLiteral("bare"), now));
    EXPECT_EQ(pendingAudioFiles::readMetadata(QStringLiteral("bare")).durationMs, 1000);
    // A meeting that names another recording's audio as its own does not take it along.
    metadata.systemAudioId = QStringLiteral("bare");
    folder.add(metadata, audio);
    EXPECT_TRUE(pendingAudioFiles::deleteFiles(id));
    EXPECT_TRUE(pendingAudioFiles::audioFilesExist(QStringLiteral("bare")));
}

TEST(PendingAudioFiles, CleanupDeletesOnlyWhatHasWaitedTooLong) {
    const RecordingsFolder folder;
    const auto add = [&](const QString& id, const QDateTime& createdAt, bool completed) {
        auto metadata = RecordingsFolder::metadata(id, createdAt);
        if (completed)
            metadata.completedAt = createdAt;
        folder.add(metadata, audio);
    };
    add(QStringLiteral("expired"), now.addDays(-8), false);
    add(QStringLiteral("retained"), now.addDays(-8), true);
    add(QStringLiteral("last-moment"), now.addSecs(-604'800), false);
    add(QStringLiteral("from-the-future"), now.addDays(400), false);
    add(QStringLiteral("in-hand"), now.addDays(-8), false);
    const RecordingsInUse::Lease lease(QStringLiteral("in-hand"), RecordingsInUse::Purpose::writing);
    EXPECT_EQ(pendingAudioFiles::cleanupOldPendingFiles(now), 1);
    EXPECT_FALSE(pendingAudioFiles::audioFilesExist(QStringLiteral("expired")));
    EXPECT_EQ(pendingAudioFiles::listRecordings().size(), 4);
}

TEST(PendingAudioFiles, StaleFilesAreThoseThatBelongToNoAudio) {
    const RecordingsFolder folder;
    folder.add(RecordingsFolder::metadata(QStringLiteral("good"), now), audio);
    folder.write(QStringLiteral("empty.pcm"), {});
    folder.write(QStringLiteral("alone.json"), "{}");
    folder.write(QStringLiteral("good.json.new"), "{");
    folder.write(QStringLiteral("good_retranscribe.wav"), "RIFF");
    folder.write(QStringLiteral("notes.txt"), "not ours");
    AudioFileWriter writer(QStringLiteral("just-begun"));
    writer.startWriting();
    EXPECT_EQ(pendingAudioFiles::listStaleFiles(),
              QStringList({QStringLiteral("alone.json"), QStringLiteral("empty.pcm"), QStringLiteral("good.json.new"),
                           QStringLiteral("good_retranscribe.wav")}));
}

} // namespace
} // namespace quillo::test
