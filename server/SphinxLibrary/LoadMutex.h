#pragma once

#include <mutex>

namespace quillo::server {

/// Held while decoders and front ends of the PocketSphinx library are made and freed: that part of it writes to global
/// variables of its own.
std::mutex& loadMutex();

} // namespace quillo::server
