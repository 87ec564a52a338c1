#pragma once

#include "Core/AudioChunk.h"
#include "Core/UserMessage.h"
#include "Services/Recordings/AudioFileWriter.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace quillo {

/// The copy of one capture on disk, written as the audio arrives. If the disk fails, only the copy is lost, not the
/// dictation: the audio is still counted. Main thread; no call throws.
class AudioBackup {
public:
    /// `recordingId` names the files.
    explicit AudioBackup(QString recordingId) : m_recordingId(std::move(recordingId)) {}

    /// Creates the file. `onProblem` is called when the disk fails, now or later.
    void begin(std::function<void(UserMessage)> onProblem);
    void append(const AudioChunk& chunk);
    /// Call after the last chunk.
    void finalize();
    void deleteFiles();
    /// Writes `metadata` beside the audio, with the number of chunks and bytes written.
    void saveMetadata(PendingAudioMetadata metadata);

    [[nodiscard]] const QString& recordingId() const { return m_recordingId; }
    /// Whether any audio arrived, written or not.
    [[nodiscard]] bool hasAudio() const { return m_bytes > 0; }
    [[nodiscard]] bool isOnDisk() const { return bytesOnDisk() > 0; }
    [[nodiscard]] int chunkCount() const { return m_chunks; }
    [[nodiscard]] int chunksOnDisk() const { return m_writer ? m_writer->chunkCount() : 0; }
    [[nodiscard]] int64_t bytesOnDisk() const { return m_writer ? m_writer->totalBytes() : 0; }
    [[nodiscard]] int64_t durationMs() const {
        return m_bytes * 1000 / static_cast<int64_t>(AudioFormat::sampleRate * AudioFormat::bytesPerSample);
    }

private:
    QString m_recordingId;
    std::unique_ptr<AudioFileWriter> m_writer;
    int64_t m_bytes = 0;
    int m_chunks = 0;
};

/// The copies of all captures of a dictation, with one end for all. The first is the microphone's, whose metadata name
/// the second, the system's audio. Does not own them. Main thread; no call throws.
class AudioBackups {
public:
    /// At least one.
    explicit AudioBackups(std::vector<AudioBackup*> copies) : m_copies(std::move(copies)) {}

    void begin(const std::function<void(UserMessage)>& onProblem);
    void finalize();
    void deleteFiles();
    void saveMetadata(PendingAudioMetadata metadata);

    /// Whether any audio arrived, written or not.
    [[nodiscard]] bool hasAudio() const;
    [[nodiscard]] bool isOnDisk() const;
    /// Of all copies together.
    [[nodiscard]] int chunkCount() const;
    /// Of the longest copy.
    [[nodiscard]] int64_t durationMs() const;

private:
    std::vector<AudioBackup*> m_copies;
};

} // namespace quillo
