#include "Features/Recording/AudioBackup.h"

#include "Features/ErrorTexts/ErrorTexts.h"
#include "Features/Recording/RunLog.h"

#include <algorithm>

namespace quillo {

void AudioBackup::begin(std::function<void(UserMessage)> onProblem) {
    m_writer = std::make_unique<AudioFileWriter>(m_recordingId);
    m_writer->onFailure = [onProblem](const FileError& error) { onProblem(errorTexts::ofSafetyCopy(error.cause())); };
    try {
        m_writer->startWriting();
        recordingLog(QStringLiteral("📁 Audio file writer started: %1").arg(m_recordingId));
    } catch (const FileError& error) {
        recordingLog(QStringLiteral("⚠️ Failed to start audio file writer: %1. Recording will proceed without disk "
                                    "backup. ")
                         .arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
        m_writer.reset();
        onProblem(errorTexts::ofSafetyCopy(error.cause()));
    }
}

void AudioBackup::append(const AudioChunk& chunk) {
    m_bytes += chunk.data.size();
    ++m_chunks;
    if (m_writer)
        (void)m_writer->writeChunk(chunk.data);
}

void AudioBackup::finalize() {
    if (m_writer)
        m_writer->finalize();
}

void AudioBackup::deleteFiles() {
    if (m_writer)
        m_writer->deleteFiles();
}

void AudioBackup::saveMetadata(PendingAudioMetadata metadata) {
    if (!m_writer)
        return;
    metadata.id = m_recordingId;
    metadata.durationMs = durationMs();
    metadata.chunkCount = chunksOnDisk();
    metadata.totalBytes = bytesOnDisk();
    try {
        m_writer->saveMetadata(metadata);
    } catch (const std::exception& error) {
        // The audio alone is enough for a recovery; only the metadata is lost.
        recordingLog(
            QStringLiteral("⚠️ The recording's metadata could not be written: %1").arg(QString::fromUtf8(error.what())),
            LogLevel::warn);
    }
}

void AudioBackups::begin(const std::function<void(UserMessage)>& onProblem) {
    for (auto* copy : m_copies)
        copy->begin(onProblem);
}

void AudioBackups::finalize() {
    for (auto* copy : m_copies)
        copy->finalize();
}

void AudioBackups::deleteFiles() {
    for (auto* copy : m_copies)
        copy->deleteFiles();
}

void AudioBackups::saveMetadata(PendingAudioMetadata metadata) {
    if (m_copies.size() > 1 && m_copies[1]->isOnDisk()) {
        const auto& system = *m_copies[1];
        metadata.systemAudioId = system.recordingId();
        metadata.systemAudioChunkCount = system.chunksOnDisk();
        metadata.systemAudioTotalBytes = system.bytesOnDisk();
    }
    m_copies.front()->saveMetadata(std::move(metadata));
}

bool AudioBackups::hasAudio() const {
    return std::ranges::any_of(m_copies, [](const auto* copy) { return copy->hasAudio(); });
}

bool AudioBackups::isOnDisk() const {
    return std::ranges::any_of(m_copies, [](const auto* copy) { return copy->isOnDisk(); });
}

int AudioBackups::chunkCount() const {
    int sum = 0;
    for (const auto* copy : m_copies)
        sum += copy->chunkCount();
    return sum;
}

int64_t AudioBackups::durationMs() const {
    int64_t longest = 0;
    for (const auto* copy : m_copies)
        longest = std::max(longest, copy->durationMs());
    return longest;
}

} // namespace quillo
