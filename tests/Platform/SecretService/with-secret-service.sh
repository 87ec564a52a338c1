#!/bin/sh
# Runs a program in a session bus of its own; with "unlocked" as the first word, with an unlocked keyring on it.
# The user's own bus, keyring and home stay out of it.
set -eu
mode=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir -m 700 "$folder/run" "$folder/home"
mkdir -p "$folder/home/.local/share/keyrings"
export HOME="$folder/home" XDG_RUNTIME_DIR="$folder/run"
export XDG_DATA_HOME="$folder/home/.local/share" XDG_CONFIG_HOME="$folder/home/.config"
unset DISPLAY WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS GNOME_KEYRING_CONTROL || true
if [ "$mode" = unlocked ]; then
    # The keyring must be unlocked before the first call: a call starts a locked one. In the foreground, so that it can
    # be ended here: a daemon that was never called outlives its bus.
    printf '\n' >"$folder/password"
    dbus-run-session -- sh -c '
        gnome-keyring-daemon --foreground --unlock --components=secrets <"$0" >/dev/null &
        trap "kill $!" EXIT
        gdbus wait --session --timeout 20 org.freedesktop.secrets
        "$@"' "$folder/password" "$@"
else
    # A bus that starts no services.
    cat >"$folder/bus.conf" <<CONFIGURATION
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=$folder/run</listen>
  <policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
CONFIGURATION
    dbus-run-session --config-file="$folder/bus.conf" -- "$@"
fi
