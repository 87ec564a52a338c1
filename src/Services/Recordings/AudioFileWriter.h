#pragma once

#include "Services/Recordings/PendingAudioFiles.h"
#include "Services/Recordings/RecordingsInUse.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

namespace quillo {

/// Writes one recording's audio to disk during the capture. Its states are created, writing (`startWriting`) and
/// stopped (`finalize` or a write error). Main thread.
///
/// When `writeChunk` returns, the kernel has the chunk, so that it survives the end of the process; it is on the disk
/// within about a second. Only the serial queue "com.quillo.audiofilewriter" waits for the disk.
class AudioFileWriter {
public:
    explicit AudioFileWriter(QString recordingId);
    ~AudioFileWriter();
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    /// Called once, on the main thread, when the disk refuses. What was written until then stays, cut to whole samples.
    /// Not called after `finalize`.
    std::function<void(const FileError& error)> onFailure;

    /// Creates the folder and the file, and marks the recording as in use. Throws FileError.
    void startWriting();
    /// Appends a chunk; false for the chunk that failed and all later ones.
    bool writeChunk(const QByteArray& data);
    /// Stops writing and releases the recording; the disk is synchronised in the background. Idempotent.
    void finalize();
    /// Replaces the recording's metadata atomically; the disk is synchronised in the background. Throws FileError.
    void saveMetadata(const PendingAudioMetadata& metadata);
    /// Removes this recording's files.
    void deleteFiles();

    [[nodiscard]] const QString& recordingId() const { return m_recordingId; }
    [[nodiscard]] int chunkCount() const { return m_chunkCount; }
    [[nodiscard]] qint64 totalBytes() const { return m_totalBytes; }
    /// How often the disk has confirmed written data. For tests and benchmarks.
    [[nodiscard]] int diskSyncs() const;

    // The files of all recordings; see PendingAudioFiles.h.
    static QString pendingAudioDirectory() { return pendingAudioFiles::directory(); }
    static bool audioFilesExist(const QString& recordingId) { return pendingAudioFiles::audioFilesExist(recordingId); }
    static std::vector<PendingAudioMetadata> listPendingRecordings() {
        return pendingAudioFiles::listPendingRecordings();
    }
    static std::vector<StrayAudio> listAudioWithoutMetadata() { return pendingAudioFiles::listAudioWithoutMetadata(); }
    static bool markCompleted(const QString& recordingId) { return pendingAudioFiles::markCompleted(recordingId); }
    static bool incrementDiskEmptyResultCount(const QString& recordingId) {
        return pendingAudioFiles::incrementDiskEmptyResultCount(recordingId);
    }
    static int diskEmptyResultCount(const QString& recordingId) {
        return pendingAudioFiles::diskEmptyResultCount(recordingId);
    }
    static bool deleteFiles(const QString& recordingId) { return pendingAudioFiles::deleteFiles(recordingId); }
    static int cleanupOldPendingFiles() { return pendingAudioFiles::cleanupOldPendingFiles(); }
    static QByteArray mixPCMStreams(const QByteArray& micData, const QByteArray& systemData);
    /// Whether a writer of this process has the recording open.
    static bool isActive(const QString& recordingId) {
        return RecordingsInUse::contains(recordingId, RecordingsInUse::Purpose::writing);
    }

private:
    struct File;
    void stop(const FileError& error);
    static void synchronize(const std::shared_ptr<File>& file);

    QString m_recordingId;
    std::shared_ptr<File> m_file; ///< while writing; shared with the queue
    RecordingsInUse::Lease m_lease;
    int m_chunkCount = 0;
    qint64 m_totalBytes = 0;
    std::shared_ptr<std::atomic<int>> m_diskSyncs;
};

} // namespace quillo
