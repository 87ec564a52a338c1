#pragma once

#include <filesystem>
#include <stdexcept>

namespace quillo::server {

/// A wrong option; the text names it and what to give instead.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where the server keeps its files unless --data names another folder. Throws UsageError when HOME names none.
std::filesystem::path defaultDataFolder();

} // namespace quillo::server
