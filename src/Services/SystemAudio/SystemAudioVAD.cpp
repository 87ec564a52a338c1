#include "Services/SystemAudio/SystemAudioVAD.h"

#include "Core/Log.h"

#include <algorithm>
#include <cmath>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level) { appLog(message, level, QStringLiteral("SystemAudioVAD")); }

QString decimals(double value, int count) { return QString::number(value, 'f', count); }

QString word(bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); }

} // namespace

void SystemAudioVAD::feedLevel(float level) {
    const std::lock_guard lock(m_mutex);
    auto& figures = m_figures;
    ++figures.totalFrames;
    // The comparisons are written so that NaN counts as silence.
    if (level > figures.peakLevel)
        figures.peakLevel = level;
    if (level >= speechThreshold)
        hearSpeech(level);
    else
        hearSilence();
    if (figures.totalFrames % logInterval == 0)
        log(QStringLiteral("VAD stats: frames=%1 speechNow=%2 speechEver=%3 peak=%4 threshold=0.001")
                .arg(figures.totalFrames)
                .arg(word(figures.speechDetected), word(figures.speechEverDetected), decimals(figures.peakLevel, 6)),
            LogLevel::debug);
}

void SystemAudioVAD::hearSpeech(float level) {
    auto& figures = m_figures;
    figures.consecutiveSilenceFrames = 0;
    ++figures.consecutiveSpeechFrames;
    ++figures.totalSpeechFrames;
    figures.speechLevelSum += level;
    if (figures.speechDetected || figures.consecutiveSpeechFrames < speechOnsetFrames)
        return;
    figures.speechDetected = true;
    ++figures.speechBurstCount;
    if (std::exchange(figures.speechEverDetected, true))
        return;
    log(QStringLiteral("Speech detected in system audio (peak=%1, avg=%2, bursts=%3)")
            .arg(decimals(figures.peakLevel, 4),
                 decimals(figures.speechLevelSum / static_cast<double>(figures.totalSpeechFrames), 4))
            .arg(figures.speechBurstCount),
        LogLevel::info);
}

void SystemAudioVAD::hearSilence() {
    auto& figures = m_figures;
    figures.consecutiveSpeechFrames = 0;
    ++figures.consecutiveSilenceFrames;
    if (figures.consecutiveSilenceFrames >= speechOffsetFrames)
        figures.speechDetected = false;
}

void SystemAudioVAD::reset() {
    const std::lock_guard lock(m_mutex);
    m_figures = {};
}

bool SystemAudioVAD::speechDetected() const {
    const std::lock_guard lock(m_mutex);
    return m_figures.speechDetected;
}

bool SystemAudioVAD::speechEverDetected() const {
    const std::lock_guard lock(m_mutex);
    return m_figures.speechEverDetected;
}

int64_t SystemAudioVAD::speechBurstCount() const {
    const std::lock_guard lock(m_mutex);
    return m_figures.speechBurstCount;
}

int64_t SystemAudioVAD::totalSpeechFrames() const {
    const std::lock_guard lock(m_mutex);
    return m_figures.totalSpeechFrames;
}

} // namespace quillo
