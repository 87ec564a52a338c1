#include "Core/Json.h"
#include "Data/Models/ChannelSegment.h"
#include "Data/Models/MeetingSegment.h"
#include "Data/Models/PersistedTextVersion.h"

#include <cmath>

namespace quillo {

namespace {

using json::Json;

const QString microphone = QStringLiteral("microphone");
const QString systemAudio = QStringLiteral("system");

std::optional<ChannelSegment::Channel> decodeChannel(const Json& item) {
    if (const auto name = json::value<QString>(item, "channel")) {
        if (*name == microphone)
            return ChannelSegment::Channel::microphone;
        if (*name == systemAudio)
            return ChannelSegment::Channel::system;
        return std::nullopt;
    }
    // Written by number in older files: 0 is the microphone.
    if (const auto number = json::value<double>(item, "channel"); number == 0.0 || number == 1.0)
        return number == 0.0 ? ChannelSegment::Channel::microphone : ChannelSegment::Channel::system;
    return std::nullopt;
}

/// JSON cannot express infinity; writing it would make the whole list unreadable.
double finite(double seconds) { return std::isfinite(seconds) ? seconds : 0; }

Json encodeChannel(ChannelSegment::Channel channel) {
    return json::of(channel == ChannelSegment::Channel::microphone ? microphone : systemAudio);
}

} // namespace

QString formatSegmentTime(double seconds) {
    // Beyond this a double cannot represent single seconds.
    constexpr double largest = 9e15;
    const auto whole = seconds > 0 ? static_cast<qint64>(std::min(seconds, largest)) : 0;
    const auto twoDigits = [](qint64 value) { return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0')); };
    const QString minutesAndSeconds = twoDigits(whole / 60 % 60) + u':' + twoDigits(whole % 60);
    return whole < 3600 ? minutesAndSeconds : QString::number(whole / 3600) + u':' + minutesAndSeconds;
}

QByteArray encodeChannelSegments(const QList<ChannelSegment>& segments) {
    Json array = Json::array();
    for (const auto& segment : segments)
        array.push_back({{"channel", encodeChannel(segment.channel)},
                         {"channelLabel", json::of(segment.channelLabel)},
                         {"text", json::of(segment.text)},
                         {"start", finite(segment.start)},
                         {"end", finite(segment.end)}});
    return json::encode(array);
}

std::optional<QList<ChannelSegment>> decodeChannelSegments(const QByteArray& json) {
    return json::decodeArray<ChannelSegment>(json, [](const Json& item) -> std::optional<ChannelSegment> {
        const auto channel = decodeChannel(item);
        const auto label = json::value<QString>(item, "channelLabel");
        const auto text = json::value<QString>(item, "text");
        const auto start = json::value<double>(item, "start");
        const auto end = json::value<double>(item, "end");
        if (!channel || !label || !text || !start || !end)
            return std::nullopt;
        return ChannelSegment{*channel, *label, *text, *start, *end};
    });
}

QByteArray encodeMeetingSegments(const QList<MeetingSegment>& segments) {
    Json array = Json::array();
    for (const auto& segment : segments)
        array.push_back({{"speakerId", json::of(segment.speakerId)},
                         {"speakerLabel", json::of(segment.speakerLabel)},
                         {"text", json::of(segment.text)},
                         {"start", finite(segment.start)},
                         {"end", finite(segment.end)}});
    return json::encode(array);
}

std::optional<QList<MeetingSegment>> decodeMeetingSegments(const QByteArray& json) {
    return json::decodeArray<MeetingSegment>(json, [](const Json& item) -> std::optional<MeetingSegment> {
        const auto id = json::value<QString>(item, "speakerId");
        const auto label = json::value<QString>(item, "speakerLabel");
        const auto text = json::value<QString>(item, "text");
        const auto start = json::value<double>(item, "start");
        const auto end = json::value<double>(item, "end");
        if (!id || !label || !text || !start || !end)
            return std::nullopt;
        return MeetingSegment{*id, *label, *text, *start, *end};
    });
}

QByteArray encodeTextVersions(const QList<PersistedTextVersion>& versions) {
    Json array = Json::array();
    for (const auto& version : versions)
        array.push_back({{"text", json::of(version.text)},
                         {"label", json::of(version.label)},
                         {"createdAt", json::of(version.createdAt.toUTC().toString(Qt::ISODateWithMs))}});
    return json::encode(array);
}

std::optional<QList<PersistedTextVersion>> decodeTextVersions(const QByteArray& json) {
    return json::decodeArray<PersistedTextVersion>(json, [](const Json& item) -> std::optional<PersistedTextVersion> {
        const auto text = json::value<QString>(item, "text");
        const auto label = json::value<QString>(item, "label");
        const auto createdAt = json::value<QString>(item, "createdAt");
        if (!text || !label || !createdAt)
            return std::nullopt;
        return PersistedTextVersion{*text, *label, QDateTime::fromString(*createdAt, Qt::ISODateWithMs)};
    });
}

} // namespace quillo
