#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

namespace quillo {

/// The interface of an application that the desktop may start over the bus (Desktop Entry Specification, "D-Bus
/// Activation"). It receives URLs of our scheme, so that they do not appear on a command line. Main thread.
class ApplicationAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    struct Hooks {
        std::function<void()> activate;
        std::function<void(const QString& url)> openURL;
        std::function<void(const QString& name)> runAction;
    };

    ApplicationAdaptor(QObject* parent, Hooks hooks) : QDBusAbstractAdaptor(parent), m_hooks(std::move(hooks)) {}

public Q_SLOTS:
    void Activate(const QVariantMap& /*platformData*/) { m_hooks.activate(); }
    void Open(const QStringList& urls, const QVariantMap& /*platformData*/) {
        for (const auto& url : urls)
            m_hooks.openURL(url);
    }
    void ActivateAction(const QString& name, const QVariantList& /*parameters*/, const QVariantMap& /*platformData*/) {
        m_hooks.runAction(name);
    }

private:
    Hooks m_hooks;
};

} // namespace quillo
