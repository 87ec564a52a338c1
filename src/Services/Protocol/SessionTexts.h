#pragma once

#include "Services/Protocol/ServerMessage.h"

#include <QString>

#include <optional>
#include <vector>

namespace quillo {

/// The texts of the session. They outlive the connection; `clearAllText` clears them.
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

    /// The first that exists of: the accumulated text, the meeting's plain text, the last partial, the text saved at a
    /// disconnect.
    [[nodiscard]] QString bestAvailableText() const;
    /// The meeting's plain text, otherwise the best available text.
    [[nodiscard]] QString textForInjection() const;
};

} // namespace quillo
