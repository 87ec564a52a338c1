#pragma once

#include <QString>

namespace quillo {

/// The dialogs of the tray menu; each deletes itself when closed. Main thread.
namespace trayDialogs {

/// `steps` is plain text with fixed line breaks.
void showSteps(const QString& title, const QString& steps);
void showAbout();
/// The program's log, in the desktop's viewer of text files.
void openLog();
/// The file of the settings, in the desktop's editor.
void openSettings();

} // namespace trayDialogs

} // namespace quillo
