#include "Accounts/AccountSchema.h"

#include <array>

namespace quillo::server {
namespace {

/// Times are milliseconds since 1970; hashes are SHA-256. Device ids open an account, so they are kept as hashes too.
constexpr std::array<std::string_view, 1> migrations = {R"(
CREATE TABLE users (
    id TEXT PRIMARY KEY,
    device_hash BLOB UNIQUE,
    email TEXT UNIQUE,
    full_name TEXT,
    is_anonymous INTEGER NOT NULL,
    created_at INTEGER NOT NULL
) WITHOUT ROWID;
CREATE TABLE token_families (
    id TEXT PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    expires_at INTEGER NOT NULL
) WITHOUT ROWID;
CREATE INDEX token_families_by_expiry ON token_families(expires_at);
CREATE INDEX token_families_by_user ON token_families(user_id);
CREATE TABLE access_tokens (
    hash BLOB PRIMARY KEY,
    family_id TEXT NOT NULL REFERENCES token_families(id) ON DELETE CASCADE,
    expires_at INTEGER NOT NULL
) WITHOUT ROWID;
CREATE INDEX access_tokens_by_expiry ON access_tokens(expires_at);
CREATE INDEX access_tokens_by_family ON access_tokens(family_id);
CREATE TABLE refresh_tokens (
    hash BLOB PRIMARY KEY,
    family_id TEXT NOT NULL REFERENCES token_families(id) ON DELETE CASCADE,
    expires_at INTEGER NOT NULL,
    used_at INTEGER,
    uses INTEGER NOT NULL DEFAULT 0
) WITHOUT ROWID;
CREATE INDEX refresh_tokens_by_expiry ON refresh_tokens(expires_at);
CREATE INDEX refresh_tokens_by_family ON refresh_tokens(family_id);
)"};

} // namespace

std::span<const std::string_view> accountMigrations() { return migrations; }

} // namespace quillo::server
