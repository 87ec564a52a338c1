#pragma once

#include "UI/Window/QmlEngineHost.h"

#include <QQuickWindow>

#include <memory>

namespace quillo {

/// A window in the middle of the screen that the pointer is on, filled with one QML item whose implicit size it takes
/// as far as the screen allows.
class DialogWindow : public QQuickWindow {
    Q_OBJECT
public:
    ~DialogWindow() override;

    /// Shows the window in front, with the focus.
    void present();
    Q_INVOKABLE void dismiss();

Q_SIGNALS:
    /// Follows once after each way of closing. The window may be deleted later, not from here.
    void dismissed();

protected:
    /// `titleKey` is the key of the title's text.
    explicit DialogWindow(const QString& titleKey);
    /// Called once, by the constructor of the window's kind.
    void fill(QmlEngineHost& host, const QString& file, const std::vector<std::pair<QString, QObject*>>& names);
    /// Takes the item out. A window whose models are its own members calls it first thing in its destructor.
    void clear() { m_item.reset(); }

private:
    void fitToScreen();

    std::unique_ptr<QQuickItem> m_item;
};

} // namespace quillo
