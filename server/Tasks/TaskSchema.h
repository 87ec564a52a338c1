#pragma once

#include <span>
#include <string_view>

namespace quillo::server {

/// One entry per schema version, in order; an entry that was released is never changed.
std::span<const std::string_view> taskMigrations();

} // namespace quillo::server
