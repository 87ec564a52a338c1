#include "Transcription/PocketSphinx/DecoderPool.h"

#include <malloc.h>

namespace quillo::server {

DecoderPool::DecoderPool(ModelFiles files, size_t limit, std::chrono::milliseconds idleUnload,
                         std::function<void()> unloaded)
    : files_(std::move(files)), limit_(limit), idleUnload_(idleUnload), unloaded_(std::move(unloaded)),
      unloader_([this] { unloadIdle(); }) {}

DecoderPool::~DecoderPool() {
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_one();
    unloader_.join();
}

DecoderPool::Slot::~Slot() { pool_.giveBack(std::move(decoder_)); }

Decoder& DecoderPool::Slot::decoder() {
    if (decoder_)
        return *decoder_;
    {
        const std::scoped_lock lock(pool_.mutex_);
        if (!pool_.idle_.empty()) {
            decoder_ = std::move(pool_.idle_.back().decoder);
            pool_.idle_.pop_back();
        }
    }
    if (!decoder_)
        decoder_ = std::make_unique<Decoder>(pool_.files_);
    decoder_->reset();
    return *decoder_;
}

std::unique_ptr<DecoderPool::Slot> DecoderPool::reserve() {
    const std::scoped_lock lock(mutex_);
    if (reserved_ == limit_)
        return nullptr;
    ++reserved_;
    return std::make_unique<Slot>(*this);
}

size_t DecoderPool::idle() const {
    const std::scoped_lock lock(mutex_);
    return idle_.size();
}

void DecoderPool::giveBack(std::unique_ptr<Decoder> decoder) {
    {
        const std::scoped_lock lock(mutex_);
        --reserved_;
        if (!decoder)
            return;
        idle_.push_back({std::move(decoder), std::chrono::steady_clock::now()});
    }
    changed_.notify_one();
}

void DecoderPool::unloadIdle() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (idle_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const Instant due = idle_.front().since + idleUnload_;
        if (std::chrono::steady_clock::now() < due) {
            changed_.wait_until(lock, due);
            continue;
        }
        std::unique_ptr<Decoder> decoder = std::move(idle_.front().decoder);
        idle_.erase(idle_.begin());
        lock.unlock();
        decoder.reset();
        // The library's blocks are small: the allocator keeps them unless told.
        malloc_trim(0);
        if (unloaded_)
            unloaded_();
        lock.lock();
    }
}

} // namespace quillo::server
