#include "Platform/Linux/X11/TerminalClasses.h"

#include <QSet>

namespace quillo {

bool isTerminalClass(const QString& windowClass) {
    // In lower case, as in WM_CLASS.
    static const QSet<QString> classes{
        QStringLiteral("xterm"),
        QStringLiteral("uxterm"),
        QStringLiteral("urxvt"),
        QStringLiteral("rxvt"),
        QStringLiteral("st"),
        QStringLiteral("st-256color"),
        QStringLiteral("alacritty"),
        QStringLiteral("kitty"),
        QStringLiteral("foot"),
        QStringLiteral("konsole"),
        QStringLiteral("org.kde.konsole"),
        QStringLiteral("yakuake"),
        QStringLiteral("gnome-terminal"),
        QStringLiteral("gnome-terminal-server"),
        QStringLiteral("org.gnome.terminal"),
        QStringLiteral("org.gnome.console"),
        QStringLiteral("kgx"),
        QStringLiteral("org.gnome.ptyxis"),
        QStringLiteral("xfce4-terminal"),
        QStringLiteral("mate-terminal"),
        QStringLiteral("lxterminal"),
        QStringLiteral("qterminal"),
        QStringLiteral("terminator"),
        QStringLiteral("tilix"),
        QStringLiteral("guake"),
        QStringLiteral("terminology"),
        QStringLiteral("wezterm"),
        QStringLiteral("org.wezfurlong.wezterm"),
        QStringLiteral("com.mitchellh.ghostty"),
        QStringLiteral("hyper"),
        QStringLiteral("tabby"),
        QStringLiteral("cool-retro-term"),
        QStringLiteral("deepin-terminal"),
        QStringLiteral("io.elementary.terminal"),
        QStringLiteral("sakura"),
        QStringLiteral("tilda"),
        QStringLiteral("contour"),
        QStringLiteral("rio"),
    };
    return classes.contains(windowClass.toLower());
}

} // namespace quillo
