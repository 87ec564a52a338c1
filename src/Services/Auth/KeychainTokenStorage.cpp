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

/// What is logged when a value reached the store; nothing for a key that has no line.
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

void write(SecretStore& store, const QString& key, const QByteArray& value) {
    if (!store.write(key, value))
        log(QStringLiteral("Keychain write failed for ") % key, LogLevel::error);
    else if (const auto line = storedLine(key); !line.isEmpty())
        log(line);
}

void remove(SecretStore& store, const QString& key) {
    if (!store.remove(key))
        log(QStringLiteral("Keychain delete failed for ") % key, LogLevel::error);
}

/// Whether `user` is one with an account.
bool holdsAccount(const std::optional<QByteArray>& user) {
    try {
        return user && !authCoding::decodeUser(*user).isAnonymous;
    } catch (const std::runtime_error&) {
        return false;
    }
}

} // namespace

KeychainTokenStorage::KeychainTokenStorage(std::unique_ptr<SecretStore> store, DeviceIdMirror mirror)
    : m_store(std::move(store)), m_mirror(std::move(mirror)), m_executor(QStringLiteral("com.quillo.keychain")) {
    m_store->onChange([this] { lookAgain(); });
}

KeychainTokenStorage::~KeychainTokenStorage() { m_store->onChange({}); }

void KeychainTokenStorage::changed(const QString& key, const std::optional<QByteArray>& value) {
    if (key == tokenKey::deviceId && value && m_mirror.write)
        m_mirror.write(QString::fromUtf8(*value));
    m_executor.post([store = m_store.get(), key, value] {
        if (value)
            write(*store, key, *value);
        else
            remove(*store, key);
    });
}

void KeychainTokenStorage::clear() {
    InMemoryTokenStorage::clear();
    m_executor.post([] { log(QStringLiteral("Auth tokens cleared from keychain (deviceId preserved)")); });
}

Task<> KeychainTokenStorage::load() {
    auto [ends, end] = AsyncStream<bool>::make(EventExecutor::main());
    m_executor.post([this, end = end] {
        const bool locked = m_store->isLocked();
        readAll();
        end.yield(locked);
    });
    m_isLocked = (co_await ends.next()).value_or(false);
    if (deviceId() || !m_mirror.read)
        co_return;
    if (const auto mirrored = m_mirror.read(); mirrored && !mirrored->isEmpty()) {
        log(QStringLiteral("Device ID recovered from UserDefaults fallback (Keychain unavailable)"), LogLevel::warn);
        setDeviceId(*mirrored);
    }
}

void KeychainTokenStorage::readAll() {
    // Asked once before: every read of a store that does not answer would wait out its deadline.
    const bool available = m_store->isAvailable();
    for (const auto& key : storedKeys) {
        if (!available)
            log(QStringLiteral("Keychain read failed for ") % key, LogLevel::error);
        else if (const auto value = m_store->read(key))
            adopt(key, *value);
    }
}

void KeychainTokenStorage::lookAgain() {
    if (!m_isLocked)
        return;
    m_executor.post([this] {
        if (!m_store->reopen())
            return;
        log(QStringLiteral("The keyring was unlocked"));
        mergeAfterUnlock();
        EventExecutor::main().post([this, alive = std::weak_ptr(m_alive)] {
            if (!alive.lock())
                return;
            m_isLocked = false;
            if (onUnlocked)
                onUnlocked();
        });
    });
}

void KeychainTokenStorage::mergeAfterUnlock() {
    if (!holdsAccount(userData()) && m_store->read(tokenKey::refreshToken)) {
        for (const auto& key : storedKeys)
            if (const auto stored = m_store->read(key))
                replace(key, *stored);
        return;
    }
    for (const auto& key : storedKeys)
        if (const auto present = value(key))
            write(*m_store, key, *present);
}

} // namespace quillo
