#include "Transport/Limits.h"

namespace quillo::server {

Limits::Place::Place(std::shared_ptr<Limits> limits, std::string key)
    : limits_(std::move(limits)), key_(std::move(key)) {}

Limits::Place::Place(Place&& other) noexcept : limits_(std::move(other.limits_)), key_(std::move(other.key_)) {}

Limits::Place& Limits::Place::operator=(Place&& other) noexcept {
    std::swap(limits_, other.limits_);
    std::swap(key_, other.key_);
    return *this;
}

Limits::Place::~Place() {
    if (limits_)
        limits_->release(key_);
}

Limits::Admission Limits::admit(const std::string& key) {
    const std::scoped_lock lock(mutex_);
    auto& ofKey = perKey_[key];
    const Verdict verdict = ofKey >= maxPerKey_ ? Verdict::fullForKey
                            : count_ >= max_    ? Verdict::full
                                                : Verdict::admitted;
    ++ofKey;
    ++count_;
    return {verdict, Place(shared_from_this(), key)};
}

size_t Limits::count() const {
    const std::scoped_lock lock(mutex_);
    return count_;
}

void Limits::release(const std::string& key) {
    const std::scoped_lock lock(mutex_);
    --count_;
    const auto entry = perKey_.find(key);
    if (--entry->second == 0)
        perKey_.erase(entry);
}

} // namespace quillo::server
