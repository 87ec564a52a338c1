#pragma once

#include <span>
#include <string_view>

namespace quillo::server {

/// One entry per schema version, in order. Never change a released entry.
std::span<const std::string_view> taskMigrations();

} // namespace quillo::server
