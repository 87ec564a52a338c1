#!/bin/sh
# Runs a program in an X server and a window manager of its own: with-display.sh [--two-monitors] program [arguments]
# Two monitors side by side, each 1280 pixels wide.
set -e
width=1280
if [ "$1" = --two-monitors ]; then
    width=2560
    shift
fi
private=$(mktemp -d)
cleanup() {
    [ -z "$manager" ] || kill "$manager" 2>/dev/null || true
    [ -z "$server" ] || kill "$server" 2>/dev/null || true
    rm -rf "$private"
}
trap cleanup EXIT
trap 'exit 1' INT TERM
mkfifo "$private/display"
Xvfb -displayfd 3 -screen 0 "${width}x800x24" -nolisten tcp -noreset 3>"$private/display" >/dev/null 2>&1 &
server=$!
read -r number <"$private/display"
export DISPLAY=":$number" HOME="$private" XDG_CONFIG_HOME="$private" XDG_RUNTIME_DIR="$private" QT_QPA_PLATFORM=xcb
unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY
if [ "$width" = 2560 ]; then
    xrandr --setmonitor left 1280/338x800/212+0+0 screen
    xrandr --setmonitor right 1280/338x800/212+1280+0 none
fi
mkfifo "$private/managed"
# A window that is mapped before the manager is ready would never become the active one.
openbox --startup "sh -c 'echo ready >$private/managed'" >/dev/null 2>&1 &
manager=$!
read -r ready <"$private/managed"
"$@"
