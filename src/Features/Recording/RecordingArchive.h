#pragma once

#include "Core/UserMessage.h"
#include "Data/Models/TranscriptionRecord.h"
#include "Features/Recording/AudioBackup.h"
#include "Services/Protocol/ServerMessage.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace quillo {

class ModelContext;
class TagManager;

/// The stores for records and tags; both outlive the dictation. Null when the history could not be opened: the audio is
/// still kept on disk and joins the history at the next start.
struct ArchiveStores {
    ModelContext* history = nullptr;
    TagManager* tags = nullptr;
};

/// The data of a dictation for its record and its metadata file.
struct ArchiveFacts {
    QString recordingId; ///< the server's id of the recording
    /// The signed-in user. While it is empty it is queried again, because a sign-in may complete during the dictation.
    std::function<QString()> userId;
    QDateTime createdAt;
    QString primaryLanguage;
    QString secondaryLanguage;
    QString targetApp;
    qint64 targetAppPid = 0;
    bool isMeeting = false;
};

/// The text of a dictation and the server's data about it.
struct ArchivedText {
    QString text;
    QString originalText; ///< before a voice command or clean-up changed it; may be empty
    QString sessionId;
    QString language;
    std::optional<QString> metricsId;
    std::optional<LanguageMismatch> mismatch;
};

/// The persistent result of one dictation: its record in the history, and its audio on disk. The audio is written as it
/// arrives, so that at any moment either the text is in the history or the queue finds the audio. If the history fails,
/// only the record is lost, not the dictation. Main thread; no call throws.
class RecordingArchive {
public:
    /// The copies in `audio` must outlive the archive.
    RecordingArchive(ArchiveStores stores, ArchiveFacts facts, AudioBackups audio);
    ~RecordingArchive();
    RecordingArchive(const RecordingArchive&) = delete;
    RecordingArchive& operator=(const RecordingArchive&) = delete;

    /// Opens the audio file, inserts the active record, and writes the metadata for a recovery after a crash.
    void begin();
    /// The microphone is closed; the text is awaited.
    void beginProcessing();

    // The end of the dictation. Only the first call counts.

    /// The text is complete. The audio is kept for playback, or deleted unless `keepAudio`.
    void complete(const ArchivedText& text, bool keepAudio);
    /// The audio waits for a transcription; the text so far stays readable until then.
    void keepPending(const QString& reason, const ArchivedText& text = {});
    /// The recogniser found no words: the audio is kept, and transcribed again only when the user asks.
    void keepUnrecognized(const QString& reason);
    /// Cancelled by the user, or without audio.
    void discard();

    [[nodiscard]] bool isSettled() const { return m_isSettled; }
    [[nodiscard]] bool hasAudio() const { return m_audio.hasAudio(); }
    /// The record, once it exists.
    [[nodiscard]] const RecordPointer& record() const { return m_record; }
    /// A problem to show to the user: the disk or the history failed.
    [[nodiscard]] const std::optional<UserMessage>& problem() const { return m_problem; }

private:
    bool settle();
    void report(const UserMessage& problem);
    /// Runs `work` on the history; on failure reports the problem and returns false.
    bool tryHistory(const std::function<void()>& work);
    QString userId();
    void createActiveRecord();
    /// The record for the result, created now if it does not exist. Null without a store or a user.
    RecordPointer outcomeRecord();
    void removeRecord();
    void applyText(TranscriptionRecord& record, const ArchivedText& text) const;
    bool saveHistory();
    void writeMetadata(const QString& reason);

    ArchiveStores m_stores;
    ArchiveFacts m_facts;
    AudioBackups m_audio;
    QString m_userId;
    RecordPointer m_record;
    std::optional<UserMessage> m_problem;
    bool m_isSettled = false;
};

} // namespace quillo
