#include "Services/Recordings/PendingAudioFiles.h"

#include "Core/AudioChunk.h"
#include "Core/Log.h"
#include "Services/Recordings/RecordingsInUse.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>

#include <algorithm>
#include <mutex>

namespace quillo::pendingAudioFiles {

namespace {

const QString audioSuffix = QStringLiteral(".pcm");
const QString metadataSuffix = QStringLiteral(".json");
constexpr qint64 largestMetadata = 64LL * 1024; // bytes; ours are below one KiB
constexpr qsizetype longestRecordingId = 128;

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(QStringLiteral("[AudioFileWriter] ") + message, level, QStringLiteral("AudioFileWriter"));
}

/// Log each broken file only once: the folder is read repeatedly and broken files stay broken.
void logOnce(const QString& message) {
    static std::mutex mutex;
    static QSet<QString> logged;
    {
        const std::lock_guard lock(mutex);
        if (logged.contains(message))
            return;
        logged.insert(message);
    }
    log(message, LogLevel::warn);
}

QString path(const QString& recordingId, const QString& suffix) {
    if (!isRecordingId(recordingId))
        throw FileError(
            QStringLiteral("\"%1\" is not a recording id: only letters, digits, '-', '_' and single dots may "
                           "occur in one; the recording is left out")
                .arg(recordingId.left(longestRecordingId).toHtmlEscaped()));
    return directory() + u'/' + recordingId + suffix;
}

qint64 wholeSamples(qint64 bytes) {
    return std::max<qint64>(bytes, 0) / AudioFormat::bytesPerSample * AudioFormat::bytesPerSample;
}

QStringList stems(const QString& suffix) {
    QStringList found;
    const auto names =
        QDir(directory()).entryList({u'*' + suffix}, QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
    for (const auto& name : names)
        found << name.chopped(suffix.size());
    return found;
}

/// The metadata of existing audio; nothing, with a log line, when it cannot be used.
std::optional<PendingAudioMetadata> usableMetadata(const QString& stem) {
    try {
        auto metadata = readMetadata(stem);
        if (metadata.systemAudioId && !audioFilesExist(*metadata.systemAudioId)) {
            logOnce(QStringLiteral("⚠️ The system audio of %1 is gone; its microphone audio remains").arg(stem));
            metadata.systemAudioId.reset();
            metadata.systemAudioChunkCount.reset();
            metadata.systemAudioTotalBytes.reset();
        }
        if (audioFilesExist(stem))
            return metadata;
        logOnce(QStringLiteral("⚠️ Skipping the metadata of %1: its audio is gone or empty").arg(stem));
    } catch (const FileError& error) {
        logOnce(QStringLiteral("⚠️ Skipping a recording: %1").arg(error.message()));
    }
    return std::nullopt;
}

bool removeLogged(const QString& file) {
    if (privateFile::remove(file))
        return true;
    log(QStringLiteral("⚠️ Could not remove %1; check the permissions of its folder").arg(file), LogLevel::warn);
    return false;
}

} // namespace

QString directory() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/QuilloSpeech/pending-audio");
}

bool isRecordingId(const QString& text) {
    if (text.isEmpty() || text.size() > longestRecordingId || text.startsWith(u'.') || text.endsWith(u'.') ||
        text.contains(QStringLiteral("..")))
        return false;
    return std::all_of(text.begin(), text.end(), [](QChar c) {
        return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'-' ||
               c == u'_' || c == u'.';
    });
}

QString audioPath(const QString& recordingId) { return path(recordingId, audioSuffix); }

QString metadataPath(const QString& recordingId) { return path(recordingId, metadataSuffix); }

qint64 audioBytes(const QString& recordingId) {
    return isRecordingId(recordingId) ? wholeSamples(privateFile::size(audioPath(recordingId))) : 0;
}

bool audioFilesExist(const QString& recordingId) { return audioBytes(recordingId) > 0; }

qint64 durationMs(qint64 bytes) {
    return bytes * 1000 / (static_cast<qint64>(AudioFormat::sampleRate) * AudioFormat::bytesPerSample);
}

PendingAudioMetadata readMetadata(const QString& recordingId) {
    const auto file = metadataPath(recordingId);
    const auto content = privateFile::read(file, largestMetadata);
    try {
        auto metadata = PendingAudioMetadata::decode(content);
        if (metadata.id != recordingId)
            throw std::runtime_error("\"id\" names another recording");
        if (metadata.systemAudioId &&
            (!isRecordingId(*metadata.systemAudioId) || *metadata.systemAudioId == recordingId))
            metadata.systemAudioId.reset();
        return metadata;
    } catch (const std::runtime_error& error) {
        throw FileError(
            QStringLiteral("%1 is not a recording's metadata: %2").arg(file, QString::fromUtf8(error.what())));
    }
}

void writeMetadata(const PendingAudioMetadata& metadata, privateFile::Durability durability) {
    const auto file = metadataPath(metadata.id);
    privateFile::makeFolder(directory());
    privateFile::replace(file, metadata.encode(), durability);
}

std::vector<PendingAudioMetadata> listRecordings() {
    std::vector<PendingAudioMetadata> recordings;
    for (const auto& stem : stems(metadataSuffix))
        if (auto metadata = usableMetadata(stem))
            recordings.push_back(*std::move(metadata));
    std::stable_sort(recordings.begin(), recordings.end(),
                     [](const auto& a, const auto& b) { return a.createdAt < b.createdAt; });
    return recordings;
}

std::vector<PendingAudioMetadata> listPendingRecordings() {
    auto recordings = listRecordings();
    std::erase_if(recordings, [](const auto& metadata) { return !metadata.isPending(); });
    return recordings;
}

std::vector<StrayAudio> listAudioWithoutMetadata() {
    QSet<QString> named;
    for (const auto& metadata : listRecordings()) {
        named.insert(metadata.id);
        if (metadata.systemAudioId)
            named.insert(*metadata.systemAudioId);
    }
    std::vector<StrayAudio> stray;
    for (const auto& stem : stems(audioSuffix)) {
        const auto bytes = audioBytes(stem);
        if (bytes > 0 && !named.contains(stem))
            stray.push_back({stem, bytes});
    }
    return stray;
}

QStringList listStaleFiles() {
    const auto inUse = [](const QString& stem) {
        return RecordingsInUse::contains(stem, RecordingsInUse::Purpose::writing);
    };
    QStringList stale;
    for (const auto& name : QDir(directory()).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name)) {
        const bool isAudio = name.endsWith(audioSuffix);
        const bool isMetadata = name.endsWith(metadataSuffix);
        const auto stem = isAudio ? name.chopped(audioSuffix.size()) : name.chopped(metadataSuffix.size());
        const bool isTemporary = name.endsWith(QStringLiteral(".wav")) || name.endsWith(QStringLiteral(".new"));
        if ((isAudio || isMetadata) ? isRecordingId(stem) && !audioFilesExist(stem) && !inUse(stem) : isTemporary)
            stale << name;
    }
    return stale;
}

PendingAudioMetadata metadataOrDefaults(const QString& recordingId) {
    try {
        return readMetadata(recordingId);
    } catch (const FileError&) {
        if (!audioFilesExist(recordingId))
            throw;
    }
    PendingAudioMetadata metadata;
    metadata.id = recordingId;
    metadata.totalBytes = audioBytes(recordingId);
    metadata.durationMs = durationMs(metadata.totalBytes);
    // The file was last written when the recording ended.
    metadata.createdAt = QFileInfo(audioPath(recordingId)).lastModified().toUTC().addMSecs(-metadata.durationMs);
    return metadata;
}

bool markCompleted(const QString& recordingId, const QDateTime& now, const std::optional<QString>& reason) {
    try {
        auto metadata = metadataOrDefaults(recordingId);
        metadata.completedAt = now.toUTC();
        if (reason)
            metadata.reason = *reason;
        writeMetadata(metadata);
    } catch (const FileError& error) {
        log(QStringLiteral("⚠️ Could not mark a recording as completed: %1").arg(error.message()), LogLevel::warn);
        return false;
    }
    log(QStringLiteral("✅ Marked recording as completed (kept until storage limit): %1").arg(recordingId));
    return true;
}

int diskEmptyResultCount(const QString& recordingId) {
    try {
        return readMetadata(recordingId).emptyResultCount.value_or(0);
    } catch (const FileError&) {
        return 0;
    }
}

bool incrementDiskEmptyResultCount(const QString& recordingId) {
    try {
        auto metadata = readMetadata(recordingId);
        // The number may come from a damaged file, so avoid overflow.
        const int count = std::min(metadata.emptyResultCount.value_or(0), emptyResultLimit) + 1;
        metadata.emptyResultCount = count;
        writeMetadata(metadata);
        return count >= emptyResultLimit;
    } catch (const FileError& error) {
        log(QStringLiteral("⚠️ Could not count an empty result: %1").arg(error.message()), LogLevel::warn);
        return false;
    }
}

bool deleteFiles(const QString& recordingId) {
    bool removed = true;
    try {
        const auto systemAudioId = readMetadata(recordingId).systemAudioId;
        // Audio with its own metadata is a separate recording, even if this metadata names it.
        if (systemAudioId && privateFile::size(metadataPath(*systemAudioId)) < 0)
            removed = removeLogged(audioPath(*systemAudioId));
    } catch (const FileError&) {
        removed = isRecordingId(recordingId);
    }
    // Remove the audio first: left-over metadata is cleaned up, but left-over audio would be recovered as a recording.
    return isRecordingId(recordingId) && removeLogged(audioPath(recordingId)) &&
           removeLogged(metadataPath(recordingId)) && removed;
}

int cleanupOldPendingFiles(const QDateTime& now) {
    int count = 0;
    for (const auto& metadata : listPendingRecordings())
        if (metadata.createdAt.secsTo(now) > longestWait && !RecordingsInUse::contains(metadata.id) &&
            deleteFiles(metadata.id))
            ++count;
    log(QStringLiteral("🧹 Cleaned up %1 expired pending audio files").arg(count));
    return count;
}

} // namespace quillo::pendingAudioFiles
