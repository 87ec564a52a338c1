#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace quillo {

/// `seconds` as "MM:SS" below one hour, otherwise as "H:MM:SS", without fractions; negative and undefined times count
/// as 0.
QString formatSegmentTime(double seconds);

/// Consecutive speech on one capture channel of a meeting.
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

/// A JSON array of objects with the fields' names as keys; nothing for any other `json`.
QByteArray encodeChannelSegments(const QList<ChannelSegment>& segments);
std::optional<QList<ChannelSegment>> decodeChannelSegments(const QByteArray& json);

} // namespace quillo
