#include "Features/Recording/StartStopSounds.h"

namespace quillo {

void playSound(const RecordingRun& run, SoundCue cue) {
    const bool isCancel = cue == SoundCue::cancel;
    const auto name = isCancel ? QStringLiteral("Basso") : QStringLiteral("Pop");
    const double volume = isCancel ? 0.5 : 0.3;
    const auto label = cue == SoundCue::start  ? QStringLiteral("Start")
                       : cue == SoundCue::stop ? QStringLiteral("Stop")
                                               : QStringLiteral("Cancel");
    if (!run.preferences.playSound)
        recordingLog(QStringLiteral("🔇 %1 sound skipped (disabled in settings)").arg(label));
    else if (run.services.sounds.play(name, volume))
        recordingLog(QStringLiteral("🔊 Played %1 sound (%2, volume %3)").arg(label.toLower(), name).arg(volume));
    else
        recordingLog(QStringLiteral("⚠️ %1 sound '%2' not found").arg(label, name), LogLevel::warn);
}

} // namespace quillo
