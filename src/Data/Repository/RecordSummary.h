#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <cstdint>

namespace quillo {

/// The part of a record that a line of the history shows, without long texts and segments. A plain value.
struct RecordSummary {
    static constexpr int previewLength = 280; ///< characters

    QUuid id;
    QDateTime createdAt; ///< UTC
    QString title;       ///< empty: none was given
    QString preview;     ///< beginning of the text
    QString sourceApp;
    QString status;
    QString languageDetected;
    QStringList tagNames;
    QString audioId; ///< `effectiveAudioId`; empty without audio
    int64_t durationMs = 0;
    int64_t wordCount = 0;
    int64_t speakerCount = 0;
    bool isFavorite = false;
    bool isMeetingMode = false;
    bool operator==(const RecordSummary&) const = default;
};

} // namespace quillo
