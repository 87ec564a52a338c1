#include "Meetings/MeetingText.h"

namespace quillo::server {

std::vector<MeetingSegment> segmentsOf(const std::vector<Transcript>& pieces) {
    std::vector<MeetingSegment> segments;
    segments.reserve(pieces.size());
    for (const Transcript& piece : pieces)
        segments.push_back({piece.text, {}, piece.source, piece.start, piece.end});
    return segments;
}

std::vector<MeetingSegment> segmentsOf(const Json& diarizationResult) {
    std::vector<MeetingSegment> segments;
    const auto list = diarizationResult.find("segments");
    if (list == diarizationResult.end())
        return segments;
    for (const Json& entry : *list) {
        segments.push_back({entry.value("text", ""), entry.value("speaker_label", ""),
                            sourceNamed(entry.value("source_channel", "")), entry.value("start", 0.0),
                            entry.value("end", 0.0)});
    }
    return segments;
}

std::string labeledText(const std::vector<MeetingSegment>& segments) {
    std::string text;
    for (const MeetingSegment& segment : segments) {
        text += text.empty() ? "" : "\n";
        text += segment.speaker.empty() ? segment.text : segment.speaker + ": " + segment.text;
    }
    return text;
}

} // namespace quillo::server
