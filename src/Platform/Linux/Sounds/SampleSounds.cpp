#include "Platform/Linux/Sounds/SampleSounds.h"

#include <cmath>
#include <numbers>

namespace quillo {

namespace {

/// A tone that glides from one pitch to another while it dies away.
struct Tone {
    double startHertz;
    double endHertz;
    double seconds;
    double decay;    ///< e-foldings over the whole length
    double overtone; ///< share of the octave above
};

std::vector<float> synthesize(const Tone& tone) {
    constexpr double attackSeconds = 0.003; // a sound that starts at full amplitude clicks
    const auto length = static_cast<size_t>(tone.seconds * soundSampleRate);
    std::vector<float> samples(length);
    double phase = 0;
    for (size_t i = 0; i < length; ++i) {
        const double time = static_cast<double>(i) / soundSampleRate;
        const double progress = time / tone.seconds;
        phase +=
            2 * std::numbers::pi * (tone.startHertz + (tone.endHertz - tone.startHertz) * progress) / soundSampleRate;
        const double envelope = std::min(1.0, time / attackSeconds) * std::exp(-tone.decay * progress) * (1 - progress);
        samples[i] = static_cast<float>(envelope *
                                        ((1 - tone.overtone) * std::sin(phase) + tone.overtone * std::sin(2 * phase)));
    }
    return samples;
}

} // namespace

std::vector<float> synthesizeSound(const QString& name) {
    if (name == QStringLiteral("Pop"))
        return synthesize({720, 380, 0.09, 4, 0.15});
    if (name == QStringLiteral("Basso"))
        return synthesize({150, 98, 0.35, 3, 0.35});
    return {};
}

} // namespace quillo
