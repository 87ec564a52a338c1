#include "Services/Queue/PendingQueue.h"

#include "Core/UserNotice.h"
#include "Services/Queue/PendingQueueLog.h"
#include "Services/Queue/PendingRetryRules.h"
#include "Services/Recordings/KeptReasons.h"
#include "Services/Recordings/PendingAudioFiles.h"

namespace quillo {

/// The transcription of one recording.
struct PendingQueue::Item {
    QString audioId;
    QString language;
    QString purpose;
    std::optional<QString> clientRecordingId;
    std::optional<QString> systemAudioId;
    bool isMeeting = false;
    int request = 0; ///< the number of the request for this audio that it answers
};

namespace {

int64_t attemptsOf(const QList<RecordPointer>& records) {
    int64_t attempts = 0;
    for (const auto& record : records)
        attempts = std::max(attempts, record->retryCount);
    return attempts;
}

/// Seconds since the latest attempt; nothing when there was none.
std::optional<int64_t> secondsSinceAttempt(const QList<RecordPointer>& records, const QDateTime& now) {
    std::optional<int64_t> seconds;
    for (const auto& record : records)
        if (record->lastRetryAt)
            seconds = std::min<int64_t>(seconds.value_or(std::numeric_limits<int64_t>::max()),
                                        record->lastRetryAt->secsTo(now));
    return seconds;
}

QString inSeconds(int64_t attempts) { return QStringLiteral("%1s").arg(pendingRetry::backoff(attempts).count()); }

/// Whether the server rejected this recording, so that a recovered server changes nothing.
bool isRejection(const TranscriptionFileClientError& error) {
    return error.kind() == TranscriptionFileClientError::Kind::serverError && error.status() >= 400 &&
           error.status() < 500 && error.status() != 401 && error.status() != 408;
}

constexpr int stillProcessing = 202;

/// Whether this is the answer of a server, or of a proxy before it, that serves nobody at present. Only a recogniser
/// that failed on this audio speaks of the recording.
bool isAbsentServer(const TranscriptionFileClientError& error) {
    const auto status = error.status();
    return (status == 429 || status == 502 || status == 503 || status == 504) &&
           error.code() != QStringLiteral("TRANSCRIPTION_ERROR");
}

} // namespace

std::optional<PendingQueue::Item> PendingQueue::prepare(const Group& group) {
    const auto& audioId = group.audioId;
    // The records may have changed while earlier recordings were sent.
    auto waiting = group.records;
    waiting.removeIf([&](const RecordPointer& record) {
        return record->status != RecordStatus::pendingTranscription || record->pendingAudioId != audioId;
    });
    if (waiting.isEmpty())
        return std::nullopt;
    const auto now = services.clock.wallTime();
    std::optional<PendingAudioMetadata> metadata;
    const auto read = [&] {
        try {
            metadata = pendingAudioFiles::metadataOrDefaults(audioId);
        } catch (const FileError&) {
            metadata.reset(); // the attempt will say that the audio is gone
        }
    };

    const auto attempts = attemptsOf(waiting);
    const auto age = waiting.front()->createdAt.secsTo(now);
    if (age >= pendingRetry::longestAge.count()) {
        read();
        // Retained audio waits only since the user's request.
        if (!metadata || metadata->isPending()) {
            queueLog(QStringLiteral("❌ Pending recording expired (age=%1h): %2").arg(age / 3600).arg(audioId),
                     LogLevel::error);
            m_hasChanged = true;
            PendingRecords::giveUp(waiting, RecordStatus::transcriptionFailed);
            if (records->save() && metadata)
                pendingAudioFiles::markCompleted(audioId, now, pendingAudioFiles::expiredReason);
            return std::nullopt;
        }
    }
    if (attempts >= pendingRetry::maximumAttempts) {
        settleExhausted(audioId, waiting, attempts);
        return std::nullopt;
    }
    const auto waited = secondsSinceAttempt(waiting, now);
    if (waited && pendingRetry::remainingWait(attempts, *waited) > 0) {
        // Log it once per wait: the check runs every half minute, and the wait may take hours.
        if (m_toldTooSoon.value(audioId, -1) != attempts)
            queueLog(QStringLiteral("⏳ %1 — too soon (waited %2s of %3)")
                         .arg(audioId)
                         .arg(*waited)
                         .arg(inSeconds(attempts)),
                     LogLevel::debug);
        m_toldTooSoon.insert(audioId, attempts);
        return std::nullopt;
    }
    m_hasChanged = true;
    if (!metadata)
        read();
    const auto& record = *waiting.front();
    Item item{.audioId = audioId,
              .language = metadata ? metadata->primaryLanguage : QString(),
              .purpose = metadata && !metadata->isPending() ? transcriptionPurpose::retranscribe
                                                            : transcriptionPurpose::pending,
              .clientRecordingId = record.clientRecordingId,
              .systemAudioId = metadata ? metadata->systemAudioId : std::nullopt,
              .isMeeting = record.isMeetingMode,
              .request = m_requests.value(audioId)};
    if (!item.clientRecordingId && metadata)
        item.clientRecordingId = metadata->clientRecordingId;
    return item;
}

void PendingQueue::giveUpOverdue(const Group& group) { (void)prepare(group); }

Task<PendingQueue::Step> PendingQueue::process(Self self, Group group) {
    const auto item = self->prepare(group);
    if (!item)
        co_return Step::done;
    const auto& audioId = item->audioId;
    queueLog(QStringLiteral("🔄 Processing pending recording: %1").arg(audioId));
    // Use a new id, so that the server does not return the old transcription.
    if (item->isMeeting && item->clientRecordingId && item->purpose == transcriptionPurpose::pending) {
        const auto recovery = co_await recoverMeeting(self, *item);
        if (self->isClosed)
            co_return Step::pause;
        if (self->m_requests.value(audioId) != item->request)
            co_return Step::again;
        if (recovery != MeetingRecovery::none)
            co_return Step::done;
    }
    co_return co_await transcribe(self, *item);
}

Task<PendingQueue::MeetingRecovery> PendingQueue::recoverMeeting(Self self, Item item) {
    const auto id = *item.clientRecordingId;
    QString reason = QStringLiteral("the server knows no such recording");
    try {
        const auto found = co_await self->services.client.recoverDiarizationByRecordingId(id);
        if (self->isClosed || self->m_requests.value(item.audioId) != item.request)
            co_return MeetingRecovery::none;
        if (found && found->isDone() && found->result && !found->result->plainText.trimmed().isEmpty()) {
            const auto waiting = self->records->pendingWith(item.audioId);
            self->settleSuccess(item.audioId, self->records->applyDiarization(waiting, *found->result));
            queueLog(QStringLiteral("✅ Fast diarization recovery via clientRecordingId: %1").arg(id));
            co_return MeetingRecovery::done;
        }
        if (found && !found->isDone() && !found->hasFailed()) {
            queueLog(QStringLiteral("⏳ Diarization still processing for %1 (%2) — will retry later without "
                                    "incrementing counter")
                         .arg(id, found->status));
            co_return MeetingRecovery::running;
        }
        if (!found)
            co_return MeetingRecovery::none;
        reason = found->message.value_or(found->status);
    } catch (const std::exception& error) {
        reason = QString::fromUtf8(error.what());
    }
    queueLog(
        QStringLiteral("⚠️ Fast diarization recovery failed for %1 (%2) — falling back to audio upload").arg(id, reason),
        LogLevel::warn);
    co_return MeetingRecovery::none;
}

Task<PendingQueue::Step> PendingQueue::transcribe(Self self, Item item) {
    std::optional<DiarizeResponse> meeting;
    std::optional<TranscriptionFileResponse> dictation;
    std::exception_ptr error;
    try {
        if (item.isMeeting) {
            queueLog(QStringLiteral("🎙️ Meeting mode re-transcription via HTTP /diarize: mic=%1 bytes, system=%2 bytes")
                         .arg(pendingAudioFiles::audioBytes(item.audioId))
                         .arg(pendingAudioFiles::audioBytes(item.systemAudioId.value_or(QString()))));
            meeting = co_await self->services.client.diarizeRecord(item.audioId, item.language);
        } else {
            queueLog(
                QStringLiteral("📡 transcribeViaHTTP: starting (id=%1, language=%2)").arg(item.audioId, item.language));
            dictation = co_await self->services.client.retranscribeRecord(item.audioId, item.language, item.purpose,
                                                                          item.clientRecordingId);
        }
    } catch (...) {
        error = std::current_exception();
    }
    if (self->isClosed)
        co_return Step::pause;
    // Requested again during this transcription, for example in another language.
    if (self->m_requests.value(item.audioId) != item.request)
        co_return Step::again;
    if (error)
        co_return self->settleFailure(item, error);
    const auto text = (meeting ? meeting->plainText : dictation->text).trimmed();
    if (text.isEmpty())
        co_return self->settleEmpty(item);
    // The user has deleted the record in the meantime; discard the text.
    const auto waiting = self->records->pendingWith(item.audioId);
    if (meeting) {
        queueLog(QStringLiteral("✅ Meeting mode transcribed via HTTP /diarize: %1 (%2 characters, %3 speakers)")
                     .arg(item.audioId)
                     .arg(text.size())
                     .arg(meeting->speakerCount.value_or(0)));
        co_return self->settleSuccess(item.audioId, self->records->applyDiarization(waiting, *meeting));
    }
    queueLog(QStringLiteral("📡 transcribeViaHTTP: success! %1 characters (id=%2)").arg(text.size()).arg(item.audioId));
    co_return self->settleSuccess(item.audioId, self->records->applyText(waiting, *dictation));
}

void PendingQueue::settleExhausted(const QString& audioId, const QList<RecordPointer>& waiting, int64_t attempts) {
    queueLog(QStringLiteral("🛑 Pending recording exceeded max retry attempts (%1) — marking failed (audio "
                            "preserved): %2")
                 .arg(attempts)
                 .arg(audioId),
             LogLevel::warn);
    m_hasChanged = true;
    // This differs from "no words found": the server never gave a result.
    giveUp(audioId, waiting, RecordStatus::transcriptionFailed, pendingAudioFiles::failedReason);
}

PendingQueue::Step PendingQueue::settleSuccess(const QString& audioId, const RecordPointer& record) {
    m_hasAnswered = true;
    expectServer();
    if (!record)
        return Step::done;
    m_rejected.remove(audioId);
    m_toldTooSoon.remove(audioId);
    if (!records->save()) {
        // The text is in memory only; until it is saved, the audio counts as waiting.
        m_unsaved.insert_or_assign(audioId, record);
        return Step::done;
    }
    queueLog(QStringLiteral("✅ Updated pending record with transcription: %1")
                 .arg(record->id.toString(QUuid::WithoutBraces)));
    publish(audioId, record);
    return Step::done;
}

PendingQueue::Step PendingQueue::settleEmpty(const Item& item) {
    m_hasAnswered = true;
    expectServer();
    queueLog(QStringLiteral("📡 transcribeViaHTTP: server returned empty text for %1").arg(item.audioId));
    const auto waiting = records->pendingWith(item.audioId);
    // Use both: the number in the file survives the loss of the history.
    const bool isPointless = records->recordEmptyResult(waiting);
    pendingAudioFiles::incrementDiskEmptyResultCount(item.audioId);
    if (isPointless) {
        queueLog(QStringLiteral("🔇 Marking recording as unrecognized (0 words after multiple attempts): %1")
                     .arg(item.audioId));
        markUnrecognized(item.audioId, waiting);
        return Step::done;
    }
    records->recordAttempt(waiting);
    records->save();
    queueLog(QStringLiteral("🔇 STT returned 0 words for: %1. Will retry in %2")
                 .arg(item.audioId, inSeconds(attemptsOf(waiting))));
    return Step::done;
}

PendingQueue::Step PendingQueue::settleAbsence(const Item& item, const QString& reason,
                                               std::chrono::seconds requestedWait) {
    ++m_server.failures;
    m_server.tried.insert(item.audioId);
    const auto wait = std::max(pendingRetry::serverWait(m_server.failures),
                               std::min(requestedWait, pendingRetry::longestRequestedWait));
    m_server.dueAt = services.clock.wallTime().addSecs(wait.count());
    queueLog(QStringLiteral("🌐 %1 could not be sent (%2) — no attempt; the server is asked again in %3s")
                 .arg(item.audioId, reason)
                 .arg(wait.count()),
             LogLevel::warn);
    return Step::away;
}

PendingQueue::Step PendingQueue::settleServerError(const Item& item, const TranscriptionFileClientError& failure) {
    if (isAbsentServer(failure))
        return settleAbsence(item, failure.message(), failure.retryAfter().value_or(std::chrono::seconds(0)));
    m_hasAnswered = true;
    expectServer();
    if (failure.status() == stillProcessing) {
        queueLog(QStringLiteral("⏳ %1 is still being transcribed — will retry later without incrementing counter")
                     .arg(item.audioId));
        return Step::done;
    }
    if (failure.status() == 422 && failure.code() == QStringLiteral("LANGUAGE_NOT_SERVED"))
        return settleLanguage(item);
    return settleAttempt(item, failure.message(), isRejection(failure));
}

PendingQueue::Step PendingQueue::settleLanguage(const Item& item) {
    queueLog(QStringLiteral("🛑 The server does not understand the language \"%1\" — marking failed (audio preserved): "
                            "%2")
                 .arg(item.language, item.audioId),
             LogLevel::warn);
    giveUp(item.audioId, records->pendingWith(item.audioId), RecordStatus::transcriptionFailed,
           pendingAudioFiles::languageReason);
    if (!std::exchange(m_hasToldLanguage, true))
        userNotice::post({QStringLiteral("notice.waitingLanguageNotServed")});
    return Step::done;
}

PendingQueue::Step PendingQueue::settleAttempt(const Item& item, const QString& reason, bool isRejected) {
    if (isRejected)
        m_rejected.insert(item.audioId);
    else
        m_rejected.remove(item.audioId);
    const auto waiting = records->pendingWith(item.audioId);
    records->recordAttempt(waiting);
    records->save();
    queueLog(QStringLiteral("❌ Failed to transcribe pending recording: %1 (%2). Next retry in %3")
                 .arg(item.audioId, reason, inSeconds(attemptsOf(waiting))),
             LogLevel::error);
    return Step::done;
}

PendingQueue::Step PendingQueue::settleFailure(const Item& item, const std::exception_ptr& error) {
    using Kind = TranscriptionFileClientError::Kind;
    QString reason = QStringLiteral("unknown");
    std::optional<TranscriptionFileClientError> answer;
    bool isAbsence = false;
    try {
        std::rethrow_exception(error);
    } catch (const TranscriptionFileClientError& failure) {
        reason = failure.message();
        isAbsence = failure.kind() == Kind::unreachable;
        if (failure.kind() == Kind::serverError)
            answer = failure;
        if (failure.kind() == Kind::notAuthenticated) {
            queueLog(QStringLiteral("🔒 Nobody is signed in — pausing"), LogLevel::warn);
            m_isSignedOut = true;
            return Step::pause;
        }
        if (failure.kind() == Kind::audioFileMissing || failure.kind() == Kind::audioFileUnreadable)
            queueLog(QStringLiteral("❌ Could not read PCM file for: %1").arg(item.audioId), LogLevel::error);
    } catch (const FileError& failure) {
        reason = failure.message();
        isAbsence = true;
    } catch (const std::exception& failure) {
        reason = QString::fromUtf8(failure.what());
    }
    if (!services.network.isConnected()) {
        // Neither the recording nor the server is the cause.
        queueLog(QStringLiteral("🌐 Network lost during processing — pausing"));
        return Step::pause;
    }
    if (answer)
        return settleServerError(item, *answer);
    // Other recordings have just succeeded, so this recording is the cause.
    if (isAbsence && !m_hasAnswered)
        return settleAbsence(item, reason);
    if (!isAbsence)
        expectServer();
    return settleAttempt(item, reason, false);
}

} // namespace quillo
