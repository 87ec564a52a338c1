#pragma once

#include "Diarization/SpeakerTurn.h"
#include "Transcription/Recogniser.h"

#include <vector>

namespace quillo::server {

/// The words of a piece, spread evenly over its time when the recogniser does not give times.
std::vector<Word> wordsOf(const Transcript& piece);

/// Removes from the pieces of a two-channel recording what one channel repeats of the other: a word that is spoken on
/// the other side at the same time, while no voice of its own side is heard. `pieces` are in order of time.
void removeEchoes(std::vector<Transcript>& pieces, const std::vector<SpeakerTurn>& turns);

} // namespace quillo::server
