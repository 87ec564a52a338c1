#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace quillo::server {

using Sha256Value = std::array<uint8_t, 32>;

/// Incremental SHA-256. Not thread-safe.
class Sha256 {
public:
    Sha256();
    void update(std::string_view bytes);
    /// Samples are hashed as little-endian bytes, as in a file.
    void update(std::span<const int16_t> samples);
    /// Returns the value; do not add anything afterwards.
    Sha256Value finish();

private:
    struct Closer {
        void operator()(void* context) const;
    };
    std::unique_ptr<void, Closer> m_context;
};

} // namespace quillo::server
