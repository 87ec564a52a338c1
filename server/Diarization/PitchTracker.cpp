#include "Diarization/PitchTracker.h"

#include <array>
#include <cmath>
#include <numeric>

namespace quillo::server {
namespace {

// The pitch of a voice is far below 2 kHz, so a quarter of the rate is enough, at a sixteenth of the work.
constexpr size_t decimation = 4;
constexpr double rate = 16000.0 / decimation;
constexpr size_t count = pitchWindowSamples / decimation;
constexpr size_t shortestLag = 10; ///< 400 Hz
constexpr size_t longestLag = 66;  ///< 60 Hz
/// Share of the energy that must be periodic for a sound to count as voiced.
constexpr double voicing = 0.5;
/// Mean square that counts as silence: about -60 dB.
constexpr double audible = 32.0 * 32;

} // namespace

std::optional<double> pitchOf(std::span<const int16_t, pitchWindowSamples> window) {
    std::array<double, count> x{};
    for (size_t i = 0; i < count; ++i)
        x[i] = std::accumulate(&window[i * decimation], &window[i * decimation] + decimation, 0.0) / decimation;
    const double mean = std::accumulate(x.begin(), x.end(), 0.0) / count;
    for (double& value : x)
        value -= mean;
    std::array<double, count + 1> energy{}; // of all samples before the index
    for (size_t i = 0; i < count; ++i)
        energy[i + 1] = energy[i] + x[i] * x[i];
    if (energy[count] / count < audible)
        return std::nullopt;

    std::array<double, longestLag + 2> correlation{};
    for (size_t lag = shortestLag - 1; lag <= longestLag + 1; ++lag) {
        double sum = 0;
        for (size_t i = lag; i < count; ++i)
            sum += x[i] * x[i - lag];
        const double scale = std::sqrt((energy[count] - energy[lag]) * energy[count - lag]);
        correlation[lag] = scale > 0 ? sum / scale : 0;
    }
    size_t best = 0;
    for (size_t lag = shortestLag; lag <= longestLag; ++lag) {
        const bool isPeak = correlation[lag] >= correlation[lag - 1] && correlation[lag] >= correlation[lag + 1];
        // Multiples of the period correlate too, so a longer lag has to be clearly better.
        if (isPeak && correlation[lag] >= voicing && (best == 0 || correlation[lag] > correlation[best] + 0.1))
            best = lag;
    }
    if (best == 0)
        return std::nullopt;
    const double left = correlation[best - 1];
    const double right = correlation[best + 1];
    const double bend = left - 2 * correlation[best] + right;
    const double shift = bend < 0 ? 0.5 * (left - right) / bend : 0;
    return rate / (static_cast<double>(best) + shift);
}

} // namespace quillo::server
