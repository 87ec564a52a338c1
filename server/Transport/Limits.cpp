#include "Transport/Limits.h"

namespace quillo::server {

Limits::Place::Place(std::shared_ptr<Limits> limits, std::string key)
    : m_limits(std::move(limits)), m_key(std::move(key)) {}

Limits::Place::Place(Place&& other) noexcept : m_limits(std::move(other.m_limits)), m_key(std::move(other.m_key)) {}

Limits::Place& Limits::Place::operator=(Place&& other) noexcept {
    std::swap(m_limits, other.m_limits);
    std::swap(m_key, other.m_key);
    return *this;
}

Limits::Place::~Place() {
    if (m_limits)
        m_limits->release(m_key);
}

Limits::Admission Limits::admit(const std::string& key) {
    const std::scoped_lock lock(m_mutex);
    auto& ofKey = m_perKey[key];
    const Verdict verdict = ofKey >= m_maxPerKey ? Verdict::fullForKey
                            : m_count >= m_max   ? Verdict::full
                                                 : Verdict::admitted;
    ++ofKey;
    ++m_count;
    return {verdict, Place(shared_from_this(), key)};
}

Limits::Admission Limits::admitWithoutKey() {
    const std::scoped_lock lock(m_mutex);
    const Verdict verdict = m_count >= m_max ? Verdict::full : Verdict::admitted;
    const std::string none;
    ++m_perKey[none];
    ++m_count;
    return {verdict, Place(shared_from_this(), none)};
}

size_t Limits::count() const {
    const std::scoped_lock lock(m_mutex);
    return m_count;
}

void Limits::release(const std::string& key) {
    const std::scoped_lock lock(m_mutex);
    --m_count;
    const auto entry = m_perKey.find(key);
    if (--entry->second == 0)
        m_perKey.erase(entry);
}

} // namespace quillo::server
