#!/usr/bin/env bash
# A desktop starts the application over the bus, hands it the browser's answer and its actions, and starts it at login:
# by the installed files, as GLib's launchers and the bus read them. Runs in a session of its own.
#
# usage: activation-test.sh QUILLO
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
if [ -z "${QUILLO_ACTIVATION_TEST:-}" ]; then
    export QUILLO_ACTIVATION_TEST=display
    exec "$here/../UI/with-display.sh" "$0" "$@"
fi
if [ "$QUILLO_ACTIVATION_TEST" = display ]; then
    # with-display.sh has made HOME a folder that is gone afterwards.
    export QUILLO_ACTIVATION_TEST=session XDG_DATA_DIRS=$HOME/installed:/usr/share XDG_DATA_HOME=$HOME/data XDG_STATE_HOME=$HOME/state
    export XDG_CONFIG_DIRS=$HOME/system XDG_CURRENT_DESKTOP=GNOME XDG_CACHE_HOME=$HOME/cache
    # An address without a server: this test needs none.
    export QUILLO_SERVER_HOST=127.0.0.1:9
    unset PULSE_SERVER
    mkdir -p "$HOME/installed/applications" "$HOME/installed/dbus-1/services" "$HOME/bin"
    ln -s "$1" "$HOME/bin/quillo"
    export PATH=$HOME/bin:$PATH
    cp "$here/../../packaging/org.quillo.Quillo.desktop" "$HOME/installed/applications/"
    update-desktop-database "$HOME/installed/applications"
    sed "s|@CMAKE_INSTALL_FULL_BINDIR@|$HOME/bin|" "$here/../../packaging/dbus/org.quillo.Quillo.service.in" \
        >"$HOME/installed/dbus-1/services/org.quillo.Quillo.service"
    exec dbus-run-session -- "$0" "$@"
fi

log=$XDG_STATE_HOME/QuilloSpeech/quillo-speech.log
fail() { printf 'FAILED: %s\n' "$*" >&2; tail -20 "$log" >&2 || true; quillo quit >/dev/null 2>&1 || true; exit 1; }
logged() { grep -q -m 1 -e "$1" < <(timeout 30 tail -n +1 -F "$log" 2>/dev/null) || fail "the log does not say \"$1\""; }
call() { gdbus call --session --timeout 30 --dest org.quillo.Quillo --object-path /org/quillo/Quillo --method "$@" >/dev/null; }
# watch COMMAND...: what it prints is read with "seen".
watch() {
    exec {watched}< <(exec timeout 60 "$@")
    watcher=$!
}
seen() { grep -q -m 1 -e "$1" <&"$watched"; }
unwatch() {
    kill "$watcher" 2>/dev/null || true
    exec {watched}<&-
}
# Wait until the name is released on the bus.
ended() {
    watch gdbus monitor --session --dest org.quillo.Quillo
    seen 'is owned by' || fail "it does not run"
    quillo quit
    seen 'does not have an owner' || fail "it does not end"
    unwatch
}

call org.freedesktop.Application.Activate '{}' || fail "the bus does not start it"
quillo status >/dev/null || fail "what the bus started does not answer"
call org.freedesktop.Application.ActivateAction again '[]' '{}' || fail "the action is not taken"
call org.freedesktop.Application.ActivateAction nonsense '[]' '{}' || fail "an unknown action is an error"
logged 'nonsense'
ended

# Cold: the browser's answer is what starts it.
url='quillo://auth/callback?code=not-a-code-42&state=none'
watch dbus-monitor --session "interface='org.freedesktop.Application'"
# A monitor gives its own name back when it has begun.
seen NameLost || fail "the bus cannot be watched"
gio open "$url" || fail "nothing opens quillo: addresses"
seen 'string "quillo://auth/callback?code=not-a-code-42&state=none"' || fail "the address did not come over the bus"
unwatch
gdbus wait --session --timeout 30 org.quillo.Quillo || fail "the address started nothing"
quillo status >/dev/null || fail "what the address started does not answer"
! grep -q 'not-a-code-42' "$log" || fail "the code is in the log"

quillo settings set launchAtLogin true
logged 'Launch at Login registered, new status=enabled'
entry=$XDG_CONFIG_HOME/autostart/org.quillo.Quillo.desktop
desktop-file-validate "$entry" || fail "the autostart entry is invalid"
ended
gio launch "$entry" || fail "the autostart entry starts nothing"
gdbus wait --session --timeout 30 org.quillo.Quillo || fail "what starts at login does not run"
quillo settings set launchAtLogin false
logged 'Launch at Login unregistered, new status=notRegistered'
[ ! -e "$entry" ] || fail "the entry is still there"
ended
