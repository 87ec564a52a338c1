#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillo::server::test {

/// Sentences and the flite voices ("slt", "rms", "awb", "kal16", in this order) that PocketSphinx understands without
/// an error in every configuration tried: "X" or "." per voice.
struct Sentence {
    std::string_view understood;
    std::string_view text;
};
std::span<const Sentence> sentences();

using Samples = std::vector<int16_t>;

/// Speech by the synthesiser flite: 16 kHz, the loudest sample at half of full scale, with a second of faint noise
/// before and 0.8 s after, as a microphone has it. Throws std::runtime_error when flite is missing.
Samples speak(const std::string& voice, std::string_view text);
/// Faint white noise; the same on every call.
Samples noise(double seconds);
/// Something loud enough to count as speech: a square wave of 250 Hz over the noise.
Samples buzz(double seconds, int amplitude = 4000);
/// The samples of a 16-bit mono WAV file, or of a headerless one.
Samples readSamples(const std::filesystem::path& file);

/// Substituted, missing and added words (Levenshtein distance), letter case and marks ignored.
size_t wordErrors(std::string_view reference, std::string_view hypothesis);
size_t wordCount(std::string_view text);

} // namespace quillo::server::test
