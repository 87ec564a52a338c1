#pragma once

#include "Data/Models/ChannelSegment.h"

namespace quillo {

/// Consecutive speech of one speaker in a meeting.
struct MeetingSegment {
    QString speakerId;
    QString speakerLabel;
    QString text;
    double start = 0; ///< seconds from the start of the recording
    double end = 0;

    [[nodiscard]] QString startFormatted() const { return formatSegmentTime(start); }
    [[nodiscard]] QString endFormatted() const { return formatSegmentTime(end); }
    bool operator==(const MeetingSegment&) const = default;
};

/// A JSON array of objects with the fields' names as keys; nothing for any other `json`.
QByteArray encodeMeetingSegments(const QList<MeetingSegment>& segments);
std::optional<QList<MeetingSegment>> decodeMeetingSegments(const QByteArray& json);

} // namespace quillo
