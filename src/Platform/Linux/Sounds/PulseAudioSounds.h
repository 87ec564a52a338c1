#pragma once

#include "Platform/Sounds.h"

#include <memory>

namespace quillo {

/// Plays short samples of our own making ("Pop", "Basso") on the default sink, from a thread of its own. Without a
/// sound server nothing is heard and nobody waits.
std::unique_ptr<Sounds> createSounds();

} // namespace quillo
