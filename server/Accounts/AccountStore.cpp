#include "Accounts/AccountStore.h"

#include "Accounts/AccountSchema.h"
#include "Foundation/Encoding.h"
#include "Foundation/Log.h"

namespace quillo::server {
namespace {

constexpr auto youngestAbandoned = std::chrono::hours(24);
constexpr std::string_view abandoned = "is_anonymous = 1 AND merged_into IS NULL AND created_at < ? AND NOT EXISTS "
                                       "(SELECT 1 FROM token_families f WHERE f.user_id = users.id)";

int64_t milliseconds(std::chrono::seconds duration) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

} // namespace

AccountStore::AccountStore(const std::filesystem::path& file, WallClock clock, TokenLifetimes lifetimes)
    : m_clock(std::move(clock)), m_lifetimes(lifetimes), m_database(file, accountMigrations()) {}

int64_t AccountStore::now() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(m_clock().time_since_epoch()).count();
}

Session AccountStore::signInAnonymously(const std::string& deviceId) {
    const std::scoped_lock lock(m_mutex);
    const auto deviceHash = sha256(deviceId);
    Transaction transaction(m_database);
    removeExpired();

    Session session;
    Statement find(m_database, "SELECT id FROM users WHERE device_hash = ? AND is_anonymous = 1");
    find.bindBlob(1, deviceHash);
    session.isNewUser = !find.step();
    if (session.isNewUser) {
        session.user.id = randomUuid();
        Statement insert(m_database, "INSERT INTO users(id, device_hash, is_anonymous, created_at) VALUES(?, ?, 1, ?)");
        insert.bind(1, session.user.id).bindBlob(2, deviceHash).bind(3, now()).step();
    } else {
        session.user.id = find.text(0);
    }

    session.tokens = issueTokens(beginFamily(session.user.id));
    transaction.commit();
    return session;
}

std::optional<Session> AccountStore::refresh(const std::string& refreshToken) {
    const std::scoped_lock lock(m_mutex);
    const auto hash = sha256(refreshToken);
    Transaction transaction(m_database);
    Statement find(
        m_database,
        "SELECT r.family_id, r.expires_at, r.used_at, r.successor_salt, f.user_id, "
        "r.successor_used FROM refresh_tokens r JOIN token_families f ON f.id = r.family_id WHERE r.hash = ?");
    find.bindBlob(1, hash);
    if (!find.step() || find.integer(1) <= now())
        return std::nullopt;

    const std::string familyId = find.text(0);
    const std::string userId = find.text(4);
    const bool used = !find.isNull(2);
    // If the clock was set back, count it as within the grace.
    if (used && find.integer(5) != 0 && now() - find.integer(2) > milliseconds(m_lifetimes.reuseGrace)) {
        endFamily(familyId);
        transaction.commit();
        log(LogLevel::warning, "accounts",
            "a refresh token of user " + userId + " was used twice; every token of that sign-in is ended");
        return std::nullopt;
    }
    auto user = userById(userId);
    if (!user || (user->isAnonymous && !m_servesAnonymous))
        return std::nullopt;

    markUsed("refresh_tokens", refreshToken);
    const std::string salt = used && !find.isNull(3) ? find.text(3) : randomToken();
    Statement mark(m_database, "UPDATE refresh_tokens SET used_at = coalesce(used_at, ?), successor_salt = ? "
                               "WHERE hash = ?");
    mark.bind(1, now()).bind(2, salt).bindBlob(3, hash).step();
    Statement extend(m_database, "UPDATE token_families SET expires_at = ? WHERE id = ?");
    extend.bind(1, now() + milliseconds(m_lifetimes.refresh)).bind(2, familyId).step();
    Session session;
    session.user = std::move(*user);
    session.tokens = issueSuccessors(familyId, refreshToken, salt);
    removeExpired();
    transaction.commit();
    return session;
}

bool AccountStore::remove(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    // The foreign keys delete the tokens too.
    Statement remove(m_database, "DELETE FROM users WHERE id = ?");
    remove.bind(1, userId).step();
    return m_database.changes() > 0;
}

std::optional<User> AccountStore::userOf(const std::string& accessToken) {
    const std::scoped_lock lock(m_mutex);
    const auto signIn = findSignIn(accessToken);
    return signIn ? std::optional(signIn->user) : std::nullopt;
}

std::optional<SignIn> AccountStore::signInOf(const std::string& accessToken) {
    const std::scoped_lock lock(m_mutex);
    return findSignIn(accessToken);
}

std::optional<SignIn> AccountStore::findSignIn(const std::string& accessToken) {
    Statement find(m_database, "SELECT f.user_id, f.id, a.predecessor FROM access_tokens a "
                               "JOIN token_families f ON f.id = a.family_id WHERE a.hash = ? AND a.expires_at > ?");
    find.bindBlob(1, sha256(accessToken)).bind(2, now());
    if (!find.step())
        return std::nullopt;
    auto user = userById(find.text(0));
    if (!user || (user->isAnonymous && !m_servesAnonymous))
        return std::nullopt;
    SignIn signIn{std::move(*user), find.text(1)};
    if (!find.isNull(2))
        markUsed("access_tokens", accessToken);
    return signIn;
}

bool AccountStore::isSignedIn(const std::string& signIn) {
    const std::scoped_lock lock(m_mutex);
    Statement find(m_database, "SELECT 1 FROM token_families WHERE id = ?");
    find.bind(1, signIn);
    return find.step();
}

std::vector<std::string> AccountStore::abandonedUsers() {
    const std::scoped_lock lock(m_mutex);
    removeExpired();
    Statement query(m_database, "SELECT id FROM users WHERE " + std::string(abandoned));
    query.bind(1, now() - milliseconds(youngestAbandoned));
    std::vector<std::string> users;
    while (query.step())
        users.push_back(query.text(0));
    return users;
}

void AccountStore::removeAbandoned(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    Statement remove(m_database, "DELETE FROM users WHERE " + std::string(abandoned) + " AND id = ?");
    remove.bind(1, now() - milliseconds(youngestAbandoned)).bind(2, userId).step();
}

void AccountStore::check() {
    const std::scoped_lock lock(m_mutex);
    const Transaction rolledBack(m_database);
}

std::optional<std::string> AccountStore::ownerOf(const std::string& accessToken) {
    Statement find(m_database, "SELECT f.user_id FROM access_tokens a JOIN token_families f ON f.id = a.family_id "
                               "WHERE a.hash = ? AND a.expires_at > ?");
    find.bindBlob(1, sha256(accessToken)).bind(2, now());
    if (!find.step())
        return std::nullopt;
    return find.text(0);
}

std::optional<User> AccountStore::userById(const std::string& id) {
    Statement find(m_database, "SELECT email, full_name, is_anonymous FROM users WHERE id = ?");
    find.bind(1, id);
    if (!find.step())
        return std::nullopt;
    User user;
    user.id = id;
    if (!find.isNull(0))
        user.email = find.text(0);
    if (!find.isNull(1))
        user.fullName = find.text(1);
    user.isAnonymous = find.integer(2) != 0;
    return user;
}

std::string AccountStore::beginFamily(const std::string& userId) {
    std::string familyId = randomUuid();
    Statement family(m_database, "INSERT INTO token_families(id, user_id, expires_at) VALUES(?, ?, ?)");
    family.bind(1, familyId).bind(2, userId).bind(3, now() + milliseconds(m_lifetimes.refresh)).step();
    return familyId;
}

void AccountStore::endFamily(const std::string& familyId) {
    Statement end(m_database, "DELETE FROM token_families WHERE id = ?");
    end.bind(1, familyId).step();
}

Tokens AccountStore::issueTokens(const std::string& familyId) {
    Tokens tokens{randomToken(), randomToken(), m_lifetimes.access};
    storeTokens(familyId, tokens, {});
    return tokens;
}

Tokens AccountStore::issueSuccessors(const std::string& familyId, const std::string& refreshToken,
                                     const std::string& salt) {
    Tokens tokens{encodeBase64Url(hmacSha256(refreshToken, "access " + salt)),
                  encodeBase64Url(hmacSha256(refreshToken, "refresh " + salt)), m_lifetimes.access};
    storeTokens(familyId, tokens, refreshToken);
    return tokens;
}

void AccountStore::storeTokens(const std::string& familyId, const Tokens& tokens, const std::string& predecessor) {
    // A pair that is issued again keeps its used flags and lives as long as a new one.
    const auto store = [&](const std::string& table, const std::string& token, std::chrono::seconds lifetime) {
        Statement insert(m_database, "INSERT INTO " + table +
                                         "(hash, family_id, expires_at, predecessor) VALUES(?, ?, ?, ?) "
                                         "ON CONFLICT(hash) DO UPDATE SET expires_at = excluded.expires_at");
        insert.bindBlob(1, sha256(token)).bind(2, familyId).bind(3, now() + milliseconds(lifetime));
        if (!predecessor.empty())
            insert.bindBlob(4, sha256(predecessor));
        insert.step();
    };
    store("access_tokens", tokens.access, m_lifetimes.access);
    store("refresh_tokens", tokens.refresh, m_lifetimes.refresh);
}

void AccountStore::markUsed(std::string_view table, const std::string& token) {
    const std::string name(table);
    Statement mark(m_database, "UPDATE refresh_tokens SET successor_used = 1 WHERE hash = "
                               "(SELECT predecessor FROM " +
                                   name + " WHERE hash = ?)");
    mark.bindBlob(1, sha256(token)).step();
    Statement forget(m_database, "UPDATE " + name + " SET predecessor = NULL WHERE hash = ?");
    forget.bindBlob(1, sha256(token)).step();
}

void AccountStore::removeExpired() {
    for (const char* table : {"access_tokens", "refresh_tokens", "token_families"}) {
        Statement remove(m_database, std::string("DELETE FROM ") + table + " WHERE expires_at <= ?");
        remove.bind(1, now()).step();
    }
    // Clear it: with it, an old token would still lead to all later ones.
    Statement salts(m_database, "UPDATE refresh_tokens SET successor_salt = NULL "
                                "WHERE successor_salt IS NOT NULL AND successor_used = 1 AND used_at < ?");
    salts.bind(1, now() - milliseconds(m_lifetimes.reuseGrace)).step();
    Statement codes(m_database, "DELETE FROM authorization_codes WHERE expires_at <= ? AND family_id IS NULL");
    codes.bind(1, now()).step();
}

} // namespace quillo::server
