#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

namespace quillo {

/// The part of an application's desktop entry that we use.
struct DesktopEntry {
    QString id;   ///< the file's name without ".desktop"
    QString name; ///< in the language of the session
    bool isTerminal = false;
};

/// The applications' desktop entries (Desktop Entry Specification 1.5), looked up by the properties of a window.
class DesktopEntries {
public:
    /// Reads the entries of all XDG data folders: some tens of milliseconds, so not on the main thread.
    static DesktopEntries read(const QStringList& dataFolders, const QString& locale);

    /// Finds an entry by the class of the window, otherwise by its program.
    [[nodiscard]] std::optional<DesktopEntry> find(const QString& windowClass, const QString& program) const;

private:
    void add(const QString& id, const QString& path, const QString& locale);
    QHash<QString, DesktopEntry> m_byClass;   ///< StartupWMClass, in lower case
    QHash<QString, DesktopEntry> m_byId;      ///< in lower case
    QHash<QString, DesktopEntry> m_byProgram; ///< the file name of what Exec starts
};

} // namespace quillo
