#pragma once

#include "Services/Protocol/ServerMessage.h"

#include <QString>

#include <optional>
#include <vector>

namespace quillo {

/// What the connection keeps of the session: survives the connection, cleared by `clearAllText`.
struct SessionTexts {
    QString accumulatedText; ///< final transcripts of the session joined together
    QString lastPartialText;
    QString savedTextFromDisconnect;
    bool hasRecoveredText = false;
    bool commandWasApplied = false;
    QString originalTextBeforeCommand;
    QString rawTextBeforeCleanup;
    int lastSpeakerCount = 0;
    QString plainTextForInjection;
    QString lastLabeledText;
    std::vector<TranscriptSegment> lastMeetingSegments;
    std::vector<TranscriptSegment> lastChannelSegments;
    bool lastMicOnlyFallback = false;
    std::optional<QString> lastDiarizationTaskId;
    std::optional<QString> lastDiarizationStatus;
    QString lastMeetingSummary;
    QString lastMeetingActionItems;
    std::optional<LanguageMismatch> lastLanguageMismatch;

    /// The accumulated text, else the meeting's plain text, else the last partial, else what was saved at a disconnect.
    [[nodiscard]] QString bestAvailableText() const;
    /// The meeting's plain text, else the best available.
    [[nodiscard]] QString textForInjection() const;
};

} // namespace quillo
