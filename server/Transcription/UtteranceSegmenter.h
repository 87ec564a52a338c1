#pragma once

#include "Transcription/EnergyVad.h"

#include <cstdint>
#include <span>
#include <vector>

namespace quillo::server {

/// Receives the utterances of a stream. Positions are samples from the start of the stream.
class UtteranceSink {
public:
    virtual ~UtteranceSink() = default;
    virtual void utteranceBegan(int64_t firstSample) = 0;
    virtual void utteranceAudio(std::span<const int16_t> samples) = 0;
    /// `cut`: the utterance was ended because of its length, and the next one continues it without a pause.
    virtual void utteranceEnded(int64_t endSample, bool cut) = 0;
    /// Called for each frame without speech.
    virtual void silence(int64_t position) = 0;
};

/// Cuts a stream of 16 kHz samples into utterances, each with a short lead-in. The cuts depend only on the samples,
/// never on the block sizes. Not thread-safe.
class UtteranceSegmenter {
public:
    static constexpr size_t preRollSamples = EnergyVad::sampleRate * 35 / 100;
    static constexpr int64_t longestUtterance = 30 * static_cast<int64_t>(EnergyVad::sampleRate);

    /// `sink` must outlive the segmenter.
    explicit UtteranceSegmenter(UtteranceSink& sink) : m_sink(sink) {}

    void push(std::span<const int16_t> samples);
    /// Call at the end of the stream; ends the current utterance.
    void finish();

private:
    void processFrame(std::span<const int16_t> frame);

    UtteranceSink& m_sink;
    EnergyVad m_vad;
    std::vector<int16_t> m_incomplete;
    std::vector<int16_t> m_preRoll;
    int64_t m_position = 0;
    int64_t m_utteranceStart = 0;
    bool m_speaking = false;
};

} // namespace quillo::server
