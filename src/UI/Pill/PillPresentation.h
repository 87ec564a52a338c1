#pragma once

#include "Features/Recording/RecordingState.h"

#include <QString>

#include <functional>

namespace quillo {

/// Looks up a text in the interface language.
using Translate = std::function<QString(const QString& key)>;

/// The text of `message`, its arguments filled in.
[[nodiscard]] QString inWords(const UserMessage& message, const Translate& translate);

enum class PillPhase {
    hidden,
    hovering,
    connecting,
    recording,
    recordingOffline,
    processing,
    command,
    hint,
    cancelled,
    error
};

/// What the pill shows, as a value that is compared to decide whether to redraw.
struct PillPresentation {
    PillPhase phase = PillPhase::hidden;
    QString text;
    /// True when `text` is what the user said and its end matters most; false for a message.
    bool isTranscript = false;
    QString targetName; ///< the application that will receive the text
    bool isHandsOff = false;

    bool operator==(const PillPresentation&) const = default;
};

/// The presentation of `state` without the hint, which stays on display longer than the state that raised it.
[[nodiscard]] PillPresentation presentPill(const RecordingState& state, const Translate& translate);

/// The phase's name, as used in QML.
[[nodiscard]] QString phaseName(PillPhase phase);

/// The end of `text` on one line, at most about `maximum` characters, cut between words where there are words and never
/// inside a grapheme; a cut is marked by an ellipsis in front.
[[nodiscard]] QString transcriptTail(const QString& text, qsizetype maximum);

/// "0:07", "12:34", "1:02:03".
[[nodiscard]] QString elapsedText(qint64 seconds);

} // namespace quillo
