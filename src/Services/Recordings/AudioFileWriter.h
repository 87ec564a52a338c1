#pragma once

#include "Services/Recordings/PendingAudioFiles.h"
#include "Services/Recordings/RecordingsInUse.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

namespace quillo {

/// Writes one recording's audio to disk while it is captured: created, writing (`startWriting`), stopped (`finalize` or
/// a write error). Main thread.
///
/// Each chunk is with the kernel when `writeChunk` returns, so that it survives whatever happens to the process, and on
/// the disk within about a second. The disk is only waited for on the serial queue "com.quillo.audiofilewriter".
class AudioFileWriter {
public:
    explicit AudioFileWriter(QString recordingId);
    ~AudioFileWriter();
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    /// Called once, on the main thread, when the disk refuses: a sentence for the user with the cause and the next
    /// step. What was written until then stays, cut to whole samples. Not called after `finalize`.
    std::function<void(QString reason)> onFailure;

    /// Makes the folder and the file, and marks the recording as in use. Throws FileError.
    void startWriting();
    /// Appends; false once writing has stopped, from the chunk that met the error on.
    bool writeChunk(const QByteArray& data);
    /// Stops writing and releases the recording; the disk catches up in the background. May be called again.
    void finalize();
    /// Replaces the recording's metadata at once; the disk catches up in the background. Throws FileError.
    void saveMetadata(const PendingAudioMetadata& metadata);
    /// Removes this recording's files.
    void deleteFiles();

    [[nodiscard]] const QString& recordingId() const { return m_recordingId; }
    [[nodiscard]] int chunkCount() const { return m_chunkCount; }
    [[nodiscard]] qint64 totalBytes() const { return m_totalBytes; }
    [[nodiscard]] bool isWriting() const { return m_file != nullptr; }
    /// How often the disk has confirmed what was written. For tests and figures.
    [[nodiscard]] int diskSyncs() const;

    // The files of all recordings; see Services/PendingAudioFiles.h.
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
    void stop(const QString& cause);
    static void synchronize(const std::shared_ptr<File>& file);

    QString m_recordingId;
    std::shared_ptr<File> m_file; ///< while writing; shared with the queue
    RecordingsInUse::Lease m_lease;
    int m_chunkCount = 0;
    qint64 m_totalBytes = 0;
    std::shared_ptr<std::atomic<int>> m_diskSyncs;
};

} // namespace quillo
