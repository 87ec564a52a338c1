#include "Services/Auth/KeychainTokenStorage.h"

#include "Concurrency/AsyncStream.h"
#include "Core/Log.h"

#include <QStringBuilder>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("TokenStorage"));
}

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

} // namespace

KeychainTokenStorage::KeychainTokenStorage(std::unique_ptr<SecretStore> store, DeviceIdMirror mirror)
    : m_store(std::move(store)), m_mirror(std::move(mirror)), m_executor(QStringLiteral("com.quillo.keychain")) {}

KeychainTokenStorage::~KeychainTokenStorage() = default;

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
        // Asked once before: every read of a store that does not answer would wait out its deadline.
        const bool available = m_store->isAvailable();
        for (const auto& key : {tokenKey::accessToken, tokenKey::refreshToken, tokenKey::accessTokenExpiresAt,
                                tokenKey::userData, tokenKey::deviceId}) {
            if (!available)
                log(QStringLiteral("Keychain read failed for ") % key, LogLevel::error);
            else if (const auto value = m_store->read(key))
                adopt(key, *value);
        }
        end.finish();
    });
    co_await ends.next();
    if (deviceId() || !m_mirror.read)
        co_return;
    if (const auto mirrored = m_mirror.read(); mirrored && !mirrored->isEmpty()) {
        log(QStringLiteral("Device ID recovered from UserDefaults fallback (Keychain unavailable)"), LogLevel::warn);
        setDeviceId(*mirrored);
    }
}

} // namespace quillo
