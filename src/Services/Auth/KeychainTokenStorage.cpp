#include "Services/Auth/KeychainTokenStorage.h"

#include "Concurrency/AsyncStream.h"
#include "Core/Log.h"
#include "Services/Auth/AuthTokens.h"

#include <QStringBuilder>

#include <array>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("TokenStorage"));
}

const std::array storedKeys{tokenKey::accessToken, tokenKey::refreshToken, tokenKey::accessTokenExpiresAt,
                            tokenKey::userData, tokenKey::deviceId};

/// The log line for a stored value; nothing for a key without one.
QString storedLine(const QString& key) {
    if (key == tokenKey::accessToken)
        return QStringLiteral("Access token stored");
    if (key == tokenKey::refreshToken)
        return QStringLiteral("Refresh token stored");
    if (key == tokenKey::userData)
        return QStringLiteral("User data stored");
    if (key == tokenKey::deviceId)
        return QStringLiteral("Device ID stored in keychain + UserDefaults (persistent)");
    return {};
}

/// Whether `user` has an account.
bool holdsAccount(const std::optional<QByteArray>& user) {
    try {
        return user && !authCoding::decodeUser(*user).isAnonymous;
    } catch (const std::runtime_error&) {
        return false;
    }
}

} // namespace

KeychainTokenStorage::KeychainTokenStorage(std::unique_ptr<SecretStore> store, DeviceIdMirror mirror, QString issuer,
                                           std::chrono::milliseconds retry)
    : m_store(std::move(store)), m_mirror(std::move(mirror)), m_issuer(std::move(issuer)),
      m_executor(QStringLiteral("com.quillo.keychain")) {
    m_store->onChange([this] { lookAgain(); });
    m_retry.setInterval(retry);
    QObject::connect(&m_retry, &QTimer::timeout, &m_retry, [this] { m_isLocked ? lookAgain() : retryWrites(); });
}

KeychainTokenStorage::~KeychainTokenStorage() { m_store->onChange({}); }

void KeychainTokenStorage::changed(const QString& key, const std::optional<QByteArray>& value) {
    if (key == tokenKey::deviceId && value && m_mirror.write)
        m_mirror.write(QString::fromUtf8(*value));
    if (m_isRead)
        write(key, value);
}

void KeychainTokenStorage::write(const QString& key, const std::optional<QByteArray>& value) {
    if (value && !std::exchange(m_isOwned, true))
        m_executor.post([this, issuer = m_issuer.toUtf8()] { writeThrough(tokenKey::issuer, issuer, {}); });
    m_executor.post(
        [this, name = QString(key % m_suffix), value, line = storedLine(key)] { writeThrough(name, value, line); });
}

void KeychainTokenStorage::writeThrough(const QString& name, const std::optional<QByteArray>& value,
                                        const QString& line) {
    const bool isDone = value ? m_store->write(name, *value) : m_store->remove(name);
    if (isDone) {
        m_unwritten.remove(name);
        if (value && !line.isEmpty())
            log(line);
        return;
    }
    log((value ? QStringLiteral("Keychain write failed for ") : QStringLiteral("Keychain delete failed for ")) % name,
        LogLevel::error);
    m_unwritten.insert(name, value);
    EventExecutor::main().post([this, alive = std::weak_ptr(m_alive)] {
        if (alive.lock())
            m_retry.start();
    });
}

void KeychainTokenStorage::retryWrites() {
    m_retry.stop();
    m_retry.setInterval(std::min(m_retry.intervalAsDuration() * 2, longestRetryInterval));
    m_executor.post([this] {
        // A refresh token works only once, so a lost one would cost the session at the next start.
        const auto left = m_unwritten;
        for (auto next = left.begin(); next != left.end(); ++next)
            writeThrough(next.key(), next.value(), {});
    });
}

void KeychainTokenStorage::clear() {
    m_hasSignedOut = m_hasSignedOut || !m_isRead || holdsAccount(userData());
    InMemoryTokenStorage::clear();
    m_executor.post([] { log(QStringLiteral("Auth tokens cleared from keychain (deviceId preserved)")); });
}

Task<> KeychainTokenStorage::load() {
    auto [ends, end] = AsyncStream<Contents>::make(EventExecutor::main());
    m_executor.post([store = m_store.get(), issuer = m_issuer, end = end] { end.yield(read(*store, issuer)); });
    const auto contents = (co_await ends.next()).value_or(Contents());
    m_isLocked = !contents.isKnown;
    if (m_isLocked)
        m_retry.start();
    else
        merge(contents);
    if (deviceId() || !m_mirror.read)
        co_return;
    if (const auto mirrored = m_mirror.read(); mirrored && !mirrored->isEmpty()) {
        log(QStringLiteral("Device ID recovered from UserDefaults fallback (Keychain unavailable)"), LogLevel::warn);
        setDeviceId(*mirrored);
    }
}

KeychainTokenStorage::Contents KeychainTokenStorage::read(SecretStore& store, const QString& issuer) {
    Contents contents;
    const bool isAvailable = store.isAvailable();
    if (store.isLocked())
        return contents;
    if (!isAvailable) {
        for (const auto& key : storedKeys)
            log(QStringLiteral("Keychain read failed for ") % key, LogLevel::error);
        contents.isKnown = true;
        return contents;
    }
    try {
        const auto owner = store.read(tokenKey::issuer);
        contents.isOwned = owner.has_value();
        if (owner && *owner != issuer.toUtf8())
            contents.suffix = u'@' % issuer;
        for (const auto& key : storedKeys)
            if (const auto value = store.read(key % contents.suffix))
                contents.values.insert(key, *value);
        contents.isKnown = true;
    } catch (const SecretStoreSilent& error) {
        log(QStringLiteral("Keychain read failed for ") % QString::fromUtf8(error.what()), LogLevel::error);
    }
    return contents;
}

void KeychainTokenStorage::merge(const Contents& contents) {
    const auto present = values();
    const bool isStored = contents.values.contains(tokenKey::refreshToken);
    // Respect a sign-in or sign-out in the meantime, also when an anonymous session followed it. Any other anonymous
    // session was only a stopgap.
    const bool staysPresent = !isStored || holdsAccount(userData()) || m_hasSignedOut;
    m_isRead = true;
    m_isOwned = contents.isOwned;
    m_suffix = contents.suffix;
    auto merged = staysPresent ? present : contents.values;
    const auto device = contents.values.value(tokenKey::deviceId);
    if (device)
        merged.insert(tokenKey::deviceId, device);
    // A session stored without its server's name is assumed to belong to the current server.
    const bool isUnclaimed = !contents.isOwned && !contents.values.isEmpty();
    replaceAll(merged);
    if (isUnclaimed && !std::exchange(m_isOwned, true))
        m_executor.post([this, issuer = m_issuer.toUtf8()] { writeThrough(tokenKey::issuer, issuer, {}); });
    for (auto next = merged.begin(); next != merged.end(); ++next)
        if (contents.values.value(next.key()) != next.value())
            write(next.key(), next.value());
}

void KeychainTokenStorage::lookAgain() {
    if (std::exchange(m_isLooking, true))
        return;
    m_executor.post([this] {
        auto contents = m_store->reopen() ? read(*m_store, m_issuer) : Contents();
        EventExecutor::main().post([this, contents = std::move(contents), alive = std::weak_ptr(m_alive)] {
            if (!alive.lock())
                return;
            m_isLooking = false;
            if (!contents.isKnown)
                return;
            log(QStringLiteral("The keyring was unlocked"));
            m_isLocked = false;
            m_retry.stop();
            merge(contents);
            if (onUnlocked)
                onUnlocked();
        });
    });
}

} // namespace quillo
