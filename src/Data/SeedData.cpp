#include "Core/Log.h"
#include "Data/DataContainer.h"

namespace quillo {

namespace {

const QString seedDevice = QStringLiteral("MacMini-E2E");

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("Seed")); }

RecordPointer dictation(const QString& sessionId, const QString& language, const QString& app, int64_t durationMs,
                        const QString& text) {
    return std::make_shared<TranscriptionRecord>(QString(), text, sessionId, language, durationMs, countWords(text),
                                                 app, std::nullopt, RecordStatus::completed, std::nullopt, seedDevice);
}

RecordPointer meeting(const QString& sessionId, const QString& app, int64_t durationMs, const QString& title,
                      const QList<MeetingSegment>& segments, const QString& summary, const QString& actionItems) {
    auto record = dictation(sessionId, QStringLiteral("en"), app, durationMs, QString());
    QStringList speakers;
    QStringList lines;
    for (const auto& segment : segments) {
        lines.append(segment.text);
        if (!speakers.contains(segment.speakerId))
            speakers.append(segment.speakerId);
    }
    record->isMeetingMode = true;
    record->title = title;
    record->applyDiarization(segments, lines.join(u'\n'), speakers.size(), summary, actionItems);
    record->wordCount = countWords(record->text);
    return record;
}

RecordPointer pending(const QString& sessionId) {
    auto record = dictation(sessionId, QStringLiteral("en"), QStringLiteral("Firefox"), 9'400, QString());
    record->status = RecordStatus::pendingTranscription;
    record->pendingAudioId = QStringLiteral("pending-audio-e2e-001");
    return record;
}

MeetingSegment said(int speaker, const QString& text, double start, double end) {
    return {QStringLiteral("speaker_%1").arg(speaker), QStringLiteral("Speaker %1").arg(speaker), text, start, end};
}

QList<RecordPointer> seedRecords() {
    return {
        dictation(QStringLiteral("e2e-001"), QStringLiteral("en"), QStringLiteral("Thunderbird"), 6'200,
                  QStringLiteral("Thanks for the draft. I will read it tonight and send my notes tomorrow morning.")),
        dictation(QStringLiteral("e2e-002"), QStringLiteral("ru"), QStringLiteral("Telegram"), 5'100,
                  QStringLiteral("Привет! Встречаемся завтра в десять у входа, захвати, пожалуйста, документы.")),
        meeting(QStringLiteral("e2e-003"), QStringLiteral("Zoom"), 62'000, QStringLiteral("Release planning"),
                {said(1, QStringLiteral("Shall we ship on Thursday?"), 0, 3.5),
                 said(2, QStringLiteral("Only if the installer is signed by then."), 4.1, 8),
                 said(1, QStringLiteral("I will take care of the signature today."), 8.4, 12.2)},
                QStringLiteral("The release is planned for Thursday, once the installer is signed."),
                QStringLiteral("Sign the installer today.")),
        dictation(QStringLiteral("e2e-004"), QStringLiteral("en"), QStringLiteral("Visual Studio Code"), 3'900,
                  QStringLiteral("Explain why the queue is drained before the socket is closed.")),
        dictation(QStringLiteral("e2e-005"), QStringLiteral("ru"), QStringLiteral("LibreOffice Writer"), 8'800,
                  QStringLiteral("Отчёт за третий квартал готов, осталось добавить таблицу с расходами.")),
        meeting(QStringLiteral("e2e-006"), QStringLiteral("Microsoft Teams"), 3'725'000,
                QStringLiteral("Interview with the users' council"),
                {said(1, QStringLiteral("What do you miss most?"), 0, 2),
                 said(2, QStringLiteral("A search that finds what I dictated last month."), 2.6, 6.9),
                 said(3, QStringLiteral("And subtitles for the recordings."), 3'720.5, 3'724)},
                QStringLiteral("The council asks for a better search and for subtitles."),
                QStringLiteral("Show the search to the council. Estimate the subtitles.")),
        pending(QStringLiteral("e2e-007")),
    };
}

} // namespace

void DataContainer::seedTestDataIfNeeded(ModelContext& context, const QStringList& arguments, const QString& userId) {
    if (!arguments.contains(QStringLiteral("--seed-data")))
        return;
    try {
        RecordQuery seeded;
        seeded.sourceDevice = seedDevice;
        if (const auto count = context.count(seeded); count > 0) {
            log(QStringLiteral("[Seed] Already seeded (%1 records)").arg(count));
            return;
        }
        log(QStringLiteral("[Seed] Inserting test data..."));
        log(QStringLiteral("[Seed] Using userId: '%1'").arg(userId));
        auto createdAt = QDateTime::currentDateTimeUtc();
        for (const auto& record : seedRecords()) {
            record->userId = userId;
            record->createdAt = createdAt;
            createdAt = createdAt.addSecs(-3 * 3600);
            context.insert(record);
        }
        context.save();
        log(QStringLiteral("[Seed] ✅ Inserted 7 test records"));
    } catch (const StoreError& error) {
        context.rollback();
        log(QStringLiteral("[Seed] ❌ Failed: %1").arg(error.message()), LogLevel::error);
    }
}

} // namespace quillo
