#include "Services/Recordings/RecordingsInUse.h"

#include <map>
#include <mutex>
#include <utility>

namespace quillo {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::pair<QString, RecordingsInUse::Purpose>, int> holders;

    static Registry& shared() {
        // Never destroyed, because leases may outlive main.
        static auto* const registry = new Registry;
        return *registry;
    }
};

} // namespace

RecordingsInUse::Lease::Lease(QString recordingId, Purpose purpose)
    : m_recordingId(std::move(recordingId)), m_purpose(purpose) {
    if (m_recordingId.isEmpty())
        return;
    auto& registry = Registry::shared();
    const std::lock_guard lock(registry.mutex);
    ++registry.holders[{m_recordingId, m_purpose}];
}

RecordingsInUse::Lease::Lease(Lease&& other) noexcept
    : m_recordingId(std::exchange(other.m_recordingId, {})), m_purpose(other.m_purpose) {}

RecordingsInUse::Lease& RecordingsInUse::Lease::operator=(Lease&& other) noexcept {
    if (this != &other) {
        reset();
        m_recordingId = std::exchange(other.m_recordingId, {});
        m_purpose = other.m_purpose;
    }
    return *this;
}

void RecordingsInUse::Lease::reset() {
    const auto recordingId = std::exchange(m_recordingId, {});
    if (recordingId.isEmpty())
        return;
    auto& registry = Registry::shared();
    const std::lock_guard lock(registry.mutex);
    const auto found = registry.holders.find({recordingId, m_purpose});
    if (found != registry.holders.end() && --found->second == 0)
        registry.holders.erase(found);
}

bool RecordingsInUse::contains(const QString& recordingId, Purpose purpose) {
    auto& registry = Registry::shared();
    const std::lock_guard lock(registry.mutex);
    return registry.holders.contains({recordingId, purpose});
}

bool RecordingsInUse::contains(const QString& recordingId) {
    return contains(recordingId, Purpose::writing) || contains(recordingId, Purpose::queued);
}

} // namespace quillo
