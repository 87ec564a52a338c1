#pragma once

#include "Storage/Database.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace quillo::server {

/// The time of day; injected so that tests pass hours at once.
using WallClock = std::function<std::chrono::system_clock::time_point()>;

struct User {
    std::string id;
    std::optional<std::string> email;
    std::optional<std::string> fullName;
    bool isAnonymous = true;
};

struct Tokens {
    std::string access;
    std::string refresh;
    std::chrono::seconds expiresIn{};
};

/// A signed-in user with a fresh pair of tokens.
struct Session {
    User user;
    Tokens tokens;
    bool isNewUser = false;
};

struct TokenLifetimes {
    std::chrono::seconds access = std::chrono::hours(1);
    std::chrono::seconds refresh = std::chrono::hours(24 * 90);
    /// A refresh token may be used again for this long, for clients that refresh twice at once.
    std::chrono::seconds reuseGrace{10};
    /// How often it may be used within the grace.
    int maxUses = 4;
};

/// Users and their tokens in SQLite. Only hashes of tokens are stored. Thread-safe; calls take a lock and touch the
/// disk, so they belong on a thread that may block. Every function throws DatabaseError.
class AccountStore {
public:
    AccountStore(const std::filesystem::path& file, WallClock clock, TokenLifetimes lifetimes = {});

    /// The anonymous user of this device, made when there is none.
    Session signInAnonymously(const std::string& deviceId);

    /// Exchanges a refresh token for a new pair. Empty when the token is unknown, expired or used before; the last ends
    /// every token that descends from the same sign-in (RFC 9700 section 4.14.2), because one of the two users of it is
    /// not the owner.
    std::optional<Session> refresh(const std::string& refreshToken);

    /// Removes a user with every token; false when there is none.
    bool remove(const std::string& userId);

    /// The user an access token belongs to; empty when it is unknown or expired.
    std::optional<User> userOf(const std::string& accessToken);

private:
    Tokens issueTokens(const std::string& familyId);
    void removeExpired();
    std::optional<User> userById(const std::string& id);
    [[nodiscard]] int64_t now() const;

    std::mutex mutex_;
    WallClock clock_;
    TokenLifetimes lifetimes_;
    Database database_;
};

} // namespace quillo::server
