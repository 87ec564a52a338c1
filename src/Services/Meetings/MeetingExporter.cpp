#include "Services/Meetings/MeetingExporter.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace quillo::MeetingExporter {

namespace {

int64_t milliseconds(double seconds) {
    constexpr double longest = 1e12; // seconds; more would not fit below
    return seconds > 0 ? static_cast<int64_t>(std::min(seconds, longest) * 1000) : 0;
}

QString timestamp(int64_t time, QChar separator) {
    const auto digits = [](int64_t number, int width) {
        return QStringLiteral("%1").arg(number, width, 10, QChar(u'0'));
    };
    return digits(time / 3'600'000, 2) + u':' + digits(time / 60'000 % 60, 2) + u':' + digits(time / 1000 % 60, 2) +
           separator + digits(time % 1000, 3);
}

QString timeLine(const MeetingSegment& segment, QChar separator) {
    const auto start = milliseconds(segment.start);
    const auto end = std::max(start, milliseconds(segment.end));
    return timestamp(start, separator) + QStringLiteral(" --> ") + timestamp(end, separator);
}

/// Without empty lines, which would end the entry of a subtitle.
QString withoutEmptyLines(const QString& text) {
    static const QRegularExpression lineEnds(QStringLiteral("\\s*[\\r\\n\\x{2028}\\x{2029}]\\s*"));
    return text.trimmed().replace(lineEnds, QStringLiteral("\n"));
}

QString speakerOf(const MeetingSegment& segment, const Names& names) {
    return names.value(segment.speakerId, segment.speakerLabel).simplified();
}

QString spoken(const MeetingSegment& segment, const Names& names) {
    return speakerOf(segment, names) + QStringLiteral(": ") + withoutEmptyLines(segment.text);
}

QString escaped(QString text) {
    return text.replace(u'&', QStringLiteral("&amp;"))
        .replace(u'<', QStringLiteral("&lt;"))
        .replace(QStringLiteral("-->"), QStringLiteral("--&gt;"));
}

} // namespace

QString exportSRT(const QList<MeetingSegment>& segments, const Names& speakerNames) {
    QStringList lines;
    for (const auto& segment : segments)
        // Readers take a line with an arrow for the times of the next entry.
        lines << QString::number(lines.size() / 4 + 1) << timeLine(segment, u',')
              << spoken(segment, speakerNames).replace(QStringLiteral("-->"), QStringLiteral("→")) << QString();
    return lines.join(u'\n');
}

QString exportVTT(const QList<MeetingSegment>& segments, const Names& speakerNames) {
    QStringList lines{QStringLiteral("WEBVTT"), QString()};
    for (const auto& segment : segments)
        lines << timeLine(segment, u'.') << escaped(spoken(segment, speakerNames)) << QString();
    return lines.join(u'\n');
}

QString exportTXT(const QList<MeetingSegment>& segments, const Names& speakerNames) {
    QStringList paragraphs;
    for (const auto& segment : segments)
        paragraphs << QStringLiteral("[%1 - %2] ").arg(speakerOf(segment, speakerNames), segment.startFormatted()) +
                          segment.text;
    return paragraphs.join(QStringLiteral("\n\n"));
}

} // namespace quillo::MeetingExporter
