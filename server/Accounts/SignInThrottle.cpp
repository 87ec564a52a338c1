#include "Accounts/SignInThrottle.h"

#include <algorithm>

namespace quillo::server {

using std::chrono::seconds;

SignInThrottle::SignInThrottle(SteadyClock clock, const Rule& email, const Rule& address)
    : m_clock(std::move(clock)), m_emails{email, {}, {}}, m_addresses{address, {}, {}} {}

std::optional<seconds> SignInThrottle::admit(const std::string& email, const std::string& address) {
    const std::scoped_lock lock(m_mutex);
    const auto now = m_clock();
    forgetOld(m_emails, now);
    forgetOld(m_addresses, now);
    const auto wait = std::max(waitOf(m_emails, email, now), waitOf(m_addresses, address, now));
    if (wait > seconds(0))
        return wait;
    count(m_emails, email, now);
    count(m_addresses, address, now);
    return std::nullopt;
}

void SignInThrottle::succeeded(const std::string& email, const std::string& address) {
    const std::scoped_lock lock(m_mutex);
    forget(m_emails, email);
    // Forgive only this attempt: a user with an account must not get free guesses at other accounts in between.
    const auto found = m_addresses.entries.find(address);
    if (found == m_addresses.entries.end())
        return;
    if (--found->second.attempts <= 0)
        forget(m_addresses, address);
    else if (found->second.attempts < m_addresses.rule.freeAttempts)
        found->second.blockedUntil = {};
}

size_t SignInThrottle::size() const {
    const std::scoped_lock lock(m_mutex);
    return m_emails.entries.size() + m_addresses.entries.size();
}

seconds SignInThrottle::waitOf(const Table& table, const std::string& key, TimePoint now) {
    const auto found = table.entries.find(key);
    if (found == table.entries.end() || found->second.blockedUntil <= now)
        return seconds(0);
    return std::chrono::ceil<seconds>(found->second.blockedUntil - now);
}

void SignInThrottle::count(Table& table, const std::string& key, TimePoint now) {
    auto [found, isNew] = table.entries.try_emplace(key);
    Entry& entry = found->second;
    if (isNew)
        entry.place = table.byUse.insert(table.byUse.end(), key);
    else
        table.byUse.splice(table.byUse.end(), table.byUse, entry.place);
    entry.touched = now;
    ++entry.attempts;
    const int beyond = entry.attempts - table.rule.freeAttempts;
    if (beyond >= 0)
        entry.blockedUntil = now + std::min(table.rule.longestWait, table.rule.firstWait * (1 << std::min(beyond, 10)));
    if (table.entries.size() > table.rule.maxKeys)
        forget(table, std::string(table.byUse.front()));
}

void SignInThrottle::forget(Table& table, const std::string& key) {
    const auto found = table.entries.find(key);
    if (found == table.entries.end())
        return;
    table.byUse.erase(found->second.place);
    table.entries.erase(found);
}

void SignInThrottle::forgetOld(Table& table, TimePoint now) {
    while (!table.byUse.empty()) {
        const auto oldest = table.entries.find(table.byUse.front());
        if (now - oldest->second.touched < table.rule.forgottenAfter)
            return;
        forget(table, std::string(table.byUse.front()));
    }
}

} // namespace quillo::server
