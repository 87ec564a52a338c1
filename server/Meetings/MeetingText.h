#pragma once

#include "Foundation/Json.h"
#include "Transcription/Recogniser.h"

#include <string>
#include <vector>

namespace quillo::server {

/// A piece of a meeting in one speaker's words.
struct MeetingSegment {
    std::string text;
    std::string speaker; ///< label; empty when unknown
    AudioSource source = AudioSource::unknown;
    double start = 0; ///< seconds from the start of the session's audio
    double end = 0;
};

/// Pieces as recognised, whose speakers are not known yet.
std::vector<MeetingSegment> segmentsOf(const std::vector<Transcript>& pieces);
/// The "segments" of a diarization's result, as in TaskResults.h.
std::vector<MeetingSegment> segmentsOf(const Json& diarizationResult);

/// One line for each segment, "Speaker 1: Good morning."; without the label where the speaker is unknown.
std::string labeledText(const std::vector<MeetingSegment>& segments);

} // namespace quillo::server
