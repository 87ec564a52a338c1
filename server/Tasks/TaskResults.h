#pragma once

#include "Diarization/SpeakerTurn.h"
#include "Foundation/Json.h"
#include "Tasks/FileRecognition.h"

namespace quillo::server {

/// {"text", "language_detected", "duration_ms", "word_count", "transcription_id"}.
Json transcriptionResult(const std::string& id, const RecognisedFile& file);

/// {"plain_text", "processed_text", "segments", "speaker_count", "stt_provider", "total_words", "duration_ms"}; a
/// segment is {"speaker_label", "start", "end", "start_formatted", "end_formatted", "text", "source_channel"}, the last
/// only where it is known.
Json diarizationResult(const RecognisedFile& file, const std::vector<SpeakerTurn>& turns, const std::string& provider);

} // namespace quillo::server
