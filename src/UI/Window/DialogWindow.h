#pragma once

#include "UI/Window/QmlEngineHost.h"

#include <QQuickWindow>

#include <memory>

namespace quillo {

/// A window in the middle of the screen with the pointer, filled with one QML item. It takes the item's implicit size
/// as far as the screen allows.
class DialogWindow : public QQuickWindow {
    Q_OBJECT
public:
    ~DialogWindow() override;

    /// Shows the window in front and focuses it.
    void present();
    Q_INVOKABLE void dismiss();

Q_SIGNALS:
    /// Emitted once after any kind of closing. Do not delete the window from the handler, only later.
    void dismissed();

protected:
    /// `titleKey` is the key of the title's text.
    explicit DialogWindow(const QString& titleKey);
    /// Called once, by the constructor of the derived class.
    void fill(QmlEngineHost& host, const QString& file, const std::vector<std::pair<QString, QObject*>>& names);
    /// Removes the item. A window that owns its models calls it first in its destructor.
    void clear() { m_item.reset(); }

private:
    void fitToScreen();

    std::unique_ptr<QQuickItem> m_item;
};

} // namespace quillo
