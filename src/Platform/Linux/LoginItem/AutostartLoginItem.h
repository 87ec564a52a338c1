#pragma once

#include "Platform/LoginItem.h"

#include <QStringList>

#include <memory>

namespace quillo {

/// What the login item starts, and where sessions look for it.
struct AutostartPlace {
    /// The program's own absolute path, and the arguments it is started with at login.
    QString program;
    QStringList arguments;
    /// The user's configuration folder, and those of the system, the strongest first. Absolute.
    QString userFolder;
    QStringList systemFolders;
    /// What the running desktop calls itself, for OnlyShowIn and NotShowIn.
    QStringList desktops;

    /// This process's program in its environment: XDG_CONFIG_HOME, XDG_CONFIG_DIRS, XDG_CURRENT_DESKTOP. Needs a
    /// QCoreApplication.
    static AutostartPlace ofThisProcess(QStringList arguments = {});
};

/// A login item as an entry "autostart/org.quillo.Quillo.desktop", by the Desktop Application Autostart Specification.
///
/// What others wrote into the user's entry stays: only the keys that decide whether and what it starts are touched, and
/// a command of the user's own stays as long as its program exists. An entry with such changes is switched off
/// (Hidden=true) where a plain one is removed, and so is one that stands before the system's.
std::unique_ptr<LoginItem> createAutostartLoginItem(AutostartPlace place);

} // namespace quillo
