#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace quillo {

/// `seconds` as "MM:SS" below one hour and "H:MM:SS" from one hour on, fractions cut off; negative and undefined times
/// read as 0.
QString formatSegmentTime(double seconds);

/// What one capture channel said, in a stretch of a meeting.
struct ChannelSegment {
    enum class Channel : uint8_t { microphone, system };

    Channel channel = Channel::microphone;
    QString channelLabel; ///< shown before the text
    QString text;
    double start = 0; ///< seconds from the start of the recording
    double end = 0;

    [[nodiscard]] QString startFormatted() const { return formatSegmentTime(start); }
    [[nodiscard]] QString endFormatted() const { return formatSegmentTime(end); }
    bool operator==(const ChannelSegment&) const = default;
};

/// A JSON array of objects with the fields' names as keys; nothing when `json` is no such array.
QByteArray encodeChannelSegments(const QList<ChannelSegment>& segments);
std::optional<QList<ChannelSegment>> decodeChannelSegments(const QByteArray& json);

} // namespace quillo
