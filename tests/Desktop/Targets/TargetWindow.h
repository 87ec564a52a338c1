#pragma once

#include "DesktopSession.h"

#include <functional>

namespace quillo::test {

/// A window of another program that text is delivered to.
struct TargetWindow {
    QString name;
    QString id;                          ///< of the X window, as xdotool writes it
    std::function<QByteArray()> content; ///< all it has received so far, in UTF-8
    QProcess* process = nullptr;
    std::function<bool()> hasFocus = {}; ///< where the focused window says less than the program
};

enum class FieldKind { area, password, button };

/// Each starts the program and waits until its window is there. Throws DesktopSessionError.
TargetWindow openGtkField(DesktopSession& session, FieldKind kind = FieldKind::area);
TargetWindow openQtField(DesktopSession& session, FieldKind kind = FieldKind::area);
/// A terminal whose program takes in what the terminal sends, unchanged.
TargetWindow openTerminal(DesktopSession& session);
TargetWindow openBrowser(DesktopSession& session, FieldKind kind = FieldKind::area);

/// Gives `target` the focus and waits until it has it.
void activate(DesktopSession& session, const TargetWindow& target);

/// The clipboard by format, as another program sees it: "UTF8_STRING=<sha1> text/html=<sha1> ...".
QString clipboardFingerprint(DesktopSession& session);
/// Starts a program that copies a text, a page and a picture, and waits until it has.
QProcess& copySeveralFormats(DesktopSession& session);
/// The whole keyboard mapping, one line per key.
QString keyboardMapping(DesktopSession& session);

} // namespace quillo::test
