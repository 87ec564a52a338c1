#pragma once

#include "Transcription/AudioSource.h"

#include <optional>
#include <string_view>
#include <vector>

namespace quillo::server {

/// The states of the client's system audio, as in "system_audio_status".
enum class SystemAudioStatus {
    active,      ///< from now on the stream contains it
    paused,      ///< not for now, for example because the loudspeakers are in use
    ended,       ///< its capture has failed
    unavailable, ///< it could never be captured: the stream was the microphone from the beginning
};
std::optional<SystemAudioStatus> systemAudioStatusNamed(std::string_view name);

/// When the one channel of a meeting's stream contained the system's audio, as reported by the client. Times are
/// seconds from the start of the session's audio and never decrease. Not thread-safe.
class SystemAudioTimeline {
public:
    void change(SystemAudioStatus status, double time);

    /// The source of speech at that time: the microphone while it was alone, otherwise unknown.
    [[nodiscard]] AudioSource sourceOf(double start, double end) const;
    /// True when the stream contained the system's audio at some time.
    [[nodiscard]] bool everActive() const { return !m_spans.empty(); }

private:
    struct Span {
        double start = 0;
        std::optional<double> end; ///< empty while it lasts
    };
    std::vector<Span> m_spans;
};

} // namespace quillo::server
