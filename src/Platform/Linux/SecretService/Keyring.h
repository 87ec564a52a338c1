#pragma once

#include <QObject>

#include <chrono>
#include <functional>

namespace quillo {

/// The collection that secrets go to, as it is without anybody being asked for a password.
enum class KeyringState {
    missing, ///< there is no secret service, or it has no default collection yet
    silent,  ///< there is one, and it did not answer in time
    locked,
    open,
};

/// Asks the secret service (Secret Service API, org.freedesktop.Secret.Service and .Collection); waits `deadline` per
/// question at most. Any thread.
[[nodiscard]] KeyringState keyringState(std::chrono::milliseconds deadline);

/// Tells whenever a collection of the secret service has changed, which its unlocking is too. Main thread.
class KeyringWatch final : public QObject {
    Q_OBJECT
public:
    explicit KeyringWatch(std::function<void()> changed);

private Q_SLOTS:
    void collectionDidChange() { m_changed(); }

private:
    std::function<void()> m_changed;
};

} // namespace quillo
