#include "UI/Pill/PillPresentation.h"

#include "Core/Overloaded.h"

#include <QTextBoundaryFinder>

namespace quillo {

namespace {

/// More than the widest pill shows, so that the view does the final elision, yet short enough to lay out for every
/// partial.
constexpr qsizetype transcriptLength = 96;

PillPresentation presentActive(const RecordingState& state, const QString& partialText, const Translate& translate) {
    PillPresentation shown;
    shown.isHandsOff = state.isHandsOff;
    shown.targetName = state.activeApplicationName.value_or(QString());
    if (state.status.is<RecordingState::RecordingOffline>()) {
        shown.phase = PillPhase::recordingOffline;
        shown.text = translate(QStringLiteral("pill.offline"));
        return shown;
    }
    const bool connecting = state.status.is<RecordingState::Connecting>();
    shown.phase = connecting ? PillPhase::connecting : PillPhase::recording;
    const auto spoken = transcriptTail(partialText, transcriptLength);
    shown.isTranscript = !spoken.isEmpty();
    if (shown.isTranscript)
        shown.text = spoken;
    else if (!state.awaitedMicrophone.isEmpty())
        shown.text = translate(QStringLiteral("pill.waitingForMicrophone")).arg(state.awaitedMicrophone);
    else if (connecting)
        shown.text = translate(QStringLiteral("pill.connecting"));
    else if (shown.targetName.isEmpty())
        shown.text = translate(QStringLiteral("pill.listening"));
    else
        shown.text = translate(QStringLiteral("pill.listeningFor")).arg(shown.targetName);
    return shown;
}

} // namespace

QString inWords(const UserMessage& message, const Translate& translate) {
    auto text = translate(message.key);
    for (qsizetype i = 0; i < message.arguments.size(); ++i)
        text.replace(QLatin1Char('%') + QString::number(i + 1), message.arguments.at(i));
    return text;
}

PillPresentation presentPill(const RecordingState& state, const Translate& translate) {
    return std::visit(
        Overloaded{
            [&](const PillVisualState::Recording& recording) {
                return presentActive(state, recording.partialText, translate);
            },
            [&](const PillVisualState::ProcessingCommand& command) {
                return PillPresentation{.phase = PillPhase::command,
                                        .text = inWords(command.message, translate).simplified()};
            },
            [&](const PillVisualState::Error& error) {
                const bool cancelled = state.status.error() && state.status.error()->is<RecordingError::Cancelled>();
                return PillPresentation{.phase = cancelled ? PillPhase::cancelled : PillPhase::error,
                                        .text = inWords(error.message, translate).simplified()};
            },
            [](const PillVisualState::Idle&) { return PillPresentation{}; },
            [&](const PillVisualState::Hovering&) {
                return PillPresentation{.phase = PillPhase::hovering, .text = translate(QStringLiteral("pill.ready"))};
            },
            [&](const PillVisualState::Processing&) {
                return PillPresentation{.phase = PillPhase::processing,
                                        .text = translate(QStringLiteral("pill.processing"))};
            },
        },
        state.pillState());
}

QString phaseName(PillPhase phase) {
    switch (phase) {
    case PillPhase::hidden:
        return QStringLiteral("hidden");
    case PillPhase::hovering:
        return QStringLiteral("hovering");
    case PillPhase::connecting:
        return QStringLiteral("connecting");
    case PillPhase::recording:
        return QStringLiteral("recording");
    case PillPhase::recordingOffline:
        return QStringLiteral("recordingOffline");
    case PillPhase::processing:
        return QStringLiteral("processing");
    case PillPhase::command:
        return QStringLiteral("command");
    case PillPhase::hint:
        return QStringLiteral("hint");
    case PillPhase::cancelled:
        return QStringLiteral("cancelled");
    case PillPhase::error:
        return QStringLiteral("error");
    }
    return {};
}

QString transcriptTail(const QString& text, qsizetype maximum) {
    // Look only at the end: the partial text of a long dictation grows without bound.
    const auto line = text.right(4 * maximum).simplified();
    if (line.size() <= maximum && text.size() <= 4 * maximum)
        return line;
    const auto earliest = std::max<qsizetype>(0, line.size() - maximum);
    // Cut inside a word that is longer than a quarter of the space: scripts without spaces offer no other place.
    auto cut = line.indexOf(QLatin1Char(' '), std::max<qsizetype>(0, earliest - 1));
    if (cut < 0 || cut - earliest > maximum / 4) {
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, line);
        finder.setPosition(earliest);
        cut = finder.isAtBoundary() ? earliest : std::max<qsizetype>(earliest, finder.toNextBoundary());
    } else {
        ++cut;
    }
    return QChar(0x2026) + line.mid(cut);
}

QString elapsedText(qint64 seconds) {
    seconds = std::max<qint64>(0, seconds);
    const auto twoDigits = [](qint64 value) { return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0')); };
    if (seconds < 3600)
        return QString::number(seconds / 60) + QLatin1Char(':') + twoDigits(seconds % 60);
    return QString::number(seconds / 3600) + QLatin1Char(':') + twoDigits(seconds / 60 % 60) + QLatin1Char(':') +
           twoDigits(seconds % 60);
}

} // namespace quillo
