#include "App/CommandLine/HistoryText.h"

#include "Core/Json.h"

namespace quillo::historyText {

namespace {

using json::Json;

constexpr qsizetype applicationWidth = 18;
constexpr qsizetype titleWidth = 64;

QString shortId(const QUuid& id) { return id.toString(QUuid::WithoutBraces).left(shownIdLength); }

QString elided(const QString& text, qsizetype width) {
    if (text.size() <= width)
        return text;
    auto end = width - 1;
    if (text.at(end - 1).isHighSurrogate())
        --end;
    return text.left(end) + u'…';
}

QString duration(int64_t milliseconds) { return formatSegmentTime(static_cast<double>(milliseconds) / 1000); }

QString line(const RecordSummary& record, const QTimeZone& zone) {
    QString title = record.title.isEmpty() ? record.preview : record.title;
    title = elided(plain(title).simplified(), titleWidth);
    if (record.status != RecordStatus::completed)
        title = QStringLiteral("(%1) %2").arg(plain(record.status), title).trimmed();
    if (record.isFavorite)
        title.prepend(QStringLiteral("★ "));
    for (const auto& tag : record.tagNames)
        title += QStringLiteral("  #") + plain(tag).simplified();
    return QStringLiteral("%1  %2  %3  %4  %5\n")
        .arg(shortId(record.id), record.createdAt.toTimeZone(zone).toString(QStringLiteral("yyyy-MM-dd HH:mm")),
             duration(record.durationMs).rightJustified(7),
             elided(plain(record.sourceApp).simplified(), applicationWidth).leftJustified(applicationWidth), title);
}

Json jsonOf(const std::optional<QString>& text) { return text ? json::of(*text) : Json(nullptr); }

Json objectOf(const TranscriptionRecord& record) {
    return {{"id", jsonOf(record.id.toString(QUuid::WithoutBraces))},
            {"created_at", json::of(record.createdAt.toUTC().toString(Qt::ISODateWithMs))},
            {"status", jsonOf(record.status)},
            {"title", jsonOf(record.title)},
            {"text", jsonOf(record.text)},
            {"language", jsonOf(record.languageDetected)},
            {"source_app", jsonOf(record.sourceApp)},
            {"duration_ms", record.durationMs},
            {"word_count", record.wordCount},
            {"tags", json::of(record.tagNames())},
            {"is_favorite", record.isFavorite},
            {"is_meeting", record.isMeetingMode},
            {"speaker_count", record.speakerCount},
            {"audio_id", jsonOf(record.effectiveAudioId())}};
}

QByteArray written(const Json& json) { return json::encode(json, 2) + '\n'; }

QString speakerOf(const MeetingSegment& segment, const QMap<QString, QString>& names) {
    return names.value(segment.speakerId, segment.speakerLabel);
}

} // namespace

QString plain(const QString& text) {
    QString result;
    result.reserve(text.size());
    for (const auto character : text)
        // A terminal interprets these as commands; line ends and tabs are harmless.
        if (character == u'\n' || character == u'\t' || character.category() != QChar::Other_Control)
            result += character;
    return result;
}

QString list(const QList<RecordSummary>& records, const QTimeZone& zone) {
    QString lines;
    for (const auto& record : records)
        lines += line(record, zone);
    return lines;
}

QString details(const TranscriptionRecord& record, const QTimeZone& zone) {
    QString text;
    const auto add = [&text](const QString& name, const QString& value) {
        if (!value.isEmpty())
            text += (name + u':').leftJustified(13) + plain(value).simplified() + u'\n';
    };
    add(QStringLiteral("id"), record.id.toString(QUuid::WithoutBraces));
    add(QStringLiteral("created"), record.createdAt.toTimeZone(zone).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));
    add(QStringLiteral("status"), record.status);
    add(QStringLiteral("title"), record.title.value_or(QString()));
    add(QStringLiteral("application"), record.sourceApp.value_or(QString()));
    add(QStringLiteral("language"), record.languageDetected.value_or(QString()));
    add(QStringLiteral("duration"), duration(record.durationMs));
    add(QStringLiteral("words"), QString::number(record.wordCount));
    add(QStringLiteral("tags"), record.tagNames().join(QStringLiteral(", ")));
    add(QStringLiteral("audio"), record.hasAudioOnDisk() ? audioPath(*record.effectiveAudioId()) : QString());
    const auto segments = record.meetingSegments().value_or(QList<MeetingSegment>());
    if (segments.isEmpty() && !record.text.isEmpty())
        text += u'\n' + plain(record.text) + u'\n';
    if (!segments.isEmpty())
        text += u'\n';
    const auto names = record.speakerNames();
    for (const auto& segment : segments)
        text += QStringLiteral("[%1] %2: %3\n")
                    .arg(segment.startFormatted(), plain(speakerOf(segment, names)).simplified(), plain(segment.text));
    const auto addPart = [&text](const QString& heading, const QString& part) {
        if (!part.isEmpty())
            text += u'\n' + heading + u'\n' + plain(part) + u'\n';
    };
    addPart(QStringLiteral("Summary"), record.meetingSummary);
    addPart(QStringLiteral("Action items"), record.meetingActionItems);
    return text;
}

QByteArray jsonList(const QList<RecordPointer>& records) {
    auto array = Json::array();
    for (const auto& record : records)
        array.push_back(objectOf(*record));
    return written(array);
}

QByteArray jsonDetails(const TranscriptionRecord& record) {
    auto object = objectOf(record);
    object["raw_text"] = jsonOf(record.rawText);
    auto segments = Json::array();
    const auto names = record.speakerNames();
    for (const auto& segment : record.meetingSegments().value_or(QList<MeetingSegment>()))
        segments.push_back({{"speaker", jsonOf(speakerOf(segment, names))},
                            {"text", jsonOf(segment.text)},
                            {"start", segment.start},
                            {"end", segment.end}});
    object["segments"] = segments;
    object["summary"] = jsonOf(record.meetingSummary);
    object["action_items"] = jsonOf(record.meetingActionItems);
    return written(object);
}

} // namespace quillo::historyText
