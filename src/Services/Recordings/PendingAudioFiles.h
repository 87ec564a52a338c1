#pragma once

#include "Core/PrivateFile.h"
#include "Services/Recordings/PendingAudioMetadata.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace quillo {

/// Audio without readable metadata: a recording interrupted by a crash.
struct StrayAudio {
    QString recordingId;
    qint64 bytes = 0;
};

/// The files of all recordings: "<id>.pcm", headerless 16-bit mono at 16 kHz, and "<id>.json" beside it, in one folder
/// that only the user may read.
///
/// Any thread, but one caller at a time for the same id. A recording id is a plain file stem. For any other text,
/// functions that return a value report no such recording, and the others throw FileError, so that no id can lead out
/// of the folder.
namespace pendingAudioFiles {

/// "QuilloSpeech/pending-audio" in the user's data folder. This call does not create it.
QString directory();
/// Letters, digits, '-', '_' and single inner dots; at most 128 of them.
bool isRecordingId(const QString& text);
/// Paths of a recording; throws FileError when `recordingId` is not a recording id.
QString audioPath(const QString& recordingId);
QString metadataPath(const QString& recordingId);

/// Bytes of whole samples in the recording's audio; 0 when there is none.
qint64 audioBytes(const QString& recordingId);
/// True when there is at least one sample.
bool audioFilesExist(const QString& recordingId);
/// Milliseconds of `bytes` of audio.
qint64 durationMs(qint64 bytes);

/// Throws FileError when the metadata is missing, unreadable or another recording's.
PendingAudioMetadata readMetadata(const QString& recordingId);
/// Replaces the metadata atomically, without waiting for the disk; throws FileError.
void writeMetadata(const PendingAudioMetadata& metadata,
                   privateFile::Durability durability = privateFile::Durability::kernel);

/// Every recording with audio and readable metadata, the oldest first. Unusable files are logged once per run and
/// skipped; a system-audio id without audio is removed from its recording.
std::vector<PendingAudioMetadata> listRecordings();
/// Those that wait for their text.
std::vector<PendingAudioMetadata> listPendingRecordings();
/// Audio without readable metadata.
std::vector<StrayAudio> listAudioWithoutMetadata();
/// Names of files in the folder that belong to no audio: metadata of audio that is gone, leftovers of temporary files.
QStringList listStaleFiles();

/// Sets "completedAt", and "reason" when given, and rewrites the metadata, creating it when only the audio exists.
/// False, with a log line, on failure.
bool markCompleted(const QString& recordingId, const QDateTime& now = QDateTime::currentDateTimeUtc(),
                   const std::optional<QString>& reason = {});
/// The "reason" of audio without recognised words: kept, and not retried automatically.
inline const QString unrecognizedReason = QStringLiteral("unrecognized");
/// Of audio that the server failed on too often: kept, and not tried again by itself.
inline const QString failedReason = QStringLiteral("failed");
/// Of audio that has waited too long for a server.
inline const QString expiredReason = QStringLiteral("expired");
/// The metadata of a recording or, if it is missing or unreadable, metadata derived from the audio. Throws FileError
/// when there is no audio either.
PendingAudioMetadata metadataOrDefaults(const QString& recordingId);
/// How often a transcription of the recording came back empty.
int diskEmptyResultCount(const QString& recordingId);
/// Counts another empty result; true from the second one on, when further attempts are pointless.
bool incrementDiskEmptyResultCount(const QString& recordingId);
/// After this many empty results a recording counts as unrecognized.
constexpr int emptyResultLimit = 2;

/// Removes the recording's files, including those of its system audio. False when one could not be removed.
bool deleteFiles(const QString& recordingId);
/// Removes the files of recordings that have waited for more than seven days; returns how many recordings.
int cleanupOldPendingFiles(const QDateTime& now = QDateTime::currentDateTimeUtc());
/// Seconds after which a waiting recording is given up.
constexpr qint64 longestWait = 604'800;

} // namespace pendingAudioFiles

} // namespace quillo
