#include "UI/Window/DialogWindow.h"

#include "UI/Foundation/ApplicationIcon.h"
#include "UI/Foundation/Texts.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

namespace quillo {

namespace {

constexpr QSize smallest{320, 280};
/// The assumed size of the window manager's frame, before it is known.
constexpr QSize frame{12, 40};

} // namespace

DialogWindow::DialogWindow(const QString& titleKey) {
    const auto title = [this, titleKey] { setTitle(Texts::lookUp(titleKey)); };
    title();
    Texts::follow(this, title);
    setIcon(applicationIcon());
    setFlags(Qt::Dialog);
    setMinimumSize(smallest);
    connect(this, &QWindow::visibleChanged, this, [this](bool visible) {
        if (!visible)
            Q_EMIT dismissed();
    });
}

DialogWindow::~DialogWindow() {
    // During destruction the window is hidden and no longer of this class, and its owner needs no signal.
    disconnect(this, &QWindow::visibleChanged, this, nullptr);
}

void DialogWindow::fill(QmlEngineHost& host, const QString& file,
                        const std::vector<std::pair<QString, QObject*>>& names) {
    m_item = host.createItem(file, names);
    m_item->setParentItem(contentItem());
    const auto fit = [this] { m_item->setSize(size()); };
    connect(this, &QWindow::widthChanged, this, fit);
    connect(this, &QWindow::heightChanged, this, fit);
    resize(QSizeF(m_item->implicitWidth(), m_item->implicitHeight()).toSize());
    fit();
}

void DialogWindow::present() {
    if (!isVisible())
        fitToScreen();
    show();
    raise();
    requestActivate();
    m_item->forceActiveFocus();
}

void DialogWindow::dismiss() { close(); }

void DialogWindow::fitToScreen() {
    auto* target = QGuiApplication::screenAt(QCursor::pos());
    if (!target)
        return;
    const auto area = target->availableGeometry();
    resize(size().boundedTo(area.size() - frame));
    setScreen(target);
    setPosition(area.center() - QPoint(width() / 2, height() / 2));
}

} // namespace quillo
