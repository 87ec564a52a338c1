#pragma once

#include "Transport/ServerOptions.h"

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace quillo::server {

/// Counts open connections in total and by key (address or user). Thread-safe.
class Limits : public std::enable_shared_from_this<Limits> {
public:
    Limits(size_t max, size_t maxPerKey) : m_max(max), m_maxPerKey(maxPerKey) {}

    enum class Verdict { admitted, full, fullForKey };

    /// One place; released by the destructor.
    class Place {
    public:
        Place() = default;
        Place(Place&& other) noexcept;
        Place& operator=(Place&& other) noexcept;
        ~Place();

    private:
        friend class Limits;
        Place(std::shared_ptr<Limits> limits, std::string key);
        std::shared_ptr<Limits> m_limits;
        std::string m_key;
    };

    struct Admission {
        Verdict verdict;
        Place place; ///< counts also for a refusal, because the refused connection stays open until it has its answer
    };

    Admission admit(const std::string& key);
    /// Counts only in total, because many clients share the key.
    Admission admitWithoutKey();
    [[nodiscard]] size_t count() const;

private:
    void release(const std::string& key);

    mutable std::mutex m_mutex;
    size_t m_max;
    size_t m_maxPerKey;
    size_t m_count = 0;
    std::unordered_map<std::string, size_t> m_perKey;
};

} // namespace quillo::server
