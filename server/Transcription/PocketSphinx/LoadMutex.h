#pragma once

#include <mutex>

namespace quillo::server {

/// Held while decoders and front ends are made and freed: that part of the library writes to globals of its own.
std::mutex& loadMutex();

} // namespace quillo::server
