#pragma once

#include <QString>

#include <cstdint>
#include <vector>

namespace quillo {

/// 48 kHz mono samples.
inline constexpr uint32_t soundSampleRate = 48000;

/// The samples of the sound `name` at full volume; empty when there is no such sound.
[[nodiscard]] std::vector<float> synthesizeSound(const QString& name);

} // namespace quillo
