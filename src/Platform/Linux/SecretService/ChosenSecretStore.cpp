#include "Core/Log.h"
#include "Platform/Linux/SecretService/Keyring.h"
#include "Platform/Linux/SecretService/SecretStores.h"

#include <optional>

namespace quillo {

namespace {

void warn(const QString& message) {
    appLog(QStringLiteral("[SecretService] ⚠️ ") + message, LogLevel::warn, QStringLiteral("SecretService"));
}

/// The service, or the file while there is no service. A locked keyring does not fall back to
/// the file: its owner may unlock it at any moment, and a program that starts with the session must not ask for a
/// password. Neither does a silent one: it may be busy, and its content must not be ignored.
class ChosenSecretStore final : public SecretStore {
public:
    ChosenSecretStore(const QString& fallbackPath, SecretServiceDeadlines deadlines)
        : m_path(fallbackPath), m_deadline(deadlines.state), m_patience(deadlines.appearance),
          m_service(createSecretServiceStore(deadlines.call)), m_file(createFileSecretStore(fallbackPath)) {}

    bool isAvailable() override {
        auto* store = chosen();
        // The state of the service is known; another query would cost its time again.
        return store && (store == m_service.get() || store->isAvailable());
    }

    std::optional<QByteArray> read(const QString& key) override {
        auto* store = chosen();
        if (!store)
            return std::nullopt;
        try {
            if (auto value = store->read(key))
                return value;
        } catch (const SecretStoreSilent&) {
            setState(KeyringState::silent);
            throw;
        }
        if (store == m_file.get())
            return std::nullopt;
        auto left = m_file->read(key);
        if (left && m_service->write(key, *left))
            m_file->remove(key);
        return left;
    }

    bool write(const QString& key, const QByteArray& value) override {
        auto* store = chosen();
        const bool written = store && store->write(key, value);
        // Remove it, so that an older value does not come back from the file.
        if (written && store == m_service.get())
            m_file->remove(key);
        return written;
    }

    bool remove(const QString& key) override {
        auto* store = chosen();
        const bool removed = store && store->remove(key);
        return store == m_file.get() ? removed : m_file->remove(key) && removed;
    }

    bool isLocked() override {
        chosen();
        return isClosed();
    }

    bool reopen() override {
        if (!m_state || m_state == KeyringState::open)
            return false;
        const auto state = keyringState(m_deadline);
        // A service that was there is being restarted; one that is known to hold secrets has yet to start.
        if (state == KeyringState::missing && (m_state == KeyringState::locked || isAwaited()))
            return false;
        // Until the service can be used, the file is.
        if (m_state == KeyringState::missing && !m_isAwaited && state != KeyringState::open)
            return false;
        if (std::exchange(m_isAwaited, false) || state != m_state)
            setState(state);
        return !isClosed();
    }

    void onChange(std::function<void()> changed) override {
        m_watch = changed ? std::make_unique<KeyringWatch>(std::move(changed)) : nullptr;
    }

private:
    [[nodiscard]] bool isClosed() const {
        return m_state == KeyringState::locked || m_state == KeyringState::silent ||
               (m_state == KeyringState::missing && m_isAwaited);
    }
    [[nodiscard]] bool isAwaited() const { return m_isAwaited && std::chrono::steady_clock::now() < m_awaitedUntil; }

    void setState(KeyringState state) {
        m_state = state;
        switch (state) {
        case KeyringState::open:
            return;
        case KeyringState::locked:
            return warn(QStringLiteral("The keyring of this desktop is locked. Until it is unlocked, Quillo has no "
                                       "account and forgets a sign-in when it ends"));
        case KeyringState::silent:
            return warn(QStringLiteral("The keyring of this desktop does not answer. Until it does, Quillo has no "
                                       "account and forgets a sign-in when it ends"));
        case KeyringState::missing:
            if (m_isAwaited)
                return warn(QStringLiteral("No secret service answers yet. Until one does, Quillo has no account"));
            return warn(
                QStringLiteral("No secret service answers on this desktop. Tokens and keys are kept in %1, which "
                               "you alone can read; they are not encrypted. Install or set up a keyring (such as "
                               "gnome-keyring or KWallet) to keep them there")
                    .arg(m_path));
        }
    }

    /// Null while the keyring is locked, silent or awaited.
    SecretStore* chosen() {
        if (!m_state) {
            const auto state = keyringState(m_deadline);
            m_awaitedUntil = std::chrono::steady_clock::now() + m_patience;
            m_isAwaited = state == KeyringState::missing && m_patience.count() > 0;
            setState(state);
        }
        if (isClosed())
            return nullptr;
        switch (*m_state) {
        case KeyringState::locked:
        case KeyringState::silent:
            return nullptr;
        case KeyringState::open:
            return m_service.get();
        case KeyringState::missing:
            break;
        }
        return m_file.get();
    }

    QString m_path;
    std::chrono::milliseconds m_deadline;
    std::chrono::milliseconds m_patience;
    std::chrono::steady_clock::time_point m_awaitedUntil;
    bool m_isAwaited = false; ///< missing, but known to hold secrets
    std::unique_ptr<SecretStore> m_service;
    std::unique_ptr<SecretStore> m_file;
    std::optional<KeyringState> m_state;
    std::unique_ptr<KeyringWatch> m_watch;
};

} // namespace

std::unique_ptr<SecretStore> createSecretStore(const QString& fallbackPath, SecretServiceDeadlines deadlines) {
    return std::make_unique<ChosenSecretStore>(fallbackPath, deadlines);
}

} // namespace quillo
