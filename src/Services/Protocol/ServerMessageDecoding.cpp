#include "Services/Protocol/ServerMessageDecoding.h"

#include <QHash>
#include <QStringBuilder>

namespace quillo {

namespace {

TranscriptionResult transcript(const ResponseData& data) {
    return {.text = data.text.value_or(QString()),
            .language = data.language,
            .confidence = data.confidence,
            .wordCount = data.wordCount,
            .durationMs = data.durationMs,
            .speaker = data.speaker,
            .sourceChannel = data.sourceChannel,
            .segmentStart = data.segmentStart,
            .segmentEnd = data.segmentEnd};
}

QString number(double value) { return QString::number(value, 'g', 15); }

/// The text of the session, and the text that it replaced.
QString chooseFinalText(const ResponseData& data, SessionTexts& texts, QStringList& lines) {
    const auto raw = data.text && !data.text->isEmpty() ? *data.text : texts.accumulatedText;
    texts.commandWasApplied = data.commandApplied.value_or(false);
    texts.originalTextBeforeCommand.clear();
    texts.rawTextBeforeCleanup.clear();
    if (texts.commandWasApplied && data.processedText) {
        texts.originalTextBeforeCommand = data.originalText.value_or(raw);
        lines.append(QStringLiteral("[WebSocket] 🤖 Command applied, using processed text (len=%1), original (len=%2)")
                         .arg(data.processedText->size())
                         .arg(texts.originalTextBeforeCommand.size()));
        return *data.processedText;
    }
    if (data.cleanupApplied.value_or(false) && data.processedText) {
        texts.rawTextBeforeCleanup = raw;
        lines.append(QStringLiteral("[WebSocket] 🧹 Cleanup applied, using processed text (len=%1)")
                         .arg(data.processedText->size()));
        return *data.processedText;
    }
    return raw;
}

void keepMeeting(const ResponseData& data, SessionTexts& texts) {
    texts.plainTextForInjection = data.plainText.value_or(QString());
    texts.lastLabeledText = data.labeledText.value_or(QString());
    texts.lastSpeakerCount = data.speakerCount.value_or(0);
    texts.lastMeetingSegments = data.segments.value_or(std::vector<TranscriptSegment>());
    texts.lastChannelSegments = data.channels.value_or(std::vector<TranscriptSegment>());
    texts.lastMicOnlyFallback = data.micOnlyFallback.value_or(false);
    texts.lastDiarizationTaskId = data.diarizationTaskId;
    texts.lastDiarizationStatus = data.diarizationStatus;
    texts.lastMeetingSummary = data.summary.value_or(QString());
    texts.lastMeetingActionItems = data.actionItems.value_or(QString());
}

ServerMessage sessionStarted(const ResponseData& data, SessionTexts&, QStringList& lines) {
    const auto id = data.sessionId.value_or(QString());
    lines.append(QStringLiteral("[WebSocket] ✅ Session started: ") % id);
    return server::SessionStarted{id};
}

ServerMessage partialTranscript(const ResponseData& data, SessionTexts& texts, QStringList&) {
    texts.lastPartialText = data.text.value_or(QString());
    return server::PartialTranscript{transcript(data)};
}

ServerMessage finalTranscript(const ResponseData& data, SessionTexts& texts, QStringList& lines) {
    const auto text = data.text.value_or(QString());
    // Only its length: deleting the record removes the text of the whole dictation from the log, not that of its parts.
    lines.append(QStringLiteral("[WebSocket] 📝 Final transcript: %1 characters").arg(text.size()));
    if (!text.isEmpty()) {
        const bool needsBlank =
            !texts.accumulatedText.isEmpty() && !texts.accumulatedText.back().isSpace() && !text.front().isSpace();
        if (needsBlank)
            texts.accumulatedText += u' ';
        texts.accumulatedText += text;
    }
    return server::FinalTranscript{transcript(data)};
}

ServerMessage sessionEnded(const ResponseData& data, SessionTexts& texts, QStringList& lines) {
    server::SessionEnded ended;
    ended.text = chooseFinalText(data, texts, lines);
    keepMeeting(data, texts);
    texts.lastLanguageMismatch = data.languageMismatch;
    if (data.languageMismatch)
        lines.append(QStringLiteral("⚠️ Language mismatch: configured=%1, detected=%2, confidence=%3")
                         .arg(data.languageMismatch->configuredLanguage, data.languageMismatch->detectedLanguage,
                              number(data.languageMismatch->confidence)));
    ended.metricsId = data.metricsId;
    ended.transcriptionId = data.transcriptionId;
    ended.sttProvider = data.sttProvider;
    ended.languageDetected = data.languageDetected ? data.languageDetected : data.detectedLanguage;
    ended.totalWords = data.totalWords;
    ended.durationMs = data.durationMs;
    ended.commandApplied = texts.commandWasApplied;
    ended.cleanupApplied = data.cleanupApplied.value_or(false);
    ended.languageMismatch = data.languageMismatch;
    return ended;
}

ServerMessage error(const ResponseData& data, SessionTexts&, QStringList&) {
    return server::Error{data.code.value_or(QStringLiteral("UNKNOWN")),
                         data.message.value_or(QStringLiteral("Unknown error"))};
}

ServerMessage languageDetected(const ResponseData& data, SessionTexts&, QStringList& lines) {
    const server::LanguageDetected detected{data.language.value_or(QString()), data.confidence.value_or(0)};
    lines.append(QStringLiteral("[WebSocket] 🌐 Language detected: %1 (confidence: %2)")
                     .arg(detected.language, number(detected.confidence)));
    return detected;
}

ServerMessage commandDetected(const ResponseData& data, SessionTexts&, QStringList&) {
    return server::CommandDetected{data.commandText.value_or(QString()), data.commandType.value_or(QString())};
}

ServerMessage commandResult(const ResponseData& data, SessionTexts&, QStringList&) {
    return server::CommandResult{data.processedText.value_or(QString()), data.originalText.value_or(QString()),
                                 data.presetName};
}

ServerMessage meetingModeActivated(const ResponseData& data, SessionTexts&, QStringList& lines) {
    const auto time = data.timestamp.value_or(0);
    lines.append(QStringLiteral("[WebSocket] 🏢 Meeting mode activated at ") % number(time));
    return server::MeetingModeActivated{time};
}

ServerMessage meetingTextUpdate(const ResponseData& data, SessionTexts&, QStringList&) {
    return server::MeetingTextUpdate{data.text.value_or(QString()), data.speaker,
                                     data.channel ? data.channel : data.sourceChannel};
}

ServerMessage diarizationComplete(const ResponseData& data, SessionTexts&, QStringList&) {
    return server::DiarizationComplete{.taskId = data.taskId.value_or(QString()),
                                       .segments = data.segments.value_or(std::vector<TranscriptSegment>()),
                                       .labeledText = data.labeledText.value_or(QString()),
                                       .speakerCount = data.speakerCount.value_or(0),
                                       .summary = data.summary.value_or(QString()),
                                       .actionItems = data.actionItems.value_or(QString())};
}

ServerMessage diarizationFailed(const ResponseData& data, SessionTexts&, QStringList&) {
    return server::DiarizationFailed{data.taskId.value_or(QString()),
                                     data.error.value_or(QStringLiteral("Diarization failed"))};
}

template <class Message>
ServerMessage plain(const ResponseData&, SessionTexts&, QStringList&) {
    return Message{};
}

using Decode = ServerMessage (*)(const ResponseData&, SessionTexts&, QStringList&);

const QHash<QString, Decode>& decoders() {
    static const QHash<QString, Decode> table{
        {QStringLiteral("connected"), plain<server::Connected>},
        {QStringLiteral("session_started"), sessionStarted},
        {QStringLiteral("partial_transcript"), partialTranscript},
        {QStringLiteral("final_transcript"), finalTranscript},
        {QStringLiteral("session_ended"), sessionEnded},
        {QStringLiteral("error"), error},
        {QStringLiteral("language_detected"), languageDetected},
        {QStringLiteral("command_detected"), commandDetected},
        {QStringLiteral("command_processing"), plain<server::CommandProcessing>},
        {QStringLiteral("command_result"), commandResult},
        {QStringLiteral("meeting_mode_activated"), meetingModeActivated},
        {QStringLiteral("meeting_text_update"), meetingTextUpdate},
        {QStringLiteral("diarization_complete"), diarizationComplete},
        {QStringLiteral("diarization_failed"), diarizationFailed},
        {QStringLiteral("pong"), plain<server::Pong>},
    };
    return table;
}

} // namespace

ServerMessage decodeServerMessage(const ServerResponse& response, SessionTexts& texts, QStringList& lines) {
    if (const auto decode = decoders().value(response.type))
        return decode(response.data, texts, lines);
    lines.append(QStringLiteral("[WebSocket] ❓ Unknown message type: ") % response.type);
    return server::Unknown{response.type};
}

} // namespace quillo
