#!/usr/bin/env bash
# The metadata for desktops, software centres and the service manager is valid and matches the programs.
#
# usage: metadata-test.sh QUILLO QUILLO-SERVER UNITS      the programs, and the folder of the units made for them
set -euo pipefail
quillo=$1 server=$2 units=$3
cd "$(dirname "$0")/../../packaging"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { printf 'FAILED: %s\n' "$*" >&2; failures=$((failures + 1)); }

desktop-file-validate org.quillo.Quillo.desktop || fail "the desktop entry"
# Warnings too: stores refuse what has any.
appstreamcli validate --no-net --strict org.quillo.Quillo.metainfo.xml || fail "the AppStream description"

for unit in system/quillo-server.service system/quillo-server.socket user/quillo-server.service user/quillo.service; do
    # Where they will be installed there is nothing yet.
    mkdir -p "$work/$(dirname "$unit")"
    sed -e "s|^ExecStart=[^ ]*/quillo-server|ExecStart=$server|" -e "s|^ExecStart=[^ ]*/quillo$|ExecStart=$quillo|" \
        "$units/$unit" >"$work/$unit"
done
for manager in system user; do
    said=$(XDG_RUNTIME_DIR=$work systemd-analyze verify --man=no --"$manager" "$work/$manager"/*quillo* 2>&1 |
        grep -e quillo -e Failed || true)
    [ -z "$said" ] || fail "the units of the $manager: $said"
done
# In tenths: 15 is an exposure of 1.5 of 10.
systemd-analyze security --offline=true --no-pager --threshold=15 "$work/system/quillo-server.service" >"$work/security" ||
    fail "the service is more exposed than it was: $(tail -1 "$work/security")"

"$quillo" --help >"$work/quillo-help"
commands=$(sed -n 's/^  \([a-z][a-z-]*\)  *.*/\1/p' "$work/quillo-help")
[ "$(echo "$commands" | wc -l)" -gt 5 ] || fail "the help of quillo cannot be read"
for command in $commands; do
    grep -q "^\.It Cm $command\b" man/quillo.1 || fail "the manual page does not know \"quillo $command\""
done
actions=$(sed -n 's/^Actions=//p' org.quillo.Quillo.desktop | tr ';' ' ')
for action in $actions; do
    # A launcher without D-Bus runs Exec, one with it calls the action of that name: both have to be the same.
    grep -A 20 "^\[Desktop Action $action\]" org.quillo.Quillo.desktop | grep -m 1 '^Exec=' | grep -qx "Exec=quillo $action" ||
        fail "the action $action is another one without D-Bus"
    grep -qx "$action" <<<"$commands" || fail "quillo does not know the action $action"
done
# Read whole: a grep that ends at its match would close the pipe on a program that still writes.
options=$("$server" --help)
for option in $(sed 's/Fl -/--/g' man/quillo-server.1 "$units"/*/quillo-server.service quillo-server.env | grep -o -e '--[a-z][a-z-]*' | sort -u); do
    case $option in
        --now | --user) continue ;; # of systemctl
    esac
    grep -q -e "^  $option\b" <<<"$options" || fail "quillo-server has no option $option"
done
for page in man/*.1; do
    man --warnings --encoding=UTF-8 --local-file "$page" 2>&1 >/dev/null | grep . && fail "$page"
done
exit $((failures > 0))
