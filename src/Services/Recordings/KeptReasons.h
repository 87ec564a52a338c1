#pragma once

#include <QString>

namespace quillo::pendingAudioFiles {

/// The "reason" of audio whose dictation has not ended: what a recovery finds after a crash.
inline const QString inProgressReason = QStringLiteral("in_progress");
/// Of audio in a language that the server does not understand: kept, and transcribed again when the user asks.
inline const QString languageReason = QStringLiteral("language_not_served");

} // namespace quillo::pendingAudioFiles
