#pragma once

#include "Transcription/PocketSphinx/Decoder.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace quillo::server {

/// Loads decoders on demand, gives each to one session at a time, and unloads unused ones after a while. Thread-safe;
/// must outlive its slots.
class DecoderPool {
public:
    /// `unloaded`, if given, is called from the pool's thread each time decoders were unloaded.
    DecoderPool(ModelFiles files, size_t limit, std::chrono::milliseconds idleUnload,
                std::function<void()> unloaded = {});
    DecoderPool(const DecoderPool&) = delete;
    DecoderPool& operator=(const DecoderPool&) = delete;
    ~DecoderPool();

    /// A place and its decoder; the destructor returns both.
    class Slot {
    public:
        explicit Slot(DecoderPool& pool) : m_pool(pool) {}
        Slot(const Slot&) = delete;
        Slot& operator=(const Slot&) = delete;
        ~Slot();
        /// A decoder without state of earlier sessions. The first call may load the model; throws
        /// RecogniserUnavailable.
        Decoder& decoder();

    private:
        DecoderPool& m_pool;
        std::unique_ptr<Decoder> m_decoder;
    };

    /// Null when all slots are taken. Never blocks on loading.
    std::unique_ptr<Slot> reserve();
    /// Decoders in memory that no session uses.
    [[nodiscard]] size_t idle() const;

private:
    using Instant = std::chrono::steady_clock::time_point;
    struct Idle {
        std::unique_ptr<Decoder> decoder;
        Instant since;
    };

    void giveBack(std::unique_ptr<Decoder> decoder);
    void unloadIdle();

    const ModelFiles m_files;
    const size_t m_limit;
    const std::chrono::milliseconds m_idleUnload;
    const std::function<void()> m_unloaded;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Idle> m_idle; // the most recently used last
    size_t m_reserved = 0;
    bool m_stopping = false;
    std::thread m_unloader;
};

} // namespace quillo::server
