#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

namespace quillo {

/// What the desktop entry of an application says about it.
struct DesktopEntry {
    QString id;   ///< the file's name without ".desktop"
    QString name; ///< in the language of the session
    bool isTerminal = false;
};

/// The applications' desktop entries (Desktop Entry Specification 1.5), found by what a window tells of itself.
class DesktopEntries {
public:
    /// Reads the entries of all XDG data folders: some tens of milliseconds, so not on the main thread.
    static DesktopEntries read(const QStringList& dataFolders, const QString& locale);

    /// By the class of the window, else by the program it runs.
    [[nodiscard]] std::optional<DesktopEntry> find(const QString& windowClass, const QString& program) const;

private:
    void add(const QString& id, const QString& path, const QString& locale);
    QHash<QString, DesktopEntry> m_byClass;   ///< StartupWMClass, in lower case
    QHash<QString, DesktopEntry> m_byId;      ///< in lower case
    QHash<QString, DesktopEntry> m_byProgram; ///< the file name of what Exec starts
};

} // namespace quillo
