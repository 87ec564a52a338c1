#pragma once

#include "Platform/Sounds.h"

#include <memory>

namespace quillo {

/// Plays Quillo's own short samples ("Pop", "Basso") on the default sink, from its own thread. Without a sound server
/// it does nothing and does not block.
std::unique_ptr<Sounds> createSounds();

} // namespace quillo
