#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>
#include <stdexcept>

namespace quillo {

/// Thrown by `SecretStore::read` when the store did not answer: the value may exist.
class SecretStoreSilent : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Secrets by key, for this application and user. Calls may wait for the desktop's secret service up to a short
/// deadline; `isAvailable` is false when it is missing or locked. Used on one thread, except `onChange`.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    [[nodiscard]] virtual bool isAvailable() = 0;
    /// Nothing when the secret does not exist. Throws SecretStoreSilent.
    virtual std::optional<QByteArray> read(const QString& key) = 0;
    virtual bool write(const QString& key, const QByteArray& value) = 0;
    virtual bool remove(const QString& key) = 0;

    /// The store exists, but its owner has not unlocked it or it has not answered yet, so its content is unknown.
    [[nodiscard]] virtual bool isLocked() { return false; }
    /// Checks a locked store again; true when it is now open.
    virtual bool reopen() { return false; }
    /// Calls `changed` on the main thread whenever `reopen` may succeed, for as long as the store exists. Main thread.
    virtual void onChange(std::function<void()> /*changed*/) {}
};

} // namespace quillo
