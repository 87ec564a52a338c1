#include "UI/Tray/TrayIcons.h"

#include "UI/Foundation/ApplicationIcon.h"

#include <QGuiApplication>
#include <QPalette>

namespace quillo {

namespace {

/// The badge in the lower right corner.
QByteArray badge(TrayIcon icon) {
    QByteArray shapes;
    switch (icon) {
    case TrayIcon::idle:
        return {};
    case TrayIcon::recording:
        shapes = R"(<circle cx="17" cy="17" r="6.2" fill="#e5404b"/>)";
        break;
    case TrayIcon::offline:
        shapes = R"(<circle cx="17" cy="17" r="6.2" fill="#eda21f"/>)"
                 R"(<path d="M14 17h6" stroke="#1b1c20" stroke-width="2.2" stroke-linecap="round"/>)";
        break;
    case TrayIcon::processing:
        shapes = R"(<circle cx="17" cy="17" r="6.2" fill="#7d5df0"/><g fill="#fff"><circle cx="13.6" cy="17" r="1.3"/>)"
                 R"(<circle cx="17" cy="17" r="1.3"/><circle cx="20.4" cy="17" r="1.3"/></g>)";
        break;
    case TrayIcon::error:
        shapes = R"(<path d="M17 11l6 11.2h-12z" fill="#f2b01e" stroke="#f2b01e" stroke-width="1.6" )"
                 R"(stroke-linejoin="round"/><path d="M17 14.6v3.6" stroke="#1b1c20" stroke-width="1.9" )"
                 R"(stroke-linecap="round"/><circle cx="17" cy="20.8" r="1.1" fill="#1b1c20"/>)";
        break;
    }
    return R"svg(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 24 24"><g transform="translate(3 3) scale(0.87)">)svg" +
           shapes + "</g></svg>";
}

} // namespace

QIcon trayIcon(TrayIcon icon, bool onDark) {
    static const auto quill = readResource(QStringLiteral(":/quillo/icons/quillo-symbolic.svg"));
    auto drawing = quill;
    drawing.replace(QByteArray("#2e3436"), QByteArray(onDark ? "#f3f4f6" : "#2e3436"));
    return renderIcon(drawing, badge(icon));
}

bool isPanelDark() {
    // The top bar of this desktop is dark even in its light style.
    if (qEnvironmentVariable("XDG_CURRENT_DESKTOP").contains(u"GNOME"))
        return true;
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
}

} // namespace quillo
