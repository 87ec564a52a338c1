#include "Services/Recordings/AudioFileWriter.h"

#include "Services/Recordings/RecordingsFolder.h"
#include "Support/Async.h"
#include "Support/LargestFile.h"
#include "Support/LogLines.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace quillo::test {
namespace {

const QString recordingId = u"5f7c1c1e-0000-4000-8000-000000000001"_qs;
const QByteArray chunk(3200, '\x21');

TEST(AudioFileWriter, AppendsChunksThatOnlyTheOwnerReads) {
    const RecordingsFolder folder;
    AudioFileWriter writer(recordingId);
    EXPECT_FALSE(writer.writeChunk(chunk)) << "not started";
    writer.startWriting();
    EXPECT_TRUE(AudioFileWriter::isActive(recordingId));
    EXPECT_TRUE(writer.writeChunk(chunk));
    EXPECT_TRUE(writer.writeChunk(QByteArray(100, '\x05')));
    // With the kernel when the call returns.
    EXPECT_EQ(folder.read(recordingId + u".pcm"_qs), chunk + QByteArray(100, '\x05'));
    writer.saveMetadata(RecordingsFolder::metadata(recordingId, QDateTime::currentDateTimeUtc()));
    writer.finalize();
    EXPECT_FALSE(AudioFileWriter::isActive(recordingId));
    EXPECT_FALSE(writer.writeChunk(chunk));
    EXPECT_EQ(writer.chunkCount(), 2);
    EXPECT_EQ(writer.totalBytes(), 3300);

    const auto others =
        QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    EXPECT_EQ(QFile::permissions(folder.path()) & others, 0);
    for (const auto& name : folder.names())
        EXPECT_EQ(QFile::permissions(folder.path(name)) & (others | QFile::ExeOwner), 0) << name.toStdString();
    writer.deleteFiles();
    EXPECT_EQ(folder.names(), QStringList());
}

TEST(AudioFileWriter, TheDiskConfirmsWhileAndAfterWriting) {
    const RecordingsFolder folder;
    AudioFileWriter writer(recordingId);
    writer.startWriting();
    writer.writeChunk(chunk);
    // No further chunk: the tail of a pause reaches the disk as well.
    EXPECT_TRUE(waitUntil([&] { return writer.diskSyncs() == 1; }));
    writer.writeChunk(chunk);
    EXPECT_TRUE(waitUntil([&] { return writer.diskSyncs() == 2; }));
    writer.finalize();
    EXPECT_TRUE(waitUntil([&] { return writer.diskSyncs() == 3; }));
}

TEST(AudioFileWriter, AKilledProcessLosesNoChunk) {
    const RecordingsFolder folder;
    QDir().mkpath(folder.path());
    const auto child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        AudioFileWriter writer(recordingId);
        writer.startWriting();
        for (int i = 0; i < 50; ++i)
            writer.writeChunk(chunk);
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(pendingAudioFiles::audioBytes(recordingId), 50 * chunk.size());
}

TEST(AudioFileWriter, AFullDiskStopsWritingAndKeepsWholeSamples) {
    const RecordingsFolder folder;
    const LogLines log;
    AudioFileWriter writer(recordingId);
    QStringList failures;
    writer.onFailure = [&](const FileError& error) { failures << error.message(); };
    writer.startWriting();
    {
        // The limit cuts the fourth chunk within a sample.
        const LargestFile full(3 * 3200 + 1601);
        EXPECT_TRUE(writer.writeChunk(chunk));
        EXPECT_TRUE(writer.writeChunk(chunk));
        EXPECT_TRUE(writer.writeChunk(chunk));
        EXPECT_FALSE(writer.writeChunk(chunk));
    }
    EXPECT_FALSE(writer.writeChunk(chunk)) << "room again, but there would be a gap";
    EXPECT_EQ(failures.size(), 1);
    EXPECT_TRUE(failures.value(0).contains(u"file size limit"_qs)) << failures.value(0).toStdString();
    EXPECT_EQ(folder.read(recordingId + u".pcm"_qs).size(), 3 * 3200 + 1600);
    EXPECT_EQ(writer.totalBytes(), 3 * 3200 + 1600);
    EXPECT_EQ(log.count(" bytes). No more chunks will be written."), 1) << log.text();
    EXPECT_EQ(log.count("(after 11200 bytes)"), 1) << log.text();
    EXPECT_TRUE(AudioFileWriter::isActive(recordingId)) << "the recording still runs";
}

TEST(AudioFileWriter, AFolderThatVanishesIsNoticed) {
    const RecordingsFolder folder;
    AudioFileWriter writer(recordingId);
    QStringList failures;
    writer.onFailure = [&](const FileError& error) { failures << error.message(); };
    writer.startWriting();
    EXPECT_TRUE(writer.writeChunk(chunk));
    QDir(folder.path()).removeRecursively();
    writer.writeChunk(chunk);
    ASSERT_TRUE(waitUntil([&] { return !failures.isEmpty(); }));
    EXPECT_TRUE(failures.first().contains(u"was removed"_qs)) << failures.first().toStdString();
    EXPECT_FALSE(writer.writeChunk(chunk));
    // The next recording creates it again.
    AudioFileWriter next(u"next"_qs);
    next.startWriting();
    EXPECT_TRUE(next.writeChunk(chunk));
}

TEST(AudioFileWriter, AWriterDestroyedByItsFailureOrBeforeItIsLeftAlone) {
    const RecordingsFolder folder;
    auto writer = std::make_unique<AudioFileWriter>(recordingId);
    writer->onFailure = [&](const FileError& error) {
        writer.reset();
        EXPECT_EQ(error.cause(), FileError::Cause::diskFull);
    };
    writer->startWriting();
    {
        const LargestFile full(10);
        writer->writeChunk(chunk);
    }
    EXPECT_EQ(writer, nullptr);

    int failures = 0;
    writer = std::make_unique<AudioFileWriter>(u"second"_qs);
    writer->onFailure = [&](const FileError&) { ++failures; };
    writer->startWriting();
    writer->writeChunk(chunk);
    QFile::remove(folder.path(u"second.pcm"_qs));
    writer.reset();
    // The queue is in order: once a later file is confirmed, the notice of the earlier one has been posted.
    AudioFileWriter last(u"last"_qs);
    last.startWriting();
    last.writeChunk(chunk);
    EXPECT_TRUE(waitUntil([&] { return last.diskSyncs() == 1; }));
    EventExecutor::main().drain();
    EXPECT_EQ(failures, 0);
}

TEST(AudioFileWriter, AFolderThatCannotBeMadeIsReported) {
    const RecordingsFolder folder;
    QFile inTheWay(folder.outside(u"QuilloSpeech"_qs));
    ASSERT_TRUE(inTheWay.open(QIODevice::WriteOnly));
    AudioFileWriter writer(recordingId);
    EXPECT_THROW(writer.startWriting(), FileError);
    EXPECT_FALSE(AudioFileWriter::isActive(recordingId));
    EXPECT_THROW(writer.saveMetadata(RecordingsFolder::metadata(recordingId, QDateTime::currentDateTimeUtc())),
                 FileError);
}

} // namespace
} // namespace quillo::test
