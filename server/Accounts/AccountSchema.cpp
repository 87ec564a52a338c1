#include "Accounts/AccountSchema.h"

#include <array>

namespace quillo::server {
namespace {

/// Times are milliseconds since 1970; hashes are SHA-256. Device ids open an account, so they are kept as hashes too.
constexpr std::string_view version1 = R"(
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
)";

/// Accounts with a password. A used authorization code is kept as long as the tokens it gave, so that a second use can
/// end them.
constexpr std::string_view version2 = R"(
ALTER TABLE users ADD COLUMN password_hash TEXT;
ALTER TABLE users ADD COLUMN merged_into TEXT;
CREATE INDEX users_by_merge ON users(merged_into) WHERE merged_into IS NOT NULL;
ALTER TABLE refresh_tokens ADD COLUMN successor_salt TEXT;
CREATE INDEX refresh_tokens_in_grace ON refresh_tokens(used_at) WHERE successor_salt IS NOT NULL;
CREATE TABLE authorization_codes (
    hash BLOB PRIMARY KEY,
    user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
    client_id TEXT NOT NULL,
    redirect_uri TEXT NOT NULL,
    challenge TEXT NOT NULL,
    anonymous_user_id TEXT NOT NULL,
    is_new_user INTEGER NOT NULL,
    expires_at INTEGER NOT NULL,
    family_id TEXT REFERENCES token_families(id) ON DELETE CASCADE
) WITHOUT ROWID;
CREATE INDEX authorization_codes_by_expiry ON authorization_codes(expires_at);
CREATE INDEX authorization_codes_by_user ON authorization_codes(user_id);
CREATE INDEX authorization_codes_by_family ON authorization_codes(family_id);
)";

/// Until its first use a token refers to the refresh token that it replaced, so that the use can be recorded there.
constexpr std::string_view version3 = R"(
ALTER TABLE access_tokens ADD COLUMN predecessor BLOB;
ALTER TABLE refresh_tokens ADD COLUMN predecessor BLOB;
ALTER TABLE refresh_tokens ADD COLUMN successor_used INTEGER NOT NULL DEFAULT 0;
UPDATE refresh_tokens SET successor_used = 1 WHERE used_at IS NOT NULL;
)";

constexpr std::array migrations = {version1, version2, version3};

} // namespace

std::span<const std::string_view> accountMigrations() { return migrations; }

} // namespace quillo::server
