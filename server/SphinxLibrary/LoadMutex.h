#pragma once

#include <mutex>

namespace quillo::server {

/// Held while decoders and front ends of the PocketSphinx library are created and freed, because the library then
/// writes to global variables.
std::mutex& loadMutex();

} // namespace quillo::server
