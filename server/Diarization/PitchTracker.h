#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace quillo::server {

/// Number of samples at 16 kHz that `pitchOf` examines.
constexpr size_t pitchWindowSamples = 640;

/// The pitch of a voiced sound in Hz, 60 to 400; empty for silence and for sounds without a pitch. Normalised
/// autocorrelation (Boersma 1993, without his correction for the window).
std::optional<double> pitchOf(std::span<const int16_t, pitchWindowSamples> window);

} // namespace quillo::server
