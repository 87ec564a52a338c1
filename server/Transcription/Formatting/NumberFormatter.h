#pragma once

#include "Transcription/Formatting/Token.h"

namespace quillo::server {

/// Writes spoken English numbers as digits (inverse text normalisation) where the reading is certain: cardinals from
/// ten, digits read out, years, decimals, money, percentages, times of day, dates. Ambiguous numbers stay in words.
void writeNumbers(Tokens& tokens);

} // namespace quillo::server
