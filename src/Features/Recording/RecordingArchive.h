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

/// What a dictation leaves behind is kept with these; both outlive it. Absent where the history could not be opened:
/// the audio is kept on disk all the same and joins the history at the next start.
struct ArchiveStores {
    ModelContext* history = nullptr;
    TagManager* tags = nullptr;
};

/// The facts of a dictation that its record and the file beside its audio carry.
struct ArchiveFacts {
    QString recordingId; ///< names the recording to the server
    /// Who is signed in, empty when nobody is: asked again while it is, as a sign-in may complete during the dictation.
    std::function<QString()> userId;
    QDateTime createdAt;
    QString primaryLanguage;
    QString secondaryLanguage;
    QString targetApp;
    qint64 targetAppPid = 0;
};

/// The text of a dictation and what the server said about it.
struct ArchivedText {
    QString text;
    QString originalText; ///< before a voice command or clean-up changed it; may be empty
    QString sessionId;
    QString language;
    std::optional<QString> metricsId;
    std::optional<LanguageMismatch> mismatch;
};

/// What becomes of one dictation: its record in the history, and the audio on disk that the record refers to. The audio
/// is written as it comes, so that at every moment either the text is in the history or the audio is where the queue
/// finds it. A history that fails costs the record, not the dictation. Main thread; no call throws.
class RecordingArchive {
public:
    /// `audio` outlives the archive.
    RecordingArchive(ArchiveStores stores, ArchiveFacts facts, AudioBackup& audio);
    ~RecordingArchive();
    RecordingArchive(const RecordingArchive&) = delete;
    RecordingArchive& operator=(const RecordingArchive&) = delete;

    /// Opens the audio file, inserts the active record, and writes what a recovery after a crash needs to know.
    void begin();
    /// The microphone is closed; the text is awaited.
    void beginProcessing();

    // How it ended. The first of these counts.

    /// The text is complete. The audio is kept for playback, or deleted unless `keepAudio`.
    void complete(const ArchivedText& text, bool keepAudio);
    /// The audio waits for a transcription; what text there is stays readable until then.
    void keepPending(const QString& reason, const ArchivedText& text = {});
    /// The recogniser found no words: the audio is kept, and transcribed again only when the user asks.
    void keepUnrecognized(const QString& reason);
    /// The user does not want it, or there is nothing.
    void discard();

    [[nodiscard]] bool isSettled() const { return m_isSettled; }
    [[nodiscard]] bool hasAudio() const { return m_audio.hasAudio(); }
    /// The record, once there is one.
    [[nodiscard]] const RecordPointer& record() const { return m_record; }
    /// What the person must know: the disk or the history refused something on the way.
    [[nodiscard]] const std::optional<UserMessage>& problem() const { return m_problem; }

private:
    bool settle();
    void report(const UserMessage& problem);
    /// Runs `work` on the history; false, with the problem reported, when the history refuses.
    bool tryHistory(const std::function<void()>& work);
    QString userId();
    void createActiveRecord();
    /// The record to write the outcome into; made now when there is none yet. Null without a store or a user.
    RecordPointer outcomeRecord();
    void removeRecord();
    void applyText(TranscriptionRecord& record, const ArchivedText& text) const;
    bool saveHistory();
    void writeMetadata(const QString& reason);

    ArchiveStores m_stores;
    ArchiveFacts m_facts;
    AudioBackup& m_audio;
    QString m_userId;
    RecordPointer m_record;
    std::optional<UserMessage> m_problem;
    bool m_isSettled = false;
};

} // namespace quillo
