#pragma once

#include "Storage/Database.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace quillo::server {

/// The wall-clock time; injected so that tests can skip hours.
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

/// A signed-in user with a new pair of tokens.
struct Session {
    User user;
    Tokens tokens;
    bool isNewUser = false;
};

/// The user of an access token, and the sign-in that the token descends from.
struct SignIn {
    User user;
    std::string id;
};

struct TokenLifetimes {
    std::chrono::seconds access = std::chrono::hours(1);
    std::chrono::seconds refresh = std::chrono::hours(24 * 90);
    /// A refresh token may be used again for this long, for clients that refresh twice at once.
    std::chrono::seconds reuseGrace{10};
    /// Lifetime of a code, from the sign-in page to its exchange.
    std::chrono::seconds code{60};
};

/// The data of an authorization code (RFC 6749 section 4.1, RFC 7636).
struct CodeGrant {
    std::string userId;
    std::string clientId;
    std::string redirectUri;
    std::string challenge; ///< S256
    /// The anonymous user whose data should move to the account; proved when the code is exchanged. May be empty.
    std::string anonymousUserId;
    bool isNewUser = false;
};

/// What a client presents to exchange a code.
struct CodeExchange {
    std::string code;
    std::string clientId;
    std::string redirectUri;
    std::string verifier;
    /// An access token of the anonymous user; empty when there is none.
    std::string anonymousToken;
};

struct RedeemedCode {
    Session session;
    /// The anonymous user merged into the account: move their data, then call `finishMerge`.
    std::optional<std::string> mergedUser;
};

/// An account's id and the hash its password is checked against.
struct Credentials {
    std::string userId;
    std::string passwordHash;
};

struct AccountSummary {
    User user;
    std::chrono::system_clock::time_point created;
    int64_t signIns = 0; ///< that have not ended
};

/// An unfinished merge of an anonymous user into an account.
struct Merge {
    std::string from;
    std::string to;
};

/// Users and their tokens in SQLite. Only hashes of tokens are stored. Thread-safe; calls take a lock and touch the
/// disk, so call them on a thread that may block. Every function throws DatabaseError.
class AccountStore {
public:
    AccountStore(const std::filesystem::path& file, WallClock clock, TokenLifetimes lifetimes = {});

    /// Rejects the tokens of anonymous users from now on. Call it before any other function.
    void refuseAnonymousUsers() { m_servesAnonymous = false; }

    /// The anonymous user of this device, created if there is none.
    Session signInAnonymously(const std::string& deviceId);

    /// Exchanges a refresh token for a new pair. The same token gives the same pair again within the grace, and as long
    /// as neither token of the pair was used, because the answer may have been lost. Later reuse ends every token of
    /// the same sign-in (RFC 9700 section 4.14.2), because one of its two users is not the owner. Empty then, and when
    /// the token is unknown or expired.
    std::optional<Session> refresh(const std::string& refreshToken);

    /// Creates an account; empty when this e-mail address already has one. The address must be normalised.
    std::optional<User> addAccount(const std::string& email, const std::optional<std::string>& fullName,
                                   const std::string& passwordHash);
    /// Empty when no account has this address.
    std::optional<Credentials> credentialsOf(const std::string& email);
    /// Stores another hash of the same password, unless the password was changed in the meantime.
    void replaceHash(const Credentials& old, const std::string& passwordHash);
    /// Sets a new password and ends all sign-ins of the account; false when the account does not exist.
    bool resetPassword(const std::string& email, const std::string& passwordHash);

    /// Creates a code for one exchange. Empty when the account's hash is not `passwordHash` any more, because the
    /// checked password was replaced or the account removed.
    std::optional<std::string> issueCode(const CodeGrant& grant, const std::string& passwordHash);
    /// Exchanges a code. It is used up with any result; using it again ends the sign-in that it gave.
    std::optional<RedeemedCode> redeem(const CodeExchange& exchange);
    /// Call after moving the data of the merged user: removes the rest of that user.
    void finishMerge(const std::string& userId);
    /// Unfinished merges, for example after the server was killed.
    std::vector<Merge> unfinishedMerges();

    /// Accounts with an e-mail address, by address.
    std::vector<AccountSummary> accounts();

    /// Removes a user with every token; false when there is none.
    bool remove(const std::string& userId);

    /// The user an access token belongs to; empty when it is unknown or expired. Marks the token as used.
    std::optional<User> userOf(const std::string& accessToken);
    std::optional<SignIn> signInOf(const std::string& accessToken);
    /// False once a sign-in was ended: by a new password, a removed account or a token that was used twice.
    bool isSignedIn(const std::string& signIn);

    /// Anonymous users, older than a day, without any token.
    std::vector<std::string> abandonedUsers();
    /// Removes a user if this is still true.
    void removeAbandoned(const std::string& userId);

    /// Throws DatabaseError when the database cannot be written.
    void check();

private:
    std::string beginFamily(const std::string& userId);
    void endFamily(const std::string& familyId);
    Tokens issueTokens(const std::string& familyId);
    /// The pair that follows `refreshToken`: always the same, and impossible to derive without that token.
    Tokens issueSuccessors(const std::string& familyId, const std::string& refreshToken, const std::string& salt);
    /// `predecessor`: the hash of the refresh token that `tokens` replace, if any.
    /// `predecessor` is the refresh token that `tokens` replace, if any.
    void storeTokens(const std::string& familyId, const Tokens& tokens, const std::string& predecessor);
    /// Records that a token of `table` was used, so its predecessor need not be answered again.
    void markUsed(std::string_view table, const std::string& token);
    bool beginMerge(const std::string& anonymousUserId, const std::string& anonymousToken, const std::string& userId);
    void removeExpired();
    std::optional<User> userById(const std::string& id);
    std::optional<SignIn> findSignIn(const std::string& accessToken);
    std::optional<std::string> ownerOf(const std::string& accessToken);
    [[nodiscard]] int64_t now() const;

    std::mutex m_mutex;
    WallClock m_clock;
    TokenLifetimes m_lifetimes;
    bool m_servesAnonymous = true;
    Database m_database;
};

} // namespace quillo::server
