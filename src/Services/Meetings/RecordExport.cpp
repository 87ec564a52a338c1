#include "Services/Meetings/RecordExport.h"

#include "Services/History/HistoryError.h"
#include "Services/Meetings/MeetingExporter.h"

namespace quillo::recordExport {

namespace {

QList<MeetingSegment> segmentsOf(const TranscriptionRecord& record) {
    if (const auto segments = record.meetingSegments(); segments && !segments->isEmpty())
        return *segments;
    QList<MeetingSegment> segments;
    for (const auto& segment : record.channelSegments().value_or(QList<ChannelSegment>()))
        segments.append({segment.channelLabel, segment.channelLabel, segment.text, segment.start, segment.end});
    return segments;
}

/// Characters that Markdown would take for marks are shown as they are.
QString markdownText(const QString& text) {
    QString escaped;
    for (const auto character : text) {
        if (QStringLiteral("\\`*_[]<>#|~").contains(character))
            escaped += u'\\';
        escaped += character;
    }
    return escaped.trimmed();
}

QString markdown(const TranscriptionRecord& record, const QList<MeetingSegment>& segments) {
    const auto names = record.speakerNames();
    auto text = QStringLiteral("# %1\n\n%2\n")
                    .arg(markdownText(record.displayTitle().simplified()),
                         record.createdAt.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm")));
    if (!record.meetingSummary.isEmpty())
        text += u'\n' + record.meetingSummary.trimmed() + u'\n';
    if (!record.meetingActionItems.isEmpty())
        text += u'\n' + record.meetingActionItems.trimmed() + u'\n';
    if (segments.isEmpty())
        text += u'\n' + markdownText(record.text) + u'\n';
    for (const auto& segment : segments)
        text += QStringLiteral("\n**%1** (%2): %3\n")
                    .arg(markdownText(names.value(segment.speakerId, segment.speakerLabel).simplified()),
                         segment.startFormatted(), markdownText(segment.text));
    return text;
}

} // namespace

std::optional<Format> formatOf(const QString& ending) {
    static const QMap<QString, Format> formats{{QStringLiteral("srt"), Format::srt},
                                               {QStringLiteral("vtt"), Format::vtt},
                                               {QStringLiteral("txt"), Format::txt},
                                               {QStringLiteral("md"), Format::markdown}};
    const auto found = formats.find(ending);
    return found == formats.end() ? std::nullopt : std::optional(*found);
}

QString exported(const TranscriptionRecord& record, Format format) {
    const auto segments = segmentsOf(record);
    const auto names = record.speakerNames();
    const bool isSubtitle = format == Format::srt || format == Format::vtt;
    if (isSubtitle && segments.isEmpty())
        throw HistoryError(HistoryError::Code::noSegments);
    switch (format) {
    case Format::srt:
        return MeetingExporter::exportSRT(segments, names);
    case Format::vtt:
        return MeetingExporter::exportVTT(segments, names);
    case Format::txt:
        return (segments.isEmpty() ? record.text : MeetingExporter::exportTXT(segments, names)) + u'\n';
    case Format::markdown:
        return markdown(record, segments);
    }
    return {};
}

} // namespace quillo::recordExport
