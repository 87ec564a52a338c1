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
/// Reads come from memory and writes go through it, so that no caller ever waits for the secret service: the store is
/// touched on a thread of its own. Until the store has been read nothing is written to it, so that no session replaces
/// one that has yet to be found. What could not be written is tried again.
///
/// A session belongs to the server that issued it. The first server that stores one has the plain keys; the sessions of
/// others stand beside them, under the key, "@" and the server's name.
class KeychainTokenStorage final : public InMemoryTokenStorage {
public:
    /// A second home of the device id, in the preferences: it must survive a lost keychain. Called on the main thread.
    struct DeviceIdMirror {
        std::function<std::optional<QString>()> read;
        std::function<void(const QString&)> write;
    };
    static constexpr std::chrono::milliseconds retryInterval{5000};
    static constexpr std::chrono::milliseconds longestRetryInterval{300'000}; ///< of writes that keep failing

    /// `store` is used on this object's own thread alone. `issuer` names the server whose session this is to be. Main
    /// thread.
    KeychainTokenStorage(std::unique_ptr<SecretStore> store, DeviceIdMirror mirror, QString issuer,
                         std::chrono::milliseconds retry = retryInterval);
    /// Finishes the writes that are queued.
    ~KeychainTokenStorage() override;

    /// Reads the store into memory. Main thread; the storage must outlive it. Never throws.
    Task<> load();
    void clear() override;

    /// The store is locked, or has yet to answer; known after `load`. What is set meanwhile is kept in memory.
    [[nodiscard]] bool isLocked() const { return m_isLocked; }
    /// Called on the main thread when a locked store was opened and the values are those of it: of the session it
    /// held, unless an account was signed in to meanwhile. Then, and where it held none, the present ones went into it.
    std::function<void()> onUnlocked;

private:
    /// What the store held.
    struct Contents {
        bool isKnown = false; ///< it is open, and answered
        bool isOwned = false; ///< the plain keys are some server's
        QString suffix;       ///< of the keys of this server's session
        Values values;
    };
    static Contents read(SecretStore& store, const QString& issuer);
    /// Joins what was read with what was set meanwhile; one of the two sessions wins whole.
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
