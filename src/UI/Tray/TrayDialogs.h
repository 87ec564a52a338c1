#pragma once

#include <QString>

namespace quillo {

/// What entries of the tray's menu show, each in a window that deletes itself when closed. Main thread.
namespace trayDialogs {

/// `steps` is plain text whose lines stay as they are.
void showSteps(const QString& title, const QString& steps);
void showAbout();
/// The program's log, in the desktop's viewer of text files.
void openLog();
/// The file of the settings, in the desktop's editor.
void openSettings();

} // namespace trayDialogs

} // namespace quillo
