#include "Transcription/UtteranceSegmenter.h"

#include <algorithm>

namespace quillo::server {

void UtteranceSegmenter::push(std::span<const int16_t> samples) {
    while (!samples.empty()) {
        if (m_incomplete.empty() && samples.size() >= EnergyVad::frameSamples) {
            processFrame(samples.first(EnergyVad::frameSamples));
            samples = samples.subspan(EnergyVad::frameSamples);
            continue;
        }
        const size_t count = std::min(samples.size(), EnergyVad::frameSamples - m_incomplete.size());
        m_incomplete.insert(m_incomplete.end(), samples.begin(), samples.begin() + static_cast<ptrdiff_t>(count));
        samples = samples.subspan(count);
        if (m_incomplete.size() == EnergyVad::frameSamples) {
            processFrame(m_incomplete);
            m_incomplete.clear();
        }
    }
}

void UtteranceSegmenter::processFrame(std::span<const int16_t> frame) {
    const bool speech = m_vad.process(frame);
    m_position += static_cast<int64_t>(frame.size());
    if (speech && !m_speaking) {
        m_speaking = true;
        m_utteranceStart = m_position - static_cast<int64_t>(frame.size() + m_preRoll.size());
        m_sink.utteranceBegan(m_utteranceStart);
        if (!m_preRoll.empty())
            m_sink.utteranceAudio(m_preRoll);
        m_preRoll.clear();
    }
    if (!m_speaking) {
        m_preRoll.insert(m_preRoll.end(), frame.begin(), frame.end());
        if (m_preRoll.size() > preRollSamples)
            m_preRoll.erase(m_preRoll.begin(),
                            m_preRoll.begin() + static_cast<ptrdiff_t>(m_preRoll.size() - preRollSamples));
        m_sink.silence(m_position);
        return;
    }
    m_sink.utteranceAudio(frame);
    const bool tooLong = m_position - m_utteranceStart >= longestUtterance;
    if (!speech || tooLong) {
        m_speaking = false;
        m_sink.utteranceEnded(m_position, speech);
    }
}

void UtteranceSegmenter::finish() {
    m_position += static_cast<int64_t>(m_incomplete.size());
    if (m_speaking) {
        if (!m_incomplete.empty())
            m_sink.utteranceAudio(m_incomplete);
        m_speaking = false;
        m_sink.utteranceEnded(m_position, false);
    }
    m_incomplete.clear();
    m_preRoll.clear();
}

} // namespace quillo::server
