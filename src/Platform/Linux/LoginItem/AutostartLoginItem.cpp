#include "Platform/Linux/LoginItem/AutostartLoginItem.h"

#include "Core/PrivateFile.h"
#include "Platform/Linux/LoginItem/AutostartEntry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>

namespace quillo {

namespace {

const QString entryName = QStringLiteral("/autostart/org.quillo.Quillo.desktop");
const QString makeRoom = QStringLiteral("make its folder writable for you, or free some space");
/// Far larger than any entry; a larger file is something else.
constexpr qint64 largestEntry = 256 * 1024;

QStringList absoluteOnly(const QString& folders) {
    QStringList result;
    for (const auto& folder : folders.split(QLatin1Char(':'), Qt::SkipEmptyParts))
        // The base directory specification says to ignore relative paths.
        if (folder.startsWith(QLatin1Char('/')))
            result << folder;
    return result;
}

LoginItemError refused(const QString& action, const QString& path, const QString& cause, const QString& nextStep) {
    return LoginItemError(QStringLiteral("could not %1 %2: %3; %4").arg(action, path, cause, nextStep));
}

class AutostartLoginItem final : public LoginItem {
public:
    explicit AutostartLoginItem(AutostartPlace place)
        : m_place(std::move(place)), m_path(m_place.userFolder + entryName) {}

    LoginItemStatus status() override {
        if (!m_place.userFolder.isEmpty() && isThere(m_path)) {
            // An unreadable user entry still hides the system-wide one.
            const auto entry = read(m_path);
            if (!entry || entry->isSwitchedOff(m_place.desktops))
                return LoginItemStatus::requiresApproval;
            return entry->canStart() ? LoginItemStatus::enabled : LoginItemStatus::notRegistered;
        }
        return systemStarts() ? LoginItemStatus::enabled : LoginItemStatus::notRegistered;
    }

    void registerItem() override {
        const auto existing = userEntry();
        if (!existing && systemStarts())
            return;
        auto entry =
            existing ? AutostartEntry::parse(*existing) : AutostartEntry::create(m_place.program, m_place.arguments);
        if (!entry)
            throw refused(QStringLiteral("change"), m_path, QStringLiteral("it is not a desktop entry"),
                          QStringLiteral("move it away"));
        if (entry->isSwitchedOff(m_place.desktops))
            entry->switchOn();
        if (isOurs(entry->command()) || !entry->canStart())
            entry->setCommand(m_place.program, m_place.arguments);
        write(*entry, existing);
    }

    void unregisterItem() override {
        const auto existing = userEntry();
        if (!existing) {
            if (!systemStarts())
                return;
            auto entry = AutostartEntry::create(m_place.program, m_place.arguments);
            entry.switchOff();
            write(entry, existing);
            return;
        }
        auto entry = AutostartEntry::parse(*existing);
        if (!entry)
            return; // starts nothing
        if (entry->isPlain() && !systemStarts()) {
            if (!QFile::remove(m_path))
                throw LoginItemError(
                    QStringLiteral("could not remove %1: %2").arg(m_path, privateFile::describe(errno)));
            return;
        }
        if (!entry->isSwitchedOff(m_place.desktops)) {
            entry->switchOff();
            write(*entry, existing);
        }
    }

private:
    static bool isThere(const QString& path) {
        return QFileInfo::exists(path) ||
               QFileInfo(path).isSymLink(); // a dangling link hides the system-wide entry too
    }

    static std::optional<AutostartEntry> read(const QString& path) {
        QFile file(path);
        if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
            return std::nullopt;
        return AutostartEntry::parse(file.read(largestEntry));
    }

    /// Whether a system-wide entry starts us when the user has none. The first one found decides.
    [[nodiscard]] bool systemStarts() const {
        for (const auto& folder : m_place.systemFolders)
            if (isThere(folder + entryName)) {
                const auto entry = read(folder + entryName);
                return entry && !entry->isSwitchedOff(m_place.desktops) && entry->canStart();
            }
        return false;
    }

    /// The content of the user's entry; nothing when it is missing or empty, because then nothing has to be kept.
    [[nodiscard]] std::optional<QByteArray> userEntry() const {
        if (m_place.userFolder.isEmpty())
            throw LoginItemError(
                QStringLiteral("there is no folder for the login item: neither XDG_CONFIG_HOME nor HOME "
                               "names one; set HOME to your home folder"));
        if (!isThere(m_path))
            return std::nullopt;
        const auto moveAway = QStringLiteral("move it away");
        if (!QFileInfo(m_path).isFile())
            throw refused(QStringLiteral("read"), m_path, QStringLiteral("it is not a regular file"), moveAway);
        QFile file(m_path);
        if (!file.open(QIODevice::ReadOnly))
            throw refused(QStringLiteral("read"), m_path, file.errorString(),
                          QStringLiteral("make it readable for you"));
        if (file.size() > largestEntry)
            throw refused(QStringLiteral("change"), m_path, QStringLiteral("it is too large for a desktop entry"),
                          moveAway);
        auto content = file.readAll();
        return content.trimmed().isEmpty() ? std::nullopt : std::optional(std::move(content));
    }

    /// A command that we may have written, perhaps from another install location; the user's own has other arguments.
    [[nodiscard]] bool isOurs(const QStringList& command) const {
        return !command.isEmpty() &&
               QFileInfo(command.constFirst()).fileName() == QFileInfo(m_place.program).fileName() &&
               (command.size() == 1 || command.mid(1) == m_place.arguments);
    }

    void write(const AutostartEntry& entry, const std::optional<QByteArray>& existing) {
        const auto content = entry.content();
        // Do not rewrite an unchanged file: that would at least move its blank lines.
        if (const auto old = existing ? AutostartEntry::parse(*existing) : std::nullopt;
            old && old->content() == content)
            return;
        try {
            privateFile::addFolder(QFileInfo(m_path).absolutePath());
        } catch (const FileError& error) {
            throw error.cause() == FileError::Cause::other
                ? LoginItemError(QStringLiteral("%1; %2").arg(error.message(), makeRoom))
                : LoginItemError(error.message());
        }
        // Replaces the old file atomically, also behind a symbolic link, and keeps its mode: it is no private file.
        QSaveFile file(m_path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit())
            throw refused(QStringLiteral("write"), m_path, file.errorString(), makeRoom);
    }

    AutostartPlace m_place;
    QString m_path;
};

} // namespace

AutostartPlace AutostartPlace::ofThisProcess(QStringList arguments) {
    AutostartPlace place;
    place.program = QCoreApplication::applicationFilePath();
    place.arguments = std::move(arguments);
    const auto configuration = absoluteOnly(qEnvironmentVariable("XDG_CONFIG_HOME"));
    const auto home = absoluteOnly(qEnvironmentVariable("HOME"));
    if (!configuration.isEmpty())
        place.userFolder = configuration.constFirst();
    else if (!home.isEmpty())
        place.userFolder = home.constFirst() + QStringLiteral("/.config");
    place.systemFolders = absoluteOnly(qEnvironmentVariable("XDG_CONFIG_DIRS"));
    if (place.systemFolders.isEmpty())
        place.systemFolders << QStringLiteral("/etc/xdg");
    place.desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    return place;
}

std::unique_ptr<LoginItem> createAutostartLoginItem(AutostartPlace place) {
    return std::make_unique<AutostartLoginItem>(std::move(place));
}

} // namespace quillo
