#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

namespace quillo {

/// Secrets by key, for this application and user. Calls may wait for the desktop's secret service up to a short
/// deadline; a missing or locked one makes `isAvailable` false. One thread, but for `onChange`.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    [[nodiscard]] virtual bool isAvailable() = 0;
    virtual std::optional<QByteArray> read(const QString& key) = 0;
    virtual bool write(const QString& key, const QByteArray& value) = 0;
    virtual bool remove(const QString& key) = 0;

    /// The store is there, but its owner has not unlocked it.
    [[nodiscard]] virtual bool isLocked() { return false; }
    /// Looks at a locked store again; true when it is open from now on.
    virtual bool reopen() { return false; }
    /// `changed` is called, on the main thread, when a look with `reopen` may be worth it; nothing ends that. Main
    /// thread.
    virtual void onChange(std::function<void()> /*changed*/) {}
};

} // namespace quillo
