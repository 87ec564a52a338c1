// The part of AccountStore for authorization codes and the anonymous users to be merged with them.

#include "Accounts/AccountStore.h"
#include "Foundation/Encoding.h"
#include "Foundation/Log.h"

namespace quillo::server {

std::optional<std::string> AccountStore::issueCode(const CodeGrant& grant, const std::string& passwordHash) {
    const std::scoped_lock lock(m_mutex);
    Transaction transaction(m_database);
    removeExpired();
    std::string code = randomToken();
    Statement insert(m_database,
                     "INSERT INTO authorization_codes(hash, user_id, client_id, redirect_uri, challenge, "
                     "anonymous_user_id, is_new_user, expires_at) "
                     "SELECT ?1, id, ?3, ?4, ?5, ?6, ?7, ?8 FROM users WHERE id = ?2 AND password_hash = ?9");
    insert.bindBlob(1, sha256(code)).bind(2, grant.userId).bind(3, grant.clientId).bind(4, grant.redirectUri);
    insert.bind(5, grant.challenge).bind(6, grant.anonymousUserId).bind(7, int64_t{grant.isNewUser});
    insert.bind(8, now() + std::chrono::milliseconds(m_lifetimes.code).count()).bind(9, passwordHash).step();
    if (m_database.changes() == 0)
        return std::nullopt;
    transaction.commit();
    return code;
}

std::optional<RedeemedCode> AccountStore::redeem(const CodeExchange& exchange) {
    const std::scoped_lock lock(m_mutex);
    const auto hash = sha256(exchange.code);
    Transaction transaction(m_database);
    Statement find(m_database, "SELECT user_id, client_id, redirect_uri, challenge, anonymous_user_id, is_new_user, "
                               "expires_at, family_id FROM authorization_codes WHERE hash = ?");
    find.bindBlob(1, hash);
    if (!find.step())
        return std::nullopt;
    const std::string userId = find.text(0);
    if (!find.isNull(7)) {
        // The code's own row is deleted with its family.
        endFamily(find.text(7));
        transaction.commit();
        log(LogLevel::warning, "accounts",
            "an authorization code of user " + userId + " was used twice; the sign-in that it gave is ended");
        return std::nullopt;
    }
    const bool fits = find.integer(6) > now() && find.text(1) == exchange.clientId &&
                      find.text(2) == exchange.redirectUri &&
                      equalSecrets(find.text(3), encodeBase64Url(sha256(exchange.verifier)));
    auto user = userById(userId);
    if (!fits || !user) {
        Statement remove(m_database, "DELETE FROM authorization_codes WHERE hash = ?");
        remove.bindBlob(1, hash).step();
        transaction.commit();
        log(LogLevel::warning, "accounts",
            "an authorization code of user " + userId + " was shown too late or by the wrong client; it is used up");
        return std::nullopt;
    }

    RedeemedCode redeemed;
    const std::string anonymousUserId = find.text(4);
    redeemed.session.user = std::move(*user);
    redeemed.session.isNewUser = find.integer(5) != 0;
    const std::string familyId = beginFamily(userId);
    redeemed.session.tokens = issueTokens(familyId);
    Statement use(m_database, "UPDATE authorization_codes SET family_id = ? WHERE hash = ?");
    use.bind(1, familyId).bindBlob(2, hash).step();
    if (beginMerge(anonymousUserId, exchange.anonymousToken, userId))
        redeemed.mergedUser = anonymousUserId;
    removeExpired();
    transaction.commit();
    return redeemed;
}

bool AccountStore::beginMerge(const std::string& anonymousUserId, const std::string& anonymousToken,
                              const std::string& userId) {
    if (anonymousUserId.empty() || anonymousToken.empty() || ownerOf(anonymousToken) != anonymousUserId)
        return false;
    // The device can now get a new anonymous user, who is not merged into any account.
    Statement mark(m_database,
                   "UPDATE users SET merged_into = ?, device_hash = NULL WHERE id = ? AND is_anonymous = 1");
    mark.bind(1, userId).bind(2, anonymousUserId).step();
    if (m_database.changes() == 0)
        return false;
    Statement end(m_database, "DELETE FROM token_families WHERE user_id = ?");
    end.bind(1, anonymousUserId).step();
    return true;
}

void AccountStore::finishMerge(const std::string& userId) {
    const std::scoped_lock lock(m_mutex);
    Statement remove(m_database, "DELETE FROM users WHERE id = ? AND merged_into IS NOT NULL");
    remove.bind(1, userId).step();
}

std::vector<Merge> AccountStore::unfinishedMerges() {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, "SELECT id, merged_into FROM users WHERE merged_into IS NOT NULL");
    std::vector<Merge> merges;
    while (query.step())
        merges.push_back({query.text(0), query.text(1)});
    return merges;
}

} // namespace quillo::server
