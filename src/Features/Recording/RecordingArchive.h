#pragma once

#include "Core/AudioChunk.h"
#include "Core/UserMessage.h"
#include "Data/Models/TranscriptionRecord.h"
#include "Services/Protocol/ServerMessage.h"
#include "Services/Recordings/AudioFileWriter.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
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
    QString recordingId; ///< names the audio files and the recording to the server
    QString userId;      ///< empty: nobody is signed in
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

/// One dictation's audio on disk and its record in the history. The audio is written as it comes, so that at every
/// moment either the text is in the history or the audio is where the queue finds it. Main thread; no call throws.
class RecordingArchive {
public:
    /// `onProblem` is called when the disk or the store refuses.
    RecordingArchive(ArchiveStores stores, ArchiveFacts facts, std::function<void(UserMessage)> onProblem);
    ~RecordingArchive();
    RecordingArchive(const RecordingArchive&) = delete;
    RecordingArchive& operator=(const RecordingArchive&) = delete;

    /// Opens the audio file, inserts the active record, and writes what a recovery after a crash needs to know.
    void begin();
    void append(const AudioChunk& chunk);
    /// The microphone is closed; the text is awaited.
    void beginProcessing();

    // How it ended. The first of these counts.

    /// The text is complete. The audio is kept for playback, or deleted unless `keepAudio`.
    void complete(const ArchivedText& text, bool keepAudio);
    /// The audio waits for a transcription; what text there is stays readable until then.
    void keepPending(const QString& reason, const ArchivedText& text = {});
    /// Nobody understood the audio: it is kept, and transcribed again only when the user asks.
    void keepUnrecognized(const QString& reason);
    /// The user wants nothing of it, or there is nothing.
    void discard();

    [[nodiscard]] bool isSettled() const { return m_isSettled; }
    [[nodiscard]] bool hasAudio() const { return m_bytes > 0; }
    [[nodiscard]] int64_t durationMs() const {
        return m_bytes * 1000 / static_cast<int64_t>(AudioFormat::sampleRate * AudioFormat::bytesPerSample);
    }
    /// The record, once there is one.
    [[nodiscard]] const RecordPointer& record() const { return m_record; }

private:
    bool settle();
    void createActiveRecord();
    /// The record to write the outcome into; made now when there is none yet. Null without a store or a user.
    RecordPointer outcomeRecord();
    void removeRecord();
    void applyText(TranscriptionRecord& record, const ArchivedText& text) const;
    bool saveHistory();
    void writeMetadata(const QString& reason);

    ArchiveStores m_stores;
    ArchiveFacts m_facts;
    std::function<void(UserMessage)> m_onProblem;
    std::unique_ptr<AudioFileWriter> m_writer;
    RecordPointer m_record;
    int64_t m_bytes = 0;
    int m_chunks = 0;
    bool m_isSettled = false;
};

} // namespace quillo
