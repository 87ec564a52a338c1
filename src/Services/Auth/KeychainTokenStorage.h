#pragma once

#include "Concurrency/Executor.h"
#include "Concurrency/Task.h"
#include "Platform/SecretStore.h"
#include "Services/Auth/InMemoryTokenStorage.h"

#include <functional>
#include <memory>

namespace quillo {

// The name and the log lines stay: see docs/compatibility.md.
/// The application's secrets, in the desktop's secret store.
///
/// Reads come from memory and writes go through it, so that no caller ever waits for the secret service: the store is
/// touched on a thread of its own. Before `load` has ended every value but those set since reads as absent.
class KeychainTokenStorage final : public InMemoryTokenStorage {
public:
    /// A second home of the device id, in the preferences: it must survive a lost keychain. Called on the main thread.
    struct DeviceIdMirror {
        std::function<std::optional<QString>()> read;
        std::function<void(const QString&)> write;
    };

    /// `store` is used on this object's own thread alone. Main thread.
    KeychainTokenStorage(std::unique_ptr<SecretStore> store, DeviceIdMirror mirror);
    /// Finishes the writes that are queued.
    ~KeychainTokenStorage() override;

    /// Reads the store into memory. Main thread; the storage must outlive it. Never throws.
    Task<> load();
    void clear() override;

    /// The store is locked; known after `load`. What is set meanwhile is kept in memory.
    [[nodiscard]] bool isLocked() const { return m_isLocked; }
    /// Called on the main thread when a locked store was unlocked and the values are those of it: of the session it
    /// held, unless an account was signed in to meanwhile. Then, and where it held none, the present ones went into it.
    std::function<void()> onUnlocked;

private:
    void lookAgain();
    void readAll();
    void mergeAfterUnlock();
    void changed(const QString& key, const std::optional<QByteArray>& value) override;

    std::unique_ptr<SecretStore> m_store;
    DeviceIdMirror m_mirror;
    bool m_isLocked = false;
    std::shared_ptr<int> m_alive = std::make_shared<int>();
    SerialExecutor m_executor;
};

} // namespace quillo
