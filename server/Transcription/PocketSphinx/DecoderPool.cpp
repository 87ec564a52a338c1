#include "Transcription/PocketSphinx/DecoderPool.h"

#include <malloc.h>

namespace quillo::server {

DecoderPool::DecoderPool(ModelFiles files, size_t limit, std::chrono::milliseconds idleUnload,
                         std::function<void()> unloaded)
    : m_files(std::move(files)), m_limit(limit), m_idleUnload(idleUnload), m_unloaded(std::move(unloaded)),
      m_unloader([this] { unloadIdle(); }) {}

DecoderPool::~DecoderPool() {
    {
        const std::scoped_lock lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_one();
    m_unloader.join();
}

DecoderPool::Slot::~Slot() { m_pool.giveBack(std::move(m_decoder)); }

Decoder& DecoderPool::Slot::decoder() {
    if (m_decoder)
        return *m_decoder;
    {
        const std::scoped_lock lock(m_pool.m_mutex);
        if (!m_pool.m_idle.empty()) {
            m_decoder = std::move(m_pool.m_idle.back().decoder);
            m_pool.m_idle.pop_back();
        }
    }
    if (!m_decoder)
        m_decoder = std::make_unique<Decoder>(m_pool.m_files);
    m_decoder->reset();
    return *m_decoder;
}

std::unique_ptr<DecoderPool::Slot> DecoderPool::reserve() {
    const std::scoped_lock lock(m_mutex);
    if (m_reserved == m_limit)
        return nullptr;
    ++m_reserved;
    return std::make_unique<Slot>(*this);
}

size_t DecoderPool::idle() const {
    const std::scoped_lock lock(m_mutex);
    return m_idle.size();
}

void DecoderPool::giveBack(std::unique_ptr<Decoder> decoder) {
    {
        const std::scoped_lock lock(m_mutex);
        --m_reserved;
        if (!decoder)
            return;
        m_idle.push_back({std::move(decoder), std::chrono::steady_clock::now()});
    }
    m_changed.notify_one();
}

void DecoderPool::unloadIdle() {
    std::unique_lock lock(m_mutex);
    while (!m_stopping) {
        if (m_idle.empty()) {
            m_changed.wait(lock);
            continue;
        }
        const Instant due = m_idle.front().since + m_idleUnload;
        if (std::chrono::steady_clock::now() < due) {
            m_changed.wait_until(lock, due);
            continue;
        }
        std::unique_ptr<Decoder> decoder = std::move(m_idle.front().decoder);
        m_idle.erase(m_idle.begin());
        lock.unlock();
        decoder.reset();
        // The library's blocks are small: without this call the allocator keeps them.
        malloc_trim(0);
        if (m_unloaded)
            m_unloaded();
        lock.lock();
    }
}

} // namespace quillo::server
