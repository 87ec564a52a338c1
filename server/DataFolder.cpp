#include "DataFolder.h"

#include <cstdlib>

namespace quillo::server {

std::filesystem::path defaultDataFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/')
        return std::filesystem::path(data) / "quillo" / "server";
    const char* home = std::getenv("HOME");
    if (!home || home[0] != '/')
        throw UsageError("--data: give a folder, since neither XDG_DATA_HOME nor HOME names one");
    return std::filesystem::path(home) / ".local" / "share" / "quillo" / "server";
}

} // namespace quillo::server
