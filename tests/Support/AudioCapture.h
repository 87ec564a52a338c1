#pragma once

#include "Services/Microphone/AudioServiceProtocol.h"
#include "Support/Async.h"

#include <cstring>

namespace quillo::test {

/// A consumer that takes every chunk of a capture. Destroying it drops the stream.
class AudioCapture {
public:
    /// Starts a capture of `service`; throws what the start throws.
    explicit AudioCapture(AudioServiceProtocol& service) : AudioCapture(await(service.startCapture())) {}
    explicit AudioCapture(AsyncStream<AudioChunk> stream) { consume(m_state, std::move(stream)); }
    ~AudioCapture() { cancel(); }
    AudioCapture(const AudioCapture&) = delete;
    AudioCapture& operator=(const AudioCapture&) = delete;

    void cancel() { m_state->stop.request_stop(); }
    [[nodiscard]] const std::vector<AudioChunk>& chunks() const { return m_state->chunks; }
    [[nodiscard]] bool hasEnded() const { return m_state->ended; }
    /// The error of the stream; empty when it ended without one.
    [[nodiscard]] const std::string& error() const { return m_state->error; }

    bool waitForEnd() {
        return waitUntil([this] { return hasEnded(); });
    }
    /// Waits for `count` more samples.
    bool waitForMore(size_t count) {
        const auto wanted = sampleCount() + count;
        return waitUntil([&] { return sampleCount() >= wanted; });
    }
    [[nodiscard]] size_t sampleCount() const { return m_state->samples.size(); }
    [[nodiscard]] const std::vector<int16_t>& samples() const { return m_state->samples; }

private:
    struct State {
        std::stop_source stop;
        std::vector<AudioChunk> chunks;
        std::vector<int16_t> samples;
        std::string error;
        bool ended = false;
    };

    static Task<> consume(std::shared_ptr<State> state, AsyncStream<AudioChunk> stream) {
        try {
            while (auto chunk = co_await stream.next(state->stop.get_token())) {
                const auto old = state->samples.size();
                state->samples.resize(old + static_cast<size_t>(chunk->data.size()) / sizeof(int16_t));
                std::memcpy(state->samples.data() + old, chunk->data.constData(),
                            static_cast<size_t>(chunk->data.size()));
                state->chunks.push_back(std::move(*chunk));
            }
        } catch (const std::exception& error) {
            state->error = error.what();
        }
        state->ended = true;
    }

    std::shared_ptr<State> m_state = std::make_shared<State>();
};

} // namespace quillo::test
