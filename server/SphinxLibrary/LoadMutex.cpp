#include "SphinxLibrary/LoadMutex.h"

namespace quillo::server {

std::mutex& loadMutex() {
    static std::mutex mutex;
    return mutex;
}

} // namespace quillo::server
