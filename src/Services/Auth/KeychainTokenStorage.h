#pragma once

#include "Concurrency/Executor.h"
#include "Concurrency/Task.h"
#include "Platform/SecretStore.h"
#include "Services/Auth/InMemoryTokenStorage.h"

#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

namespace quillo {

// The name and the log lines stay: see docs/compatibility.md.
/// The application's secrets, in the desktop's secret store.
///
/// Reads come from memory and writes go through it, so that callers never wait for the secret service; a separate
/// thread accesses the store. Nothing is written before the store has been read, so that a new session cannot replace a
/// stored one. Failed writes are retried.
///
/// A session belongs to the server that issued it. The first server uses the plain keys; sessions of other servers use
/// the key, "@" and the server's name.
class KeychainTokenStorage final : public InMemoryTokenStorage {
public:
    /// A copy of the device id in the preferences, because it must survive a lost keychain. Called on the main thread.
    struct DeviceIdMirror {
        std::function<std::optional<QString>()> read;
        std::function<void(const QString&)> write;
    };
    static constexpr std::chrono::milliseconds retryInterval{5000};
    static constexpr std::chrono::milliseconds longestRetryInterval{300'000}; ///< for writes that keep failing

    /// `store` is used only on this object's own thread. `issuer` names the server of the session. Main thread.
    KeychainTokenStorage(std::unique_ptr<SecretStore> store, DeviceIdMirror mirror, QString issuer,
                         std::chrono::milliseconds retry = retryInterval);
    /// Finishes the queued writes.
    ~KeychainTokenStorage() override;

    /// Reads the store into memory. Main thread; the storage must outlive it. Never throws.
    Task<> load();
    void clear() override;

    /// Whether the store is locked or has not answered yet; valid after `load`. Until it opens, new values are kept in
    /// memory.
    [[nodiscard]] bool isLocked() const { return m_isLocked; }
    /// Called on the main thread when a locked store was opened. The values are then those of the stored session. If
    /// the store had none, or the user signed in to an account in the meantime, the current values were stored instead.
    std::function<void()> onUnlocked;

private:
    /// The stored values.
    struct Contents {
        bool isKnown = false; ///< whether the store is open and has answered
        bool isOwned = false; ///< whether the plain keys belong to a server
        QString suffix;       ///< of the keys of this server's session
        Values values;
    };
    static Contents read(SecretStore& store, const QString& issuer);
    /// Merges the stored values with those set in the meantime; one of the two sessions replaces the other completely.
    void merge(const Contents& contents);
    void lookAgain();
    void changed(const QString& key, const std::optional<QByteArray>& value) override;
    void write(const QString& key, const std::optional<QByteArray>& value);
    /// On the store's thread.
    void writeThrough(const QString& name, const std::optional<QByteArray>& value, const QString& line);
    void retryWrites();

    std::unique_ptr<SecretStore> m_store;
    DeviceIdMirror m_mirror;
    QString m_issuer;
    bool m_isRead = false;
    bool m_hasSignedOut = false; ///< before the store was read
    bool m_isLocked = false;
    bool m_isOwned = false;
    bool m_isLooking = false;
    QString m_suffix;
    Values m_unwritten; ///< by name in the store; on its thread
    QTimer m_retry;
    std::shared_ptr<int> m_alive = std::make_shared<int>();
    SerialExecutor m_executor;
};

} // namespace quillo
