#include "Services/Recordings/AudioFileWriter.h"

#include "Concurrency/Executor.h"
#include "Core/AudioChunk.h"
#include "Core/Log.h"
#include "Services/Recordings/PCMFiles.h"

#include <QTimer>

#include <cerrno>
#include <chrono>

#include <sys/stat.h>
#include <unistd.h>

namespace quillo {

namespace {

using namespace std::chrono_literals;

/// The delay from a write to the request to synchronise it; with the time that the disk needs, about a second.
constexpr auto syncDelay = 800ms;

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(QStringLiteral("[AudioFileWriter] ") + message, level, QStringLiteral("AudioFileWriter"));
}

/// The queue on which all writers wait for the disk; each needs it for a few milliseconds a second.
SerialExecutor& diskQueue() {
    // Never destroyed: a writer that ends with the process may still post work to it.
    static auto* const queue = new SerialExecutor(QStringLiteral("com.quillo.audiofilewriter"));
    return *queue;
}

} // namespace

// The caller writes a chunk, not the queue. The write copies 3,200 bytes to the page cache in some microseconds,
// whereas a chunk that waits in a queue behind a slow disk is lost if the process is killed. Only the slow part, the
// disk's confirmation, is left to the queue.
struct AudioFileWriter::File {
    Descriptor descriptor;
    std::atomic<bool> isSyncDue = false;
    std::shared_ptr<std::atomic<int>> diskSyncs;
    AudioFileWriter* writer = nullptr; ///< main thread; null once the writer has finished or gone
};

AudioFileWriter::AudioFileWriter(QString recordingId)
    : m_recordingId(std::move(recordingId)), m_diskSyncs(std::make_shared<std::atomic<int>>(0)) {}

AudioFileWriter::~AudioFileWriter() { finalize(); }

void AudioFileWriter::startWriting() {
    const auto path = pendingAudioFiles::audioPath(m_recordingId);
    RecordingsInUse::Lease lease(m_recordingId, RecordingsInUse::Purpose::writing);
    privateFile::makeFolder(pendingAudioFiles::directory());
    auto file = std::make_shared<File>();
    file->descriptor = privateFile::openForAppending(path);
    file->diskSyncs = m_diskSyncs;
    file->writer = this;
    EventExecutor::main(); // made here, on its thread, before the queue posts to it
    m_file = std::move(file);
    m_lease = std::move(lease);
}

bool AudioFileWriter::writeChunk(const QByteArray& data) {
    if (!m_file)
        return false;
    const int error = privateFile::writeAll(m_file->descriptor.get(), data.constData(), data.size(), m_totalBytes);
    if (error != 0) {
        stop(FileError(privateFile::describe(error), FileError::causeOf(error)));
        return false;
    }
    ++m_chunkCount;
    if (!m_file->isSyncDue.exchange(true))
        diskQueue().post([file = m_file] { QTimer::singleShot(syncDelay, [file] { synchronize(file); }); });
    return true;
}

void AudioFileWriter::synchronize(const std::shared_ptr<File>& file) {
    if (!file->descriptor)
        return; // finished in the meantime
    // Clear it first: later writes request another synchronisation.
    file->isSyncDue = false;
    struct stat info {};
    std::optional<FileError> cause;
    if (::fdatasync(file->descriptor.get()) != 0)
        cause.emplace(privateFile::describe(errno), FileError::causeOf(errno));
    else if (::fstat(file->descriptor.get(), &info) == 0 && info.st_nlink == 0)
        cause.emplace(QStringLiteral("its file or folder was removed while it was being written; the next recording "
                                     "makes it again"),
                      FileError::Cause::removed);
    else
        ++*file->diskSyncs;
    if (cause)
        EventExecutor::main().post([file, cause] {
            if (file->writer)
                file->writer->stop(*cause);
        });
}

void AudioFileWriter::stop(const FileError& error) {
    const auto file = std::exchange(m_file, nullptr);
    file->writer = nullptr;
    // An interrupted write may have left half a sample.
    if (m_totalBytes % AudioFormat::bytesPerSample != 0) {
        const auto whole = m_totalBytes - m_totalBytes % AudioFormat::bytesPerSample;
        // Readers ignore half a sample too, so a failure here does no harm.
        if (::ftruncate(file->descriptor.get(), whole) == 0)
            m_totalBytes = whole;
    }
    diskQueue().post([file] { ::fdatasync(file->descriptor.get()); });
    log(QStringLiteral("❌ Writing the audio of %1 failed: %2 (after %3 bytes). No more chunks will be written.")
            .arg(m_recordingId, error.message())
            .arg(m_totalBytes),
        LogLevel::error);
    // The callback may destroy this writer.
    if (const auto callback = onFailure)
        callback(error);
}

void AudioFileWriter::finalize() {
    if (const auto file = std::exchange(m_file, nullptr)) {
        file->writer = nullptr;
        diskQueue().post([file] {
            if (::fdatasync(file->descriptor.get()) == 0)
                ++*file->diskSyncs;
            file->descriptor.reset();
        });
        log(QStringLiteral("📁 AudioFileWriter finalized: %1 chunks=%2 bytes=%3")
                .arg(m_recordingId)
                .arg(m_chunkCount)
                .arg(m_totalBytes));
    }
    m_lease.reset();
}

void AudioFileWriter::saveMetadata(const PendingAudioMetadata& metadata) {
    // A busy disk takes hundreds of milliseconds, which would block the hotkeys on the main thread. If the machine
    // loses power before the disk is synchronised, the audio is there and a recovery reconstructs the metadata.
    pendingAudioFiles::writeMetadata(metadata);
    diskQueue().post([path = pendingAudioFiles::metadataPath(metadata.id)] {
        try {
            ::fdatasync(privateFile::openForReading(path).get());
        } catch (const FileError&) {
            return; // replaced or removed since
        }
    });
}

void AudioFileWriter::deleteFiles() {
    finalize();
    pendingAudioFiles::deleteFiles(m_recordingId);
}

int AudioFileWriter::diskSyncs() const { return *m_diskSyncs; }

QByteArray AudioFileWriter::mixPCMStreams(const QByteArray& micData, const QByteArray& systemData) {
    return pcm::mixPCMStreams(micData, systemData);
}

} // namespace quillo
