#include "Services/Recordings/AudioStorageManager.h"

#include "Concurrency/Perform.h"
#include "Core/Log.h"
#include "Services/Recordings/KeptReasons.h"
#include "Services/Recordings/PendingAudioFiles.h"
#include "Services/Recordings/RecordingsInUse.h"
#include "Services/Settings/UserSettings.h"

#include <QDirIterator>
#include <QFileInfo>

namespace quillo {

namespace {

constexpr qint64 megabyte = 1'000'000; // bytes

void log(const QString& message) {
    appLog(QStringLiteral("[AudioStorageManager] ") + message, LogLevel::info, QStringLiteral("AudioStorageManager"));
}

qint64 calculateDirectorySize() {
    qint64 bytes = 0;
    QDirIterator files(pendingAudioFiles::directory(), QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    while (files.hasNext()) {
        files.next();
        bytes += files.fileInfo().size();
    }
    return bytes;
}

/// Retained audio that is not in use, the oldest recording first. Ordered by the time of recording, as in the history,
/// not by that of a later transcription.
std::vector<PendingAudioMetadata> disposable() {
    auto recordings = pendingAudioFiles::listRecordings();
    std::erase_if(recordings,
                  [](const auto& metadata) { return metadata.isPending() || RecordingsInUse::contains(metadata.id); });
    return recordings;
}

/// Bytes in a recording's files, those of its system audio included.
qint64 sizeOf(const PendingAudioMetadata& metadata) {
    qint64 bytes = 0;
    for (const auto& path :
         {pendingAudioFiles::audioPath(metadata.id), pendingAudioFiles::metadataPath(metadata.id),
          metadata.systemAudioId ? pendingAudioFiles::audioPath(*metadata.systemAudioId) : QString()})
        bytes += std::max<qint64>(0, path.isEmpty() ? 0 : privateFile::size(path));
    return bytes;
}

/// Where no audio is to be kept, only that stays on which the server failed: it may contain words.
void deleteUnwanted() {
    for (const auto& metadata : disposable())
        if (metadata.reason != pendingAudioFiles::failedReason && metadata.reason != pendingAudioFiles::languageReason)
            pendingAudioFiles::deleteFiles(metadata.id);
}

/// Returns the bytes that remain.
qint64 enforce(audioStorage::Rules rules) {
    if (!rules.keepAudio)
        deleteUnwanted();
    const auto limit = rules.limit;
    auto usage = calculateDirectorySize();
    if (usage <= limit)
        return usage;
    for (const auto& metadata : disposable()) {
        if (usage <= limit)
            break;
        const auto freed = sizeOf(metadata);
        if (!pendingAudioFiles::deleteFiles(metadata.id))
            continue;
        log(QStringLiteral("🗑️ AudioStorageManager: deleted audio %1 (%2 bytes) to free %3 bytes of space")
                .arg(metadata.id)
                .arg(freed)
                .arg(usage - limit));
        usage -= freed;
    }
    return usage;
}

} // namespace

AudioStorageManager& AudioStorageManager::shared() {
    static auto* const manager = new AudioStorageManager(UserSettings::shared());
    return *manager;
}

AudioStorageManager::AudioStorageManager(UserSettings& settings)
    : m_settings(settings), m_self(std::make_shared<AudioStorageManager*>(this)) {}

AudioStorageManager::~AudioStorageManager() { *m_self = nullptr; }

int AudioStorageManager::storageLimitMB() const { return m_settings.audioStorageLimitMB(); }

void AudioStorageManager::setStorageLimitMB(int megabytes) {
    m_settings.setValue(QStringLiteral("audioStorageLimitMB"), megabytes);
}

double AudioStorageManager::usageRatio() const {
    return static_cast<double>(m_usage) / (static_cast<double>(storageLimitMB()) * megabyte);
}

audioStorage::Rules AudioStorageManager::rules() const {
    return {.limit = storageLimitMB() * megabyte, .keepAudio = m_settings.keepAudio()};
}

void AudioStorageManager::enforceStorageLimit() { publish(enforce(rules())); }

Task<> AudioStorageManager::enforceStorageLimitAsync() {
    if (!m_queue)
        m_queue = std::make_unique<SerialExecutor>(QStringLiteral("com.quillo.audiostorage"));
    const auto self = m_self;
    const auto usage =
        co_await perform(*m_queue, EventExecutor::main(), [current = rules()] { return enforce(current); });
    if (*self)
        (*self)->publish(usage);
}

void AudioStorageManager::clearAllAudio() {
    int count = 0;
    for (const auto& metadata : disposable())
        count += pendingAudioFiles::deleteFiles(metadata.id) ? 1 : 0;
    log(QStringLiteral("🗑️ AudioStorageManager: cleared %1 retained audio files").arg(count));
    publish(calculateDirectorySize());
}

void AudioStorageManager::publish(qint64 bytes) {
    if (bytes == m_usage)
        return;
    m_usage = bytes;
    Q_EMIT usageChanged(bytes);
}

} // namespace quillo
