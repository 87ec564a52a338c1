#include "Platform/Linux/X11/DesktopEntries.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace quillo {

namespace {

QHash<QString, QString> readGroup(const QString& path) {
    QHash<QString, QString> values;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return values;
    bool inGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inGroup = line == u"[Desktop Entry]";
        } else if (const qsizetype equals = line.indexOf(u'='); inGroup && equals > 0 && !line.startsWith(u'#')) {
            values.insert(line.left(equals).trimmed(), line.mid(equals + 1).trimmed());
        }
    }
    return values;
}

/// The file name of the program, without the wrapper that only sets its environment.
QString programOf(const QString& exec) {
    const QStringList words = exec.split(u' ', Qt::SkipEmptyParts);
    for (const QString& word : words) {
        QString name = QFileInfo(QString(word).remove(u'"')).fileName();
        if (name != u"env" && !word.contains(u'='))
            return name;
    }
    return {};
}

} // namespace

DesktopEntries DesktopEntries::read(const QStringList& dataFolders, const QString& locale) {
    DesktopEntries entries;
    for (const QString& folder : dataFolders) {
        const QDir applications(folder + QStringLiteral("/applications"));
        QDirIterator files(applications.path(), {QStringLiteral("*.desktop")}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            // The id of a file in a subfolder contains the folder's name.
            QString id = applications.relativeFilePath(path).replace(u'/', u'-');
            id.chop(8);
            // The folders are in order of precedence: the first entry of a name hides the others.
            if (!entries.m_byId.contains(id.toLower()))
                entries.add(id, path, locale);
        }
    }
    return entries;
}

void DesktopEntries::add(const QString& id, const QString& path, const QString& locale) {
    const auto values = readGroup(path);
    if (values.value(QStringLiteral("Type")) != u"Application")
        return;
    DesktopEntry entry;
    entry.id = id;
    // Name[de_DE] before Name[de] before Name.
    for (const QString& suffix :
         {QStringLiteral("[%1]").arg(locale), QStringLiteral("[%1]").arg(locale.section(u'_', 0, 0)), QString()}) {
        entry.name = values.value(QStringLiteral("Name") + suffix);
        if (!entry.name.isEmpty())
            break;
    }
    entry.isTerminal =
        values.value(QStringLiteral("Categories")).split(u';').contains(QStringLiteral("TerminalEmulator"));
    m_byId.insert(id.toLower(), entry);
    if (const QString windowClass = values.value(QStringLiteral("StartupWMClass")).toLower();
        !windowClass.isEmpty() && !m_byClass.contains(windowClass))
        m_byClass.insert(windowClass, entry);
    // A hidden entry is often a helper of the real one and shares its program.
    const QString program = programOf(values.value(QStringLiteral("Exec")));
    if (!program.isEmpty() && values.value(QStringLiteral("NoDisplay")) != u"true" && !m_byProgram.contains(program))
        m_byProgram.insert(program, entry);
}

std::optional<DesktopEntry> DesktopEntries::find(const QString& windowClass, const QString& program) const {
    const QString lower = windowClass.toLower();
    if (const auto found = m_byClass.constFind(lower); found != m_byClass.constEnd())
        return *found;
    if (const auto found = m_byId.constFind(lower); found != m_byId.constEnd())
        return *found;
    if (const auto found = m_byProgram.constFind(program); found != m_byProgram.constEnd())
        return *found;
    return std::nullopt;
}

} // namespace quillo
