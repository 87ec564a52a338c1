#pragma once

#include <QDBusServiceWatcher>
#include <QObject>

#include <chrono>
#include <functional>

namespace quillo {

/// The state of the default collection, determined without asking the user for a password.
enum class KeyringState {
    missing, ///< there is no secret service, or it has no default collection yet
    silent,  ///< the service did not answer in time
    locked,
    open,
};

/// Queries the secret service (Secret Service API, org.freedesktop.Secret.Service and .Collection); waits at most
/// `deadline` per query. Any thread.
[[nodiscard]] KeyringState keyringState(std::chrono::milliseconds deadline);

/// Reports that the secret service appears, and every change of a collection, including its unlocking. Main thread.
class KeyringWatch final : public QObject {
    Q_OBJECT
public:
    explicit KeyringWatch(std::function<void()> changed);

private Q_SLOTS:
    void collectionDidChange() { m_changed(); }

private:
    std::function<void()> m_changed;
    QDBusServiceWatcher m_appearance;
};

} // namespace quillo
