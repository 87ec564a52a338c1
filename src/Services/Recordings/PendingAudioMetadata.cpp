#include "Services/Recordings/PendingAudioMetadata.h"

#include "Core/Json.h"

#include <algorithm>

namespace quillo {

namespace {

using json::Json;
using json::readOptional;

Json written(const QDateTime& time) { return json::of(time.toUTC().toString(Qt::ISODateWithMs)); }

QDateTime readTime(const QString& written, const char* key) {
    const auto time = QDateTime::fromString(written, Qt::ISODateWithMs);
    // Outside these years the clock or the file is wrong, and differences overflow.
    if (!time.isValid() || time.date().year() < 1970 || time.date().year() > 9999)
        json::reject(key, "a time in ISO 8601");
    return time.toUTC();
}

/// Counts, sizes and process ids are never negative.
template <class Integer>
void readCount(const Json& object, const char* key, Integer& field) {
    readOptional(object, key, field);
    if (field < 0)
        json::reject(key, "a whole number from 0");
}

template <class Integer>
void readCount(const Json& object, const char* key, std::optional<Integer>& field) {
    if (json::find(object, key))
        readCount(object, key, field.emplace());
}

} // namespace

QByteArray PendingAudioMetadata::encode() const {
    Json json;
    json["id"] = json::of(id);
    json["createdAt"] = written(createdAt);
    json["durationMs"] = durationMs;
    json["primaryLanguage"] = json::of(primaryLanguage);
    json["secondaryLanguage"] = json::of(secondaryLanguage);
    json["targetApp"] = json::of(targetApp);
    json["targetAppPid"] = std::max<qint64>(targetAppPid, 0);
    json["userId"] = json::of(userId);
    json["sampleRate"] = sampleRate;
    json["channels"] = channels;
    json["bitDepth"] = bitDepth;
    json["chunkCount"] = chunkCount;
    json["totalBytes"] = totalBytes;
    json["reason"] = json::of(reason);
    if (systemAudioId)
        json["systemAudioId"] = json::of(*systemAudioId);
    if (systemAudioChunkCount)
        json["systemAudioChunkCount"] = *systemAudioChunkCount;
    if (systemAudioTotalBytes)
        json["systemAudioTotalBytes"] = *systemAudioTotalBytes;
    if (completedAt)
        json["completedAt"] = written(*completedAt);
    if (clientRecordingId)
        json["clientRecordingId"] = json::of(*clientRecordingId);
    if (emptyResultCount)
        json["emptyResultCount"] = *emptyResultCount;
    return json::encode(json, 2);
}

PendingAudioMetadata PendingAudioMetadata::decode(const QByteArray& json) {
    const auto object = json::parseObject(json);
    PendingAudioMetadata metadata;
    json::readRequired(object, "id", metadata.id);
    QString createdAt;
    json::readRequired(object, "createdAt", createdAt);
    metadata.createdAt = readTime(createdAt, "createdAt");
    readCount(object, "durationMs", metadata.durationMs);
    readOptional(object, "primaryLanguage", metadata.primaryLanguage);
    readOptional(object, "secondaryLanguage", metadata.secondaryLanguage);
    readOptional(object, "targetApp", metadata.targetApp);
    readCount(object, "targetAppPid", metadata.targetAppPid);
    readOptional(object, "userId", metadata.userId);
    readCount(object, "sampleRate", metadata.sampleRate);
    readCount(object, "channels", metadata.channels);
    readCount(object, "bitDepth", metadata.bitDepth);
    readCount(object, "chunkCount", metadata.chunkCount);
    readCount(object, "totalBytes", metadata.totalBytes);
    readOptional(object, "reason", metadata.reason);
    readOptional(object, "systemAudioId", metadata.systemAudioId);
    readCount(object, "systemAudioChunkCount", metadata.systemAudioChunkCount);
    readCount(object, "systemAudioTotalBytes", metadata.systemAudioTotalBytes);
    std::optional<QString> completedAt;
    readOptional(object, "completedAt", completedAt);
    if (completedAt)
        metadata.completedAt = readTime(*completedAt, "completedAt");
    readOptional(object, "clientRecordingId", metadata.clientRecordingId);
    readCount(object, "emptyResultCount", metadata.emptyResultCount);
    return metadata;
}

} // namespace quillo
