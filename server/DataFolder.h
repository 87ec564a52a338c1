#pragma once

#include <filesystem>
#include <stdexcept>

namespace quillo::server {

/// A wrong option; the text names it and the valid values.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The default data folder, unless --data names another one. Throws UsageError when HOME is not set.
std::filesystem::path defaultDataFolder();

} // namespace quillo::server
