#include "Platform/Linux/Wayland/KeyBindingGuide.h"

#include <QRegularExpression>
#include <QStringList>

namespace quillo {

namespace {

// %1 is the application's path as a word of a command line. F9 is an example.

const QString gnomeSteps = QStringLiteral(R"(GNOME. In the settings:
  1. Settings > Keyboard > View and Customize Shortcuts > Custom Shortcuts > Add Shortcut.
  2. Name: Quillo. Command: %1 toggle
  3. Set Shortcut, press the key (F9, for example), Add.

Or in a terminal; what you have bound already stays:
  keys=org.gnome.settings-daemon.plugins.media-keys
  path=/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/quillo/
  list=$(gsettings get $keys custom-keybindings)
  case $list in *"$path"*) ;; "@as []") list="['$path']" ;; *) list="${list%]}, '$path']" ;; esac
  gsettings set $keys custom-keybindings "$list"
  gsettings set $keys.custom-keybinding:$path name Quillo
  gsettings set $keys.custom-keybinding:$path command "%1 toggle"
  gsettings set $keys.custom-keybinding:$path binding F9

One press starts, the next stops. GNOME does not tell a program when a key is let go, so
holding a key to talk cannot be had there.
)");

const QString plasmaSteps = QStringLiteral(R"(KDE Plasma:
  1. System Settings > Shortcuts > Add Command (Plasma 5.27 and later; before that
     Custom Shortcuts > Edit > New > Global Shortcut > Command/URL).
  2. Command: %1 toggle
  3. Add a shortcut to it, press the key (F9, for example), Apply.

One press starts, the next stops. Plasma runs a command when a key goes down only, so
holding a key to talk cannot be had that way.
)");

const QString swaySteps = QStringLiteral(R"(Sway. In ~/.config/sway/config, one of the two, then: swaymsg reload

One press starts, the next stops:
  bindsym --no-repeat F9 exec %1 toggle

Hold to talk:
  bindsym --no-repeat F9 exec %1 start
  bindsym --release F9 exec %1 stop
)");

const QString hyprlandSteps =
    QStringLiteral(R"(Hyprland. In ~/.config/hypr/hyprland.conf, one of the two; it is read again by itself.

One press starts, the next stops:
  bind = , F9, exec, %1 toggle

Hold to talk:
  bind = , F9, exec, %1 start
  bindr = , F9, exec, %1 stop
)");

const QString xfceSteps = QStringLiteral(R"(Xfce:
  1. Settings > Keyboard > Application Shortcuts > Add.
  2. Command: %1 toggle
  3. OK, then press the key (F9, for example).

One press starts, the next stops.
)");

const QString otherSteps =
    QStringLiteral(R"(In the keyboard settings or the configuration file of your desktop, bind a key to this command:
  %1 toggle
One press starts, the next stops.

Where a key can be bound to its press and its release, hold to talk with these two:
  %1 start
  %1 stop
)");

const QString& stepsFor(DesktopShell shell) {
    switch (shell) {
    case DesktopShell::gnome:
        return gnomeSteps;
    case DesktopShell::plasma:
        return plasmaSteps;
    case DesktopShell::sway:
        return swaySteps;
    case DesktopShell::hyprland:
        return hyprlandSteps;
    case DesktopShell::xfce:
        return xfceSteps;
    case DesktopShell::other:
        break;
    }
    return otherSteps;
}

QString introduction(DesktopProtocol protocol) {
    switch (protocol) {
    case DesktopProtocol::wayland:
        return QStringLiteral("On Wayland a program sees no keys but those typed into its own windows, and can press "
                              "none.\nSo the desktop starts and stops Quillo, and the text waits on the clipboard: "
                              "press Ctrl+V where\nyou want it (Ctrl+Shift+V in a terminal; with the middle mouse "
                              "button where there is a primary\nselection).\n\n");
    case DesktopProtocol::x11:
        return QStringLiteral("On X11 Quillo sees its hotkeys itself: hold Right Super, speak, let go. Nothing needs "
                              "to be set up;\n\"quillo settings list\" shows how to choose other keys. To bind one in "
                              "the desktop all the same:\n\n");
    case DesktopProtocol::none:
        break;
    }
    return QStringLiteral("There is no desktop session here. In one, run this again for its exact steps.\n\n");
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
    // Keep this last: its descendants name their parent at the end of the list.
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

QString keyBindingGuide(DesktopShell shell, DesktopProtocol protocol, const QString& program) {
    // Do not use arg(): a path may contain "%1", and the lines for a shell contain percent signs.
    return introduction(protocol) + QString(stepsFor(shell)).replace(QStringLiteral("%1"), shellWord(program));
}

} // namespace quillo
