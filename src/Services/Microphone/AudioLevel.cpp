#include "Services/Microphone/AudioLevel.h"

#include <algorithm>
#include <cmath>

namespace quillo {

float audioLevel(const float* samples, size_t count) {
    if (count == 0)
        return 0;
    double sum = 0;
    for (size_t i = 0; i < count; ++i)
        sum += static_cast<double>(samples[i]) * samples[i];
    const double rms = std::sqrt(sum / static_cast<double>(count));
    // The comparison is written so that NaN from a device counts as silence.
    const double audible = rms > 1e-7 ? rms : 1e-7;
    const double level = (20 * std::log10(audible) + 60) / 60;
    return static_cast<float>(std::clamp(level, 0.0, 1.0));
}

} // namespace quillo
