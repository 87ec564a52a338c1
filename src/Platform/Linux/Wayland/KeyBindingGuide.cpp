#include "Platform/Linux/Wayland/KeyBindingGuide.h"

#include <QRegularExpression>
#include <QStringList>

namespace quillo {

namespace {

/// Longest line of prose; a terminal of 100 columns shows it whole.
constexpr qsizetype lineLength = 92;

// Lines for a shell or a configuration file. %1 is the application's path as a word of a command line.

const QString gnomeLines = QStringLiteral(R"(  keys=org.gnome.settings-daemon.plugins.media-keys
  path=/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/quillo/
  list=$(gsettings get $keys custom-keybindings)
  case $list in *"$path"*) ;; "@as []") list="['$path']" ;; *) list="${list%]}, '$path']" ;; esac
  gsettings set $keys custom-keybindings "$list"
  gsettings set $keys.custom-keybinding:$path name Quillo
  gsettings set $keys.custom-keybinding:$path command "%1 toggle"
  gsettings set $keys.custom-keybinding:$path binding F9
)");
const QString swayToggle = QStringLiteral("  bindsym --no-repeat F9 exec %1 toggle\n");
// Sway forgets a release when another key was pressed in between; so modifiers, which are pressed by chance, stop too.
const QString swayHold = QStringLiteral(R"(  bindsym --no-repeat F9 exec %1 start
  bindsym --release --locked F9 exec %1 stop
  bindsym --locked F9+Control_L exec %1 stop
  bindsym --locked F9+Shift_L exec %1 stop
  bindsym --locked F9+Alt_L exec %1 stop
  bindsym --locked F9+Super_L exec %1 stop
)");
const QString hyprlandToggle = QStringLiteral("  bind = , F9, exec, %1 toggle\n");
const QString hyprlandHold = QStringLiteral("  bind = , F9, exec, %1 start\n  bindr = , F9, exec, %1 stop\n");
const QString toggleCommand = QStringLiteral("  %1 toggle\n");
const QString holdCommands = QStringLiteral("  %1 start\n  %1 stop\n");

/// Breaks the lines of `text` at spaces; what continues a numbered step is indented as its words are.
QString wrapped(const QString& text) {
    QString result;
    for (const auto& paragraph : text.split(u'\n')) {
        const auto indent = paragraph.startsWith(u' ') ? QString(5, u' ') : QString();
        auto rest = paragraph;
        while (rest.size() > lineLength) {
            const auto cut = rest.lastIndexOf(u' ', lineLength);
            if (cut <= indent.size())
                break;
            result += rest.left(cut) + u'\n';
            rest = indent + rest.mid(cut + 1);
        }
        result += rest + u'\n';
    }
    return result;
}

/// Writes the guide for one program: prose in the interface language, commands as they are.
class GuideWriter {
public:
    GuideWriter(QString program, const LocalizationManager& texts) : m_program(std::move(program)), m_texts(texts) {}

    void prose(const char* key) { m_guide += fill(wrapped(m_texts.t(QString::fromLatin1(key)))); }
    void space() { m_guide += u'\n'; }
    void lines(const QString& lines) { m_guide += fill(lines); }
    void linesUnder(const char* heading, const QString& content) {
        prose(heading);
        lines(content);
    }
    [[nodiscard]] QString guide() const { return m_guide; }

private:
    // Do not use arg(): a path may contain "%1", and the lines for a shell contain percent signs.
    [[nodiscard]] QString fill(QString text) const { return text.replace(QStringLiteral("%1"), m_program); }

    QString m_program;
    const LocalizationManager& m_texts;
    QString m_guide;
};

void writeIntroduction(GuideWriter& writer, DesktopProtocol protocol) {
    switch (protocol) {
    case DesktopProtocol::wayland:
        writer.prose("guide.wayland");
        break;
    case DesktopProtocol::x11:
        writer.prose("guide.x11");
        break;
    case DesktopProtocol::none:
        writer.prose("guide.noSession");
        break;
    }
    writer.space();
}

void writeSteps(GuideWriter& writer, DesktopShell shell) {
    switch (shell) {
    case DesktopShell::gnome:
        writer.prose("guide.gnome.steps");
        writer.space();
        writer.linesUnder("guide.gnome.terminal", gnomeLines);
        writer.space();
        writer.prose("guide.gnome.limits");
        break;
    case DesktopShell::plasma:
        writer.prose("guide.plasma.steps");
        writer.space();
        writer.prose("guide.plasma.limits");
        break;
    case DesktopShell::sway:
        writer.prose("guide.sway.steps");
        writer.space();
        writer.linesUnder("guide.toggle", swayToggle);
        writer.space();
        writer.linesUnder("guide.hold", swayHold);
        writer.space();
        writer.prose("guide.sway.limits");
        break;
    case DesktopShell::hyprland:
        writer.prose("guide.hyprland.steps");
        writer.space();
        writer.linesUnder("guide.toggle", hyprlandToggle);
        writer.space();
        writer.linesUnder("guide.hold", hyprlandHold);
        break;
    case DesktopShell::xfce:
        writer.prose("guide.xfce.steps");
        break;
    case DesktopShell::other:
        writer.linesUnder("guide.other.toggle", toggleCommand);
        writer.space();
        writer.linesUnder("guide.other.hold", holdCommands);
        break;
    }
}

} // namespace

DesktopShell desktopShell(const QProcessEnvironment& environment) {
    const auto names = environment.value(QStringLiteral("XDG_CURRENT_DESKTOP")).toLower().split(u':');
    const auto is = [&names](const char* name) { return names.contains(QLatin1String(name)); };
    if (is("sway"))
        return DesktopShell::sway;
    if (is("hyprland"))
        return DesktopShell::hyprland;
    if (is("kde"))
        return DesktopShell::plasma;
    if (is("xfce"))
        return DesktopShell::xfce;
    // Last: the list ends with it on its descendants too.
    if (is("gnome"))
        return DesktopShell::gnome;
    if (environment.contains(QStringLiteral("HYPRLAND_INSTANCE_SIGNATURE")))
        return DesktopShell::hyprland;
    if (environment.contains(QStringLiteral("SWAYSOCK")))
        return DesktopShell::sway;
    return DesktopShell::other;
}

QString shellWord(const QString& program) {
    static const QRegularExpression plain(QStringLiteral("\\A[A-Za-z0-9_./+,:@%-]+\\z"));
    if (plain.match(program).hasMatch())
        return program;
    return u'\'' + QString(program).replace(u'\'', QStringLiteral("'\\''")) + u'\'';
}

QString keyBindingGuide(DesktopShell shell, DesktopProtocol protocol, const QString& program,
                        const LocalizationManager& texts) {
    GuideWriter writer(shellWord(program), texts);
    writeIntroduction(writer, protocol);
    writeSteps(writer, shell);
    return writer.guide();
}

} // namespace quillo
