#pragma once

#include <string_view>

namespace quillo::server {

/// Which side of a call a sound came from.
enum class AudioSource {
    unknown, ///< as in one channel that carries both sides
    microphone,
    system, ///< what the computer played: the other people
};

/// The name in messages; empty when unknown.
constexpr std::string_view nameOf(AudioSource source) {
    switch (source) {
    case AudioSource::microphone:
        return "microphone";
    case AudioSource::system:
        return "system";
    case AudioSource::unknown:
        break;
    }
    return {};
}

constexpr AudioSource sourceNamed(std::string_view name) {
    for (const AudioSource source : {AudioSource::microphone, AudioSource::system}) {
        if (nameOf(source) == name)
            return source;
    }
    return AudioSource::unknown;
}

} // namespace quillo::server
