#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace quillo::server {

/// Twelve mel-frequency cepstra and the logarithm of the pitch.
constexpr size_t voiceDimensions = 13;
using VoiceVector = std::array<double, voiceDimensions>;

/// The features of 10 ms of speech.
struct VoiceFrame {
    bool voiced = false; ///< whether `values` is valid
    VoiceVector values{};
};

/// Computes the features of a voice. Not thread-safe.
class VoiceFeatures {
public:
    static constexpr size_t frameSamples = 160;

    VoiceFeatures();
    ~VoiceFeatures();
    VoiceFeatures(const VoiceFeatures&) = delete;
    VoiceFeatures& operator=(const VoiceFeatures&) = delete;

    /// The frames of a piece of speech at 16 kHz.
    std::vector<VoiceFrame> analyse(std::span<const int16_t> samples);

private:
    struct FrontEnd;
    std::unique_ptr<FrontEnd> m_frontEnd;
};

} // namespace quillo::server
