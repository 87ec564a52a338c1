#include "Transport/MeetingMessages.h"

#include <array>

namespace quillo::server {
namespace {

/// Within the server's bound on unread messages and the client's on a frame. Eight hours of speech are about 3 MB.
constexpr size_t maxFrameBytes = size_t{3} * 1024 * 1024;

Json describe(const MeetingSegment& segment) {
    Json json{{"text", segment.text}};
    if (!segment.speaker.empty())
        json["speaker"] = segment.speaker;
    if (segment.source != AudioSource::unknown)
        json["source_channel"] = nameOf(segment.source);
    json["segment_start"] = segment.start;
    json["segment_end"] = segment.end;
    return json;
}

Json describe(const std::vector<MeetingSegment>& segments) {
    Json list = Json::array();
    for (const MeetingSegment& segment : segments)
        list.push_back(describe(segment));
    return list;
}

/// The segments whose channel is known, by channel.
Json channelsOf(const std::vector<MeetingSegment>& segments) {
    Json channels = Json::object();
    for (const MeetingSegment& segment : segments) {
        if (segment.source != AudioSource::unknown)
            channels[std::string(nameOf(segment.source))]["segments"].push_back(describe(segment));
    }
    return channels;
}

} // namespace

std::string meetingModeActivatedMessage(double position, const std::optional<double>& switchTimestamp) {
    Json data{{"timestamp", position}};
    if (switchTimestamp)
        data["switch_timestamp"] = *switchTimestamp;
    return envelope("meeting_mode_activated", std::move(data));
}

std::string meetingTextUpdateMessage(const Transcript& piece) {
    Json data{{"text", piece.text}};
    if (piece.source != AudioSource::unknown) {
        data["channel"] = nameOf(piece.source);
        data["source_channel"] = nameOf(piece.source);
    }
    data["segment_start"] = piece.start;
    data["segment_end"] = piece.end;
    return envelope("meeting_text_update", std::move(data));
}

Json meetingEnd(const std::vector<Transcript>& pieces, bool isMicrophoneOnly, const std::optional<Task>& task) {
    const auto segments = segmentsOf(pieces);
    Json data{{"labeled_text", labeledText(segments)}};
    data["segments"] = describe(segments);
    data["channels"] = channelsOf(segments);
    data["speaker_count"] = 0; // not known before the separation
    data["mic_only_fallback"] = isMicrophoneOnly;
    if (task) {
        data["diarization_task_id"] = task->id;
        data["diarization_status"] = task->status == TaskStatus::failed ? "failed" : "processing";
    }
    // These fields need a language model.
    data["summary"] = "";
    data["action_items"] = "";
    return data;
}

std::string meetingEndedMessage(const SessionSummary& summary, Json meeting) {
    meeting["plain_text"] = summary.text;
    std::string frame = sessionEndedMessage(summary, meeting);
    for (const char* key : {"channels", "segments", "labeled_text"}) {
        if (frame.size() <= maxFrameBytes)
            break;
        meeting.erase(key);
        frame = sessionEndedMessage(summary, meeting);
    }
    return frame;
}

std::string diarizationMessage(const Task& task) {
    Json data{{"task_id", task.id}};
    const auto result = parseJson(task.result);
    if (task.status != TaskStatus::completed || !result) {
        data["error"] = task.error;
        data["code"] = task.errorCode;
        return envelope("diarization_failed", std::move(data));
    }
    const auto segments = segmentsOf(*result);
    data["segments"] = describe(segments);
    data["labeled_text"] = labeledText(segments);
    data["speaker_count"] = result->value("speaker_count", 0);
    data["summary"] = result->value("summary", "");
    data["action_items"] = result->value("action_items", "");
    return envelope("diarization_complete", std::move(data));
}

} // namespace quillo::server
