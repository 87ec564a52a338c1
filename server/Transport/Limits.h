#pragma once

#include "Transport/ServerOptions.h"

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace quillo::server {

/// Counts what is open, in all and by key (address or user). Thread-safe.
class Limits : public std::enable_shared_from_this<Limits> {
public:
    Limits(size_t max, size_t maxPerKey) : m_max(max), m_maxPerKey(maxPerKey) {}

    enum class Verdict { admitted, full, fullForKey };

    /// One place; given back when it is destroyed.
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
        Place place; ///< counts also when the verdict is a refusal: the refused one is still open while it is told so
    };

    Admission admit(const std::string& key);
    /// Counts in all only: the key stands for many.
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
