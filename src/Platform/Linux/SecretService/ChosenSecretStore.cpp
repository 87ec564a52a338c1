#include "Core/Log.h"
#include "Platform/Linux/SecretService/SecretStores.h"

namespace quillo {

namespace {

/// The service, or the file when there is none; which, is found out at the first call.
class ChosenSecretStore final : public SecretStore {
public:
    ChosenSecretStore(const QString& fallbackPath, std::chrono::milliseconds deadline)
        : m_path(fallbackPath), m_service(createSecretServiceStore(deadline)),
          m_file(createFileSecretStore(fallbackPath)) {}

    bool isAvailable() override { return chosen().isAvailable(); }

    std::optional<QByteArray> read(const QString& key) override {
        auto& store = chosen();
        if (auto value = store.read(key))
            return value;
        if (&store == m_file.get())
            return std::nullopt;
        auto left = m_file->read(key);
        if (left && m_service->write(key, *left))
            m_file->remove(key);
        return left;
    }

    bool write(const QString& key, const QByteArray& value) override {
        auto& store = chosen();
        const bool written = store.write(key, value);
        // An older value must not come back from the file.
        if (written && &store == m_service.get())
            m_file->remove(key);
        return written;
    }

    bool remove(const QString& key) override {
        auto& store = chosen();
        const bool removed = store.remove(key);
        return &store == m_file.get() ? removed : m_file->remove(key) && removed;
    }

private:
    SecretStore& chosen() {
        if (!m_chosen) {
            m_chosen = m_service->isAvailable() ? m_service.get() : m_file.get();
            if (m_chosen == m_file.get())
                appLog(
                    QStringLiteral("[SecretService] ⚠️ No secret service answers on this desktop. Tokens and keys are "
                                   "kept in %1, which you alone can read; they are not encrypted. Install or unlock "
                                   "a keyring (such as gnome-keyring or KWallet) and restart to keep them there")
                        .arg(m_path),
                    LogLevel::warn, QStringLiteral("SecretService"));
        }
        return *m_chosen;
    }

    QString m_path;
    std::unique_ptr<SecretStore> m_service;
    std::unique_ptr<SecretStore> m_file;
    SecretStore* m_chosen = nullptr;
};

} // namespace

std::unique_ptr<SecretStore> createSecretStore(const QString& fallbackPath, std::chrono::milliseconds deadline) {
    return std::make_unique<ChosenSecretStore>(fallbackPath, deadline);
}

} // namespace quillo
