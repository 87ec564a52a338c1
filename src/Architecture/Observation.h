#pragma once

#include <functional>
#include <utility>

namespace quillo {

/// Keeps an observer registered for as long as it lives.
class Observation {
public:
    Observation() = default;
    explicit Observation(std::function<void()> remove) : m_remove(std::move(remove)) {}
    Observation(Observation&& other) noexcept : m_remove(std::exchange(other.m_remove, nullptr)) {}
    Observation& operator=(Observation&& other) noexcept {
        if (this != &other) {
            reset();
            m_remove = std::exchange(other.m_remove, nullptr);
        }
        return *this;
    }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;
    ~Observation() { reset(); }

    void reset() {
        if (auto remove = std::exchange(m_remove, nullptr))
            remove();
    }

private:
    std::function<void()> m_remove;
};

} // namespace quillo
