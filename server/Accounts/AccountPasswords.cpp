// The part of AccountStore for accounts with e-mail address and password.

#include "Accounts/AccountStore.h"
#include "Foundation/Encoding.h"

namespace quillo::server {

std::optional<User> AccountStore::addAccount(const std::string& email, const std::optional<std::string>& fullName,
                                             const std::string& passwordHash) {
    const std::scoped_lock lock(m_mutex);
    const User user{randomUuid(), email, fullName, false};
    Statement insert(m_database, "INSERT OR IGNORE INTO users(id, email, full_name, password_hash, is_anonymous, "
                                 "created_at) VALUES(?, ?, nullif(?, ''), ?, 0, ?)");
    insert.bind(1, user.id).bind(2, email).bind(3, fullName.value_or("")).bind(4, passwordHash).bind(5, now()).step();
    if (m_database.changes() == 0)
        return std::nullopt;
    return user;
}

std::optional<Credentials> AccountStore::credentialsOf(const std::string& email) {
    const std::scoped_lock lock(m_mutex);
    Statement find(m_database, "SELECT id, password_hash FROM users WHERE email = ? AND password_hash IS NOT NULL");
    find.bind(1, email);
    if (!find.step())
        return std::nullopt;
    return Credentials{find.text(0), find.text(1)};
}

void AccountStore::replaceHash(const Credentials& old, const std::string& passwordHash) {
    const std::scoped_lock lock(m_mutex);
    Statement update(m_database, "UPDATE users SET password_hash = ? WHERE id = ? AND password_hash = ?");
    update.bind(1, passwordHash).bind(2, old.userId).bind(3, old.passwordHash).step();
}

bool AccountStore::resetPassword(const std::string& email, const std::string& passwordHash) {
    const std::scoped_lock lock(m_mutex);
    Transaction transaction(m_database);
    Statement update(m_database, "UPDATE users SET password_hash = ? WHERE email = ?");
    update.bind(1, passwordHash).bind(2, email).step();
    if (m_database.changes() == 0)
        return false;
    // Delete codes too: one issued for the old password could still be exchanged.
    for (const char* table : {"token_families", "authorization_codes"}) {
        Statement end(m_database,
                      std::string("DELETE FROM ") + table + " WHERE user_id = (SELECT id FROM users WHERE email = ?)");
        end.bind(1, email).step();
    }
    transaction.commit();
    return true;
}

std::vector<AccountSummary> AccountStore::accounts() {
    const std::scoped_lock lock(m_mutex);
    Statement query(m_database, "SELECT id, email, full_name, created_at, (SELECT count(*) FROM token_families f WHERE "
                                "f.user_id = users.id AND f.expires_at > ?) FROM users WHERE email IS NOT NULL "
                                "ORDER BY email");
    query.bind(1, now());
    std::vector<AccountSummary> accounts;
    while (query.step()) {
        AccountSummary summary;
        summary.user = {query.text(0), query.text(1), std::nullopt, false};
        if (!query.isNull(2))
            summary.user.fullName = query.text(2);
        summary.created = std::chrono::system_clock::time_point(std::chrono::milliseconds(query.integer(3)));
        summary.signIns = query.integer(4);
        accounts.push_back(std::move(summary));
    }
    return accounts;
}

} // namespace quillo::server
