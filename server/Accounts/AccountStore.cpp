#include "Accounts/AccountStore.h"

#include "Accounts/AccountSchema.h"
#include "Foundation/Encoding.h"
#include "Foundation/Log.h"

namespace quillo::server {
namespace {

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
    Statement find(m_database, "SELECT r.family_id, r.expires_at, r.used_at, r.successor_salt, f.user_id "
                               "FROM refresh_tokens r JOIN token_families f ON f.id = r.family_id WHERE r.hash = ?");
    find.bindBlob(1, hash);
    if (!find.step() || find.integer(1) <= now())
        return std::nullopt;

    const std::string familyId = find.text(0);
    const std::string userId = find.text(4);
    const bool used = !find.isNull(2);
    // A clock that was set back counts as within the grace.
    if (used && now() - find.integer(2) > milliseconds(m_lifetimes.reuseGrace)) {
        endFamily(familyId);
        transaction.commit();
        log(LogLevel::warning, "accounts",
            "a refresh token of user " + userId + " was used twice; every token of that sign-in is ended");
        return std::nullopt;
    }
    auto user = userById(userId);
    if (!user)
        return std::nullopt;

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
    // The tokens go with it: the tables refer to each other.
    Statement remove(m_database, "DELETE FROM users WHERE id = ?");
    remove.bind(1, userId).step();
    return m_database.changes() > 0;
}

std::optional<User> AccountStore::userOf(const std::string& accessToken) {
    const std::scoped_lock lock(m_mutex);
    const auto owner = ownerOf(accessToken);
    return owner ? userById(*owner) : std::nullopt;
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
    storeTokens(familyId, tokens);
    return tokens;
}

Tokens AccountStore::issueSuccessors(const std::string& familyId, const std::string& refreshToken,
                                     const std::string& salt) {
    Tokens tokens{encodeBase64Url(hmacSha256(refreshToken, "access " + salt)),
                  encodeBase64Url(hmacSha256(refreshToken, "refresh " + salt)), m_lifetimes.access};
    storeTokens(familyId, tokens);
    return tokens;
}

void AccountStore::storeTokens(const std::string& familyId, const Tokens& tokens) {
    // A pair that is given again stays as it is, used or not.
    Statement access(m_database, "INSERT OR IGNORE INTO access_tokens(hash, family_id, expires_at) VALUES(?, ?, ?)");
    access.bindBlob(1, sha256(tokens.access))
        .bind(2, familyId)
        .bind(3, now() + milliseconds(m_lifetimes.access))
        .step();
    Statement refresh(m_database, "INSERT OR IGNORE INTO refresh_tokens(hash, family_id, expires_at) VALUES(?, ?, ?)");
    refresh.bindBlob(1, sha256(tokens.refresh)).bind(2, familyId);
    refresh.bind(3, now() + milliseconds(m_lifetimes.refresh)).step();
}

void AccountStore::removeExpired() {
    for (const char* table : {"access_tokens", "refresh_tokens", "token_families"}) {
        Statement remove(m_database, std::string("DELETE FROM ") + table + " WHERE expires_at <= ?");
        remove.bind(1, now()).step();
    }
    // With it an old token would still lead to all that followed.
    Statement salts(m_database, "UPDATE refresh_tokens SET successor_salt = NULL "
                                "WHERE successor_salt IS NOT NULL AND used_at < ?");
    salts.bind(1, now() - milliseconds(m_lifetimes.reuseGrace)).step();
    Statement codes(m_database, "DELETE FROM authorization_codes WHERE expires_at <= ? AND family_id IS NULL");
    codes.bind(1, now()).step();
}

} // namespace quillo::server
