#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>

#include <functional>

namespace quillo {

/// An accessible object: the bus name of its program and its path there.
struct AtSpiObject {
    QString service;
    QString path;
    [[nodiscard]] bool isEmpty() const { return service.isEmpty(); }
};

/// Connects to the accessibility bus and follows the focus by its events; walking the trees of all programs would cost
/// half a millisecond a node. Main thread; no call blocks on another program.
class AtSpiFocus : public QObject {
    Q_OBJECT

public:
    AtSpiFocus();
    ~AtSpiFocus() override;
    AtSpiFocus(const AtSpiFocus&) = delete;
    AtSpiFocus& operator=(const AtSpiFocus&) = delete;

    /// Turns accessibility on for the session, asks for the bus and connects to it; what fails is logged.
    void start();
    [[nodiscard]] const AtSpiObject& focused() const { return m_focused; }
    /// The accessibility bus; not connected when there is none.
    [[nodiscard]] QDBusConnection bus() const;

public Q_SLOTS:
    // Called by the bus.
    void stateChanged(const QDBusMessage& message);
    void nameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);

private:
    void connectTo(const QString& address);
    QString m_connectionName;
    AtSpiObject m_focused;
};

} // namespace quillo
