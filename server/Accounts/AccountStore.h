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
    /// From the page that signs in to the exchange of its code.
    std::chrono::seconds code{60};
};

/// What an authorization code stands for (RFC 6749 section 4.1, RFC 7636).
struct CodeGrant {
    std::string userId;
    std::string clientId;
    std::string redirectUri;
    std::string challenge; ///< S256
    /// Whose data should move to the account; proved when the code is exchanged. May be empty.
    std::string anonymousUserId;
    bool isNewUser = false;
};

/// What a client shows to exchange a code.
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
    /// The anonymous user who became part of the account: their data are to be moved, then `finishMerge` called.
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

/// An anonymous user on the way into an account.
struct Merge {
    std::string from;
    std::string to;
};

/// Users and their tokens in SQLite. Only hashes of tokens are stored. Thread-safe; calls take a lock and touch the
/// disk, so they belong on a thread that may block. Every function throws DatabaseError.
class AccountStore {
public:
    AccountStore(const std::filesystem::path& file, WallClock clock, TokenLifetimes lifetimes = {});

    /// From now on the tokens of anonymous users open nothing. Before any other call.
    void refuseAnonymousUsers() { m_servesAnonymous = false; }

    /// The anonymous user of this device, made when there is none.
    Session signInAnonymously(const std::string& deviceId);

    /// Exchanges a refresh token for a new pair. As long as neither token of that pair was used, the answer may have
    /// been lost: the same token gives the same pair again. It does so too within the grace. Later use ends every token
    /// that descends from the same sign-in (RFC 9700 section 4.14.2), because one of the two users of it is not the
    /// owner. Empty then, and when the token is unknown or expired.
    std::optional<Session> refresh(const std::string& refreshToken);

    /// A new account; empty when there is one of this e-mail address. The address is in its normalised form.
    std::optional<User> addAccount(const std::string& email, const std::optional<std::string>& fullName,
                                   const std::string& passwordHash);
    /// Empty when no account has this address.
    std::optional<Credentials> credentialsOf(const std::string& email);
    /// Stores another hash of the same password, unless the password was changed meanwhile.
    void replaceHash(const Credentials& old, const std::string& passwordHash);
    /// Sets another password and ends every sign-in of the account; false when there is no such account.
    bool resetPassword(const std::string& email, const std::string& passwordHash);

    /// A code for one exchange. Empty when the account's hash is not `passwordHash` any more: the password that was
    /// checked has been replaced, or the account removed.
    std::optional<std::string> issueCode(const CodeGrant& grant, const std::string& passwordHash);
    /// Exchanges a code. Whatever the outcome, it is used up; using it again ends the sign-in that it gave.
    std::optional<RedeemedCode> redeem(const CodeExchange& exchange);
    /// The data of the merged user are moved: removes what is left of them.
    void finishMerge(const std::string& userId);
    /// Merges that were begun and not finished, as when the server was killed.
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

    /// Anonymous users, older than a day, of whom no token is left.
    std::vector<std::string> abandonedUsers();
    /// Removes a user if that is still so.
    void removeAbandoned(const std::string& userId);

    /// Throws DatabaseError when the database cannot be written.
    void check();

private:
    std::string beginFamily(const std::string& userId);
    void endFamily(const std::string& familyId);
    Tokens issueTokens(const std::string& familyId);
    /// The pair that follows `refreshToken`: the same one each time, and known to nobody without that token.
    Tokens issueSuccessors(const std::string& familyId, const std::string& refreshToken, const std::string& salt);
    /// `predecessor`: the hash of the refresh token that `tokens` replace, if any.
    /// `predecessor` is the refresh token that `tokens` replace, if any.
    void storeTokens(const std::string& familyId, const Tokens& tokens, const std::string& predecessor);
    /// A token of `table` was used: its predecessor was answered and need not be again.
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
