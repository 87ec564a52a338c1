#pragma once

#include "Platform/Linux/AtSpi/AtSpiCalls.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

namespace quillo {

/// Connects to the accessibility bus and follows the focus by its events. Main thread; no call blocks on another
/// program.
class AtSpiFocus : public QObject {
    Q_OBJECT

public:
    AtSpiFocus();
    ~AtSpiFocus() override;
    AtSpiFocus(const AtSpiFocus&) = delete;
    AtSpiFocus& operator=(const AtSpiFocus&) = delete;

    /// Obtains the address of the bus and connects to it; failures are logged.
    void start();
    [[nodiscard]] const AtSpiObject& focused() const { return m_focused; }
    /// Sets the focused element that was found in `process` without an event.
    void found(const AtSpiObject& object, int64_t process);
    /// Whether the focused element is known to belong to `process`; it may live in another process of the program.
    [[nodiscard]] bool wasFoundIn(int64_t process) const { return m_foundIn == process; }

    /// The last known state of secret input, valid until the focus moves, so that a busy program need not be asked
    /// again.
    struct Settled {
        int64_t process = 0;
        SecureInput answer = SecureInput::unknown;
        bool isTerminal = false;
        std::chrono::steady_clock::time_point at = std::chrono::steady_clock::now();
    };
    void settle(Settled settled) { m_settled = settled; }
    [[nodiscard]] bool isSettledSince(std::chrono::steady_clock::time_point time) const {
        return m_settled && m_settled->at >= time;
    }
    [[nodiscard]] std::optional<SecureInput> settled(int64_t process) const {
        return m_settled && m_settled->process == process ? std::optional(m_settled->answer) : std::nullopt;
    }
    [[nodiscard]] bool foundTerminal(int64_t process) const {
        return m_settled && m_settled->process == process && m_settled->isTerminal;
    }
    /// Increases with every event about the focus.
    [[nodiscard]] uint64_t changes() const { return m_changes; }

    /// The accessibility bus; not connected when there is none.
    [[nodiscard]] QDBusConnection bus() const;

public Q_SLOTS:
    // Called by the bus.
    void stateChanged(const QDBusMessage& message);
    void nameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    void connectTo(const QString& address);
    void focusMoved(const AtSpiObject& object);

    QString m_connectionName;
    AtSpiObject m_focused;
    std::optional<int64_t> m_foundIn;
    std::optional<Settled> m_settled;
    uint64_t m_changes = 0;
};

} // namespace quillo
