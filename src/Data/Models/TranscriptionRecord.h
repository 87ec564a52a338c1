#pragma once

#include "Data/Models/ChannelSegment.h"
#include "Data/Models/MeetingSegment.h"
#include "Data/Models/PersistedTextVersion.h"
#include "Data/Models/RecordStatus.h"

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <cstdint>
#include <memory>
#include <optional>

namespace quillo {

class ModelContext;

/// The stored fields of a record, in the order of the columns. Dates are UTC with milliseconds.
struct RecordFields {
    QUuid id = QUuid::createUuid();
    QString userId;
    QString text; ///< final text, after clean-up or a command
    QString sessionId;
    std::optional<QString> languageDetected;
    QDateTime createdAt = QDateTime::currentDateTimeUtc(); ///< the history is sorted by it
    int64_t durationMs = 0;
    int64_t wordCount = 0;
    std::optional<QString> sourceApp; ///< name of the application in front when recording began
    bool isFavorite = false;
    std::optional<QString> metricsServerId;
    bool metricsReported = false;
    QString status = RecordStatus::completed;
    std::optional<QString> diarizationTaskId;
    std::optional<QString> clientRecordingId;
    std::optional<QString> pendingAudioId; ///< audio file of a record that waits for its (re)transcription
    int64_t retryCount = 0;
    std::optional<QDateTime> lastRetryAt;
    int64_t emptyResultCount = 0;
    std::optional<QString> audioRetainedId; ///< audio file kept after success
    bool isMeetingMode = false;
    bool wasLimitCapped = false;
    int64_t speakerCount = 0;
    std::optional<QString> rawText; ///< as first transcribed
    std::optional<QByteArray> meetingSegmentsData;
    std::optional<QByteArray> speakerNamesData;
    std::optional<QByteArray> channelSegmentsData;
    std::optional<double> meetingSwitchTimestamp; ///< seconds into the recording
    QString liveMeetingLabeledText;
    QString liveMeetingPlainText;
    QString meetingSummary;
    QString meetingActionItems;
    std::optional<QString> title; ///< given by the user
    std::optional<QByteArray> textVersionsData;
    std::optional<QByteArray> tagNamesData;
    std::optional<QDateTime> syncedAt; ///< unset: not yet synchronised
    std::optional<QString> sourceDevice;
    std::optional<QDateTime> updatedAt; ///< last local change, compared by sync
    bool detectedLanguageMismatch = false;
    std::optional<QString> mismatchDetectedLanguage;     ///< language code
    std::optional<QString> mismatchDetectedLanguageName; ///< display name
    std::optional<QString> mismatchConfiguredLanguage;   ///< language code
    bool mismatchDismissed = false;
    bool operator==(const RecordFields&) const = default;
};

/// One dictation or meeting of the history. Main thread; the caller saves the context after a group of changes.
class TranscriptionRecord final : public RecordFields {
public:
    TranscriptionRecord() = default;
    explicit TranscriptionRecord(const RecordFields& fields) : RecordFields(fields) {}
    TranscriptionRecord(const QString& userId, const QString& text, const QString& sessionId,
                        const std::optional<QString>& languageDetected = {}, int64_t durationMs = 0,
                        int64_t wordCount = 0, const std::optional<QString>& sourceApp = {},
                        const std::optional<QString>& metricsServerId = {},
                        const QString& status = RecordStatus::completed,
                        const std::optional<QString>& pendingAudioId = {},
                        const std::optional<QString>& sourceDevice = {});
    TranscriptionRecord(const TranscriptionRecord&) = delete;
    TranscriptionRecord& operator=(const TranscriptionRecord&) = delete;
    /// Identity, not content; compare `RecordFields` for that.
    bool operator==(const TranscriptionRecord& other) const { return id == other.id; }

    /// A new record with empty text and the status "recording", which remains if the session is interrupted. Not yet
    /// inserted.
    static std::shared_ptr<TranscriptionRecord>
    recordingInProgress(const QString& userId, const std::optional<QString>& sourceApp, bool isMeetingMode);
    /// Cleans up after a crash: deletes records in "recording" or "processing" without text, and completes those with
    /// text and all in "diarizing". Saves once; a failure is logged and ignored.
    static void cleanupStaleRecordings(ModelContext& context);

    void markCompleted(const QString& newText, const QString& newSessionId);
    void applyDiarization(const QList<MeetingSegment>& segments, const QString& plainText, int64_t speakers,
                          const std::optional<QString>& summary, const std::optional<QString>& actionItems);
    void markRetryAttempt();
    /// True from the second empty result of the record on.
    bool incrementEmptyResultCount();
    void markMetricsReported(const QString& metricsId);
    void migratePendingAudioToRetainedIfNeeded();
    /// Adds the name unless the record already has it.
    void addTag(const QString& name);
    void removeTag(const QString& name);
    void toggleFavorite() { isFavorite = !isFavorite; }
    void saveVersions(const QList<PersistedTextVersion>& versions);

    // Decoded from and encoded to the data fields; undecodable values read as empty or nothing.
    [[nodiscard]] QStringList tagNames() const;
    void setTagNames(const QStringList& names);
    /// Speaker id to display name.
    [[nodiscard]] QMap<QString, QString> speakerNames() const;
    void setSpeakerNames(const QMap<QString, QString>& names);
    [[nodiscard]] std::optional<QList<MeetingSegment>> meetingSegments() const;
    void setMeetingSegments(const std::optional<QList<MeetingSegment>>& segments);
    [[nodiscard]] std::optional<QList<ChannelSegment>> channelSegments() const;
    void setChannelSegments(const std::optional<QList<ChannelSegment>>& segments);
    [[nodiscard]] QList<PersistedTextVersion> persistedVersions() const;

    /// The title, otherwise the beginning of the text on one line.
    [[nodiscard]] QString displayTitle() const;
    /// The meeting's text without labels, one paragraph for each turn.
    [[nodiscard]] QString meetingPlainText() const;
    /// The audio file for playback: the pending one, otherwise the retained one.
    [[nodiscard]] std::optional<QString> effectiveAudioId() const;
    [[nodiscard]] bool hasAudioOnDisk() const;
    /// Whether a session is still working on it.
    [[nodiscard]] bool isBusy() const;
};

using RecordPointer = std::shared_ptr<TranscriptionRecord>;

/// The JSON array of strings behind `tagNamesData`; anything else reads as empty.
QStringList decodeTagNames(const QByteArray& json);
QByteArray encodeTagNames(const QStringList& names);

/// The number of words of a text, as counted by the history: runs without white space.
int64_t countWords(const QString& text);
/// "<id>.pcm" in the audio folder; empty when `id` is not a plain file name.
QString audioPath(const QString& id);

} // namespace quillo
