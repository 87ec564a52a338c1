#include "Services/Recordings/PendingAudioMetadata.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace quillo {

namespace {

using Json = nlohmann::ordered_json;

std::string text(const QString& value) { return value.toStdString(); }
std::string text(const QDateTime& value) { return text(value.toUTC().toString(Qt::ISODateWithMs)); }

[[noreturn]] void reject(const char* key, const char* expected) {
    throw std::runtime_error(std::string("\"") + key + "\" must be " + expected);
}

void read(const Json& value, const char* key, QString& field) {
    if (!value.is_string())
        reject(key, "a text");
    field = QString::fromStdString(value.get_ref<const std::string&>());
}

void read(const Json& value, const char* key, QDateTime& field) {
    QString written;
    read(value, key, written);
    field = QDateTime::fromString(written, Qt::ISODateWithMs);
    // Outside these years the clock or the file is wrong, and differences overflow.
    if (!field.isValid() || field.date().year() < 1970 || field.date().year() > 9999)
        reject(key, "a time in ISO 8601");
    field = field.toUTC();
}

template <class Integer>
void read(const Json& value, const char* key, Integer& field) {
    // Counts, sizes and process ids are never negative, and an unsigned number beyond the type would wrap.
    if (!value.is_number_unsigned() ||
        value.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<Integer>::max()))
        reject(key, "a whole number from 0");
    field = value.get<Integer>();
}

template <class Field>
void readOptional(const Json& object, const char* key, Field& field) {
    const auto found = object.find(key);
    if (found != object.end() && !found->is_null())
        read(*found, key, field);
}

template <class Value>
void readOptional(const Json& object, const char* key, std::optional<Value>& field) {
    const auto found = object.find(key);
    if (found != object.end() && !found->is_null())
        read(*found, key, field.emplace());
}

template <class Field>
void readRequired(const Json& object, const char* key, Field& field) {
    const auto found = object.find(key);
    if (found == object.end())
        throw std::runtime_error(std::string("\"") + key + "\" is missing");
    read(*found, key, field);
}

} // namespace

QByteArray PendingAudioMetadata::encode() const {
    Json json;
    json["id"] = text(id);
    json["createdAt"] = text(createdAt);
    json["durationMs"] = durationMs;
    json["primaryLanguage"] = text(primaryLanguage);
    json["secondaryLanguage"] = text(secondaryLanguage);
    json["targetApp"] = text(targetApp);
    json["targetAppPid"] = std::max<qint64>(targetAppPid, 0);
    json["userId"] = text(userId);
    json["sampleRate"] = sampleRate;
    json["channels"] = channels;
    json["bitDepth"] = bitDepth;
    json["chunkCount"] = chunkCount;
    json["totalBytes"] = totalBytes;
    json["reason"] = text(reason);
    if (systemAudioId)
        json["systemAudioId"] = text(*systemAudioId);
    if (systemAudioChunkCount)
        json["systemAudioChunkCount"] = *systemAudioChunkCount;
    if (systemAudioTotalBytes)
        json["systemAudioTotalBytes"] = *systemAudioTotalBytes;
    if (completedAt)
        json["completedAt"] = text(*completedAt);
    if (clientRecordingId)
        json["clientRecordingId"] = text(*clientRecordingId);
    if (emptyResultCount)
        json["emptyResultCount"] = *emptyResultCount;
    // A window title may contain half a surrogate pair, which must not make the metadata unreadable.
    return QByteArray::fromStdString(json.dump(2, ' ', false, Json::error_handler_t::replace));
}

PendingAudioMetadata PendingAudioMetadata::decode(const QByteArray& json) {
    const auto object = Json::parse(json.begin(), json.end(), nullptr, false);
    if (!object.is_object())
        throw std::runtime_error("it is not a JSON object");
    PendingAudioMetadata metadata;
    readRequired(object, "id", metadata.id);
    readRequired(object, "createdAt", metadata.createdAt);
    readOptional(object, "durationMs", metadata.durationMs);
    readOptional(object, "primaryLanguage", metadata.primaryLanguage);
    readOptional(object, "secondaryLanguage", metadata.secondaryLanguage);
    readOptional(object, "targetApp", metadata.targetApp);
    readOptional(object, "targetAppPid", metadata.targetAppPid);
    readOptional(object, "userId", metadata.userId);
    readOptional(object, "sampleRate", metadata.sampleRate);
    readOptional(object, "channels", metadata.channels);
    readOptional(object, "bitDepth", metadata.bitDepth);
    readOptional(object, "chunkCount", metadata.chunkCount);
    readOptional(object, "totalBytes", metadata.totalBytes);
    readOptional(object, "reason", metadata.reason);
    readOptional(object, "systemAudioId", metadata.systemAudioId);
    readOptional(object, "systemAudioChunkCount", metadata.systemAudioChunkCount);
    readOptional(object, "systemAudioTotalBytes", metadata.systemAudioTotalBytes);
    readOptional(object, "completedAt", metadata.completedAt);
    readOptional(object, "clientRecordingId", metadata.clientRecordingId);
    readOptional(object, "emptyResultCount", metadata.emptyResultCount);
    return metadata;
}

} // namespace quillo
