#include "Data/Models/TranscriptionRecord.h"

#include "Core/Json.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <limits>
#include <stdexcept>

namespace quillo {

namespace {

constexpr qsizetype derivedTitleLength = 60;

std::optional<QByteArray> orNothing(const QByteArray& bytes, bool isEmpty) {
    return isEmpty ? std::nullopt : std::optional(bytes);
}

int64_t oneMore(int64_t count) {
    if (count == std::numeric_limits<int64_t>::max())
        throw std::overflow_error("a counter of the record has reached its end");
    return count + 1;
}

/// Joins consecutive texts of the same speaker: one paragraph for each turn.
template <typename Segment, typename Key>
QString mergeConsecutiveTexts(const QList<Segment>& segments, Key speakerKey) {
    QStringList paragraphs;
    const Segment* previous = nullptr;
    for (const auto& segment : segments) {
        const auto text = segment.text.trimmed();
        if (text.isEmpty())
            continue;
        if (previous && speakerKey(segment) == speakerKey(*previous))
            paragraphs.last() += u' ' + text;
        else
            paragraphs.append(text);
        previous = &segment;
    }
    return paragraphs.join(u'\n');
}

} // namespace

TranscriptionRecord::TranscriptionRecord(const QString& newUserId, const QString& newText, const QString& newSessionId,
                                         const std::optional<QString>& language, int64_t duration, int64_t words,
                                         const std::optional<QString>& app, const std::optional<QString>& metricsId,
                                         const QString& newStatus, const std::optional<QString>& pendingAudio,
                                         const std::optional<QString>& device) {
    userId = newUserId;
    text = newText;
    sessionId = newSessionId;
    languageDetected = language;
    durationMs = duration;
    wordCount = words;
    sourceApp = app;
    metricsServerId = metricsId;
    status = newStatus;
    pendingAudioId = pendingAudio;
    sourceDevice = device;
}

RecordPointer TranscriptionRecord::recordingInProgress(const QString& userId, const std::optional<QString>& sourceApp,
                                                       bool isMeetingMode) {
    auto record = std::make_shared<TranscriptionRecord>(userId, QString(), QString());
    record->sourceApp = sourceApp;
    record->isMeetingMode = isMeetingMode;
    record->status = RecordStatus::recording;
    // The device word that every client of the history knows; see docs/compatibility.md.
    record->sourceDevice = QStringLiteral("macOS");
    return record;
}

void TranscriptionRecord::markCompleted(const QString& newText, const QString& newSessionId) {
    text = newText;
    sessionId = newSessionId;
    status = RecordStatus::completed;
}

void TranscriptionRecord::applyDiarization(const QList<MeetingSegment>& segments, const QString& plainText,
                                           int64_t speakers, const std::optional<QString>& summary,
                                           const std::optional<QString>& actionItems) {
    setMeetingSegments(segments);
    text = plainText;
    speakerCount = speakers;
    if (summary)
        meetingSummary = *summary;
    if (actionItems)
        meetingActionItems = *actionItems;
    status = RecordStatus::completed;
}

void TranscriptionRecord::markRetryAttempt() {
    retryCount = oneMore(retryCount);
    lastRetryAt = QDateTime::currentDateTimeUtc();
}

bool TranscriptionRecord::incrementEmptyResultCount() {
    emptyResultCount = oneMore(emptyResultCount);
    return emptyResultCount >= 2;
}

void TranscriptionRecord::markMetricsReported(const QString& metricsId) {
    metricsServerId = metricsId;
    metricsReported = true;
}

void TranscriptionRecord::migratePendingAudioToRetainedIfNeeded() {
    if (pendingAudioId)
        audioRetainedId = std::exchange(pendingAudioId, std::nullopt);
}

void TranscriptionRecord::addTag(const QString& name) {
    auto names = tagNames();
    if (names.contains(name))
        return;
    names.append(name);
    setTagNames(names);
}

void TranscriptionRecord::removeTag(const QString& name) {
    auto names = tagNames();
    if (names.removeAll(name) > 0)
        setTagNames(names);
}

void TranscriptionRecord::saveVersions(const QList<PersistedTextVersion>& versions) {
    textVersionsData = encodeTextVersions(versions);
}

QStringList TranscriptionRecord::tagNames() const {
    return tagNamesData ? decodeTagNames(*tagNamesData) : QStringList();
}

void TranscriptionRecord::setTagNames(const QStringList& names) {
    tagNamesData = orNothing(encodeTagNames(names), names.isEmpty());
}

QMap<QString, QString> TranscriptionRecord::speakerNames() const {
    const auto json = speakerNamesData ? json::parse(*speakerNamesData) : std::nullopt;
    if (!json || !json->is_object())
        return {};
    QMap<QString, QString> names;
    for (const auto& [id, name] : json->items()) {
        if (!name.is_string())
            return {};
        names.insert(QString::fromStdString(id), json::textOf(name));
    }
    return names;
}

void TranscriptionRecord::setSpeakerNames(const QMap<QString, QString>& names) {
    auto json = json::Json::object();
    for (auto name = names.begin(); name != names.end(); ++name)
        json[name.key().toStdString()] = json::of(name.value());
    speakerNamesData = orNothing(json::encode(json), names.isEmpty());
}

std::optional<QList<MeetingSegment>> TranscriptionRecord::meetingSegments() const {
    return meetingSegmentsData ? decodeMeetingSegments(*meetingSegmentsData) : std::nullopt;
}

void TranscriptionRecord::setMeetingSegments(const std::optional<QList<MeetingSegment>>& segments) {
    meetingSegmentsData = segments ? std::optional(encodeMeetingSegments(*segments)) : std::nullopt;
}

std::optional<QList<ChannelSegment>> TranscriptionRecord::channelSegments() const {
    return channelSegmentsData ? decodeChannelSegments(*channelSegmentsData) : std::nullopt;
}

void TranscriptionRecord::setChannelSegments(const std::optional<QList<ChannelSegment>>& segments) {
    channelSegmentsData = segments ? std::optional(encodeChannelSegments(*segments)) : std::nullopt;
}

QList<PersistedTextVersion> TranscriptionRecord::persistedVersions() const {
    return textVersionsData ? decodeTextVersions(*textVersionsData).value_or(QList<PersistedTextVersion>())
                            : QList<PersistedTextVersion>();
}

QString TranscriptionRecord::displayTitle() const {
    if (title && !title->isEmpty())
        return *title;
    // Enough for the shortened text, even with much white space.
    const auto line = text.left(4 * derivedTitleLength).simplified();
    if (line.size() <= derivedTitleLength)
        return line;
    auto end = derivedTitleLength;
    if (line.at(end).isLowSurrogate())
        --end;
    return line.left(end).trimmed() + u'…';
}

QString TranscriptionRecord::meetingPlainText() const {
    if (const auto segments = meetingSegments(); segments && !segments->isEmpty())
        return mergeConsecutiveTexts(*segments, [](const MeetingSegment& segment) { return segment.speakerId; });
    if (const auto segments = channelSegments(); segments && !segments->isEmpty())
        return mergeConsecutiveTexts(*segments, [](const ChannelSegment& segment) { return segment.channel; });
    return liveMeetingPlainText.isEmpty() ? text : liveMeetingPlainText;
}

std::optional<QString> TranscriptionRecord::effectiveAudioId() const {
    return pendingAudioId ? pendingAudioId : audioRetainedId;
}

bool TranscriptionRecord::hasAudioOnDisk() const {
    const auto id = effectiveAudioId();
    const auto path = id ? audioPath(*id) : QString();
    return !path.isEmpty() && QFileInfo(path).isFile();
}

bool TranscriptionRecord::isBusy() const {
    return status == RecordStatus::recording || status == RecordStatus::processing || status == RecordStatus::diarizing;
}

QStringList decodeTagNames(const QByteArray& json) {
    const auto names = json::decodeArray<QString>(json, [](const json::Json& item) -> std::optional<QString> {
        if (!item.is_string())
            return std::nullopt;
        return json::textOf(item);
    });
    return names.value_or(QStringList());
}

QByteArray encodeTagNames(const QStringList& names) { return json::encode(json::of(names)); }

int64_t countWords(const QString& text) {
    int64_t words = 0;
    bool inWord = false;
    for (const auto character : text) {
        words += !inWord && !character.isSpace() ? 1 : 0;
        inWord = !character.isSpace();
    }
    return words;
}

QString audioPath(const QString& id) {
    if (id.isEmpty() || id.contains(u'/') || id.contains(QChar::Null) || id.startsWith(u'.'))
        return {};
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/QuilloSpeech/pending-audio/") + id + QStringLiteral(".pcm");
}

} // namespace quillo
