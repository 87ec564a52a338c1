#!/usr/bin/env bash
# Installs, runs, upgrades and purges both packages in a Debian of their own: a fresh root folder, and the same one
# started with its own service manager, where the hardened unit runs for real.
#
# usage: install-test.sh [--build-dir FOLDER]      FOLDER: as for ./package
#
# Needs root and debootstrap; without them it says so and ends with 77. The root folders are kept packed in
# $QUILLO_TEST_CACHE (default ~/.cache/quillo-tests), where the next run finds them.
set -euo pipefail
cd "$(dirname "$0")/../.."
. tools/common.sh

left_out() { echo "The packages were not installed and tried: $*" >&2; exit 77; }
[ "$(id -u)" -eq 0 ] || left_out "this needs root"
command -v debootstrap >/dev/null || left_out "debootstrap is not installed"
distribution=$(. /etc/os-release && echo "$ID ${VERSION_CODENAME:-}")
[ "${distribution% *}" = debian ] || left_out "the packages are for the Debian they were built on, and this is ${distribution% *}"

# Mounts and processes of its own: whatever happens, nothing of it stays.
if [ -z "${QUILLO_INSTALL_TEST:-}" ]; then
    work=$(mktemp -d /var/tmp/quillo-install-test.XXXXXX)
    trap 'rm -rf --one-file-system "$work"' EXIT
    QUILLO_INSTALL_TEST=$work unshare --mount --pid --fork --kill-child --mount-proc --propagation private "$0" "$@"
    exit
fi
work=$QUILLO_INSTALL_TEST
cache=${QUILLO_TEST_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/quillo-tests}
mkdir -p "$cache"
root=$work/root
suite=${distribution#* }
next=+next

fail() { printf 'FAILED: %s\n' "$*" >&2; exit 1; }
# inside COMMAND...: in the root folder, with nothing of this machine's environment.
inside() {
    chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}
apt() { inside apt-get -y -qq --no-install-recommends "$@" >"$work/apt.log" 2>&1 || { cat "$work/apt.log" >&2; fail "apt-get $*"; }; }
unpack() {
    rm -rf --one-file-system "$root"
    mkdir "$root"
    tar -C "$root" --zstd -xpf "$1" --numeric-owner
}
keep() { tar -C "$root" --zstd -cpf "$1.new" --numeric-owner --one-file-system --exclude=./packages . && mv "$1.new" "$1"; }
mounted() {
    mount --bind /dev "$root/dev"
    mount -t proc proc "$root/proc"
    "$@"
    umount "$root/proc" "$root/dev"
}

./package "$@" --output "$work/packages"
version=$(dpkg-deb -f "$work"/packages/quillo_*.deb Version)
architecture=$(dpkg --print-architecture)
./package "$@" --output "$work/packages" --version "$version$next"

if command -v lintian >/dev/null; then
    say "Policy"
    # The maintainer is set only by DEBEMAIL.
    lintian --allow-root --fail-on error --suppress-tags bogus-mail-host,bogus-mail-host-in-debian-changelog \
        "$work"/packages/*_"${version}_$architecture.deb" || fail "lintian found errors"
fi

# packages VERSION: their paths inside.
packages() { printf '/packages/%s_%s_%s.deb ' quillo "$1" "$architecture" quillo-server "$1" "$architecture"; }

# The mirror this machine uses.
mirror() { apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' | awk -v suite="$1" '$2 == suite && $3 == "main" { print $1; exit }'; }
base=$cache/$suite-$architecture-base.tar.zst
if [ ! -f "$base" ]; then
    [ -n "$(mirror "$suite")" ] || left_out "no source of packages for $suite is configured"
    say "Making a minimal Debian (kept for the next time)"
    debootstrap --variant=minbase --include=ca-certificates,curl,dbus,desktop-file-utils,systemd,systemd-sysv \
        "$suite" "$root" "$(mirror "$suite")" >"$work/debootstrap.log" 2>&1 ||
        { tail -5 "$work/debootstrap.log" >&2; left_out "debootstrap found no way to make one"; }
    for more in "$suite-updates" "$suite-security"; do
        [ -z "$(mirror "$more")" ] || echo "deb $(mirror "$more") $more main" >>"$root/etc/apt/sources.list"
    done
    echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/quillo-test"
    rm -f "$root"/var/cache/apt/archives/*.deb
    keep "$base"
fi

# What the packages depend on, found by apt in the minimal system.
dependencies=$(dpkg-deb -f "$work/packages/quillo_${version}_$architecture.deb" Depends
    dpkg-deb -f "$work/packages/quillo-server_${version}_$architecture.deb" Depends)
filled=$cache/$suite-$architecture-$(echo "$dependencies" | sha256sum | cut -c1-16).tar.zst
if [ ! -f "$filled" ]; then
    say "Installing into the minimal Debian with everything the packages depend on (kept for the next time)"
    unpack "$base"
    cp -r "$work/packages" "$root/"
    resolve() {
        apt update
        # shellcheck disable=SC2046
        apt install $(packages "$version")
        # On their own, so that what one forgot is not there because of the other.
        inside dpkg --audit
        apt purge quillo quillo-server
        rm -rf "$root"/var/cache/apt/archives/*.deb
    }
    mounted resolve
    rm -f "$cache/$suite-$architecture"-????????????????.tar.zst
    keep "$filled"
fi
unpack "$filled"
cp -r "$work/packages" tests/Packaging/ask.sh tests/Packaging/service-test.sh "$root/root/"
mv "$root/root/packages" "$root/packages"
speech=/usr/share/pocketsphinx/test/data/goforward.raw
[ ! -f "$speech" ] || cp "$speech" "$root/root/speech.raw"

# Everything there is but what package managers write down about themselves.
listing() {
    (cd "$root" && find . -xdev \( -path ./proc -o -path ./dev -o -path ./run -o -path ./tmp -o -path ./root -o -path ./packages \
        -o -path ./var/log -o -path ./var/lib/dpkg -o -path ./var/lib/apt -o -path ./var/cache \) -prune -o -print | LC_ALL=C sort)
}

unprivileged_server() {
    local line data=/tmp/server-data
    say "Running the server for an unprivileged user"
    install -d -o 65534 -g 65534 -m 700 "$root$data"
    exec 3< <(exec chroot --userspec=65534:65534 "$root" env -i PATH=/usr/bin HOME=/nonexistent \
        quillo-server --listen 127.0.0.1:0 --data "$data" 2>&1)
    local server=$!
    while read -r -t 60 line <&3; do
        [[ $line == *"ready on"* ]] && break
    done
    [[ ${line:-} == *"ready on "* ]] || fail "the server did not get ready: ${line:-nothing was said}"
    inside sh /root/ask.sh "${line##*:}" "$data/authority.pem" || fail "the server did not answer as it should"
    # The authority's certificate is for everybody, its key is not.
    [ -z "$(find "$root$data" -perm /077 ! -name authority.pem)" ] || fail "others can read: $(find "$root$data" -perm /077)"
    kill "$server"
    wait "$server" || fail "the server did not end in order"
    rm -rf "$root$data"
}

life_of_the_packages() {
    local before after file
    before=$(listing)
    say "Installing"
    # shellcheck disable=SC2046
    apt install $(packages "$version")
    [ "$(inside quillo --version)" = "quillo ${version}" ] || fail "quillo --version says $(inside quillo --version)"
    [ "$(inside quillo-server --version)" = "quillo-server ${version}" ] || fail "the server's version is not the package's"
    inside quillo --help >/dev/null
    [ "$(inside quillo 2>&1 || true)" = "quillo: there is no display here. Start Quillo in a desktop session." ] ||
        fail "quillo without a display says: $(inside quillo 2>&1)"
    inside dpkg --verify quillo quillo-server || fail "files differ from the packages'"
    [ "$(inside stat -c '%a %U' /etc/quillo-server/quillo-server.env)" = "600 root" ] || fail "the server's settings can be read by others"
    inside dpkg -L quillo quillo-server | sort -u | while read -r file; do
        [ -z "$(find "$root$file" -maxdepth 0 ! -type l -perm /022)" ] || fail "$file can be written by others"
    done
    inside update-desktop-database
    grep -qx 'x-scheme-handler/quillo=org.quillo.Quillo.desktop;' "$root/usr/share/applications/mimeinfo.cache" ||
        fail "the desktop database does not know who opens quillo: addresses"
    inside desktop-file-validate /usr/share/applications/org.quillo.Quillo.desktop
    [ -x "$root$(sed -n 's/^Exec=//p' "$root/usr/share/dbus-1/services/org.quillo.Quillo.service")" ] ||
        fail "the session bus would start a program that is not there"
    [ -f "$root/usr/lib/systemd/user/$(sed -n 's/^SystemdService=//p' "$root/usr/share/dbus-1/services/org.quillo.Quillo.service")" ] ||
        fail "the session bus would start a unit that is not there"
    [ ! -e "$root/etc/systemd/system/multi-user.target.wants/quillo-server.service" ] || fail "the service was enabled by the installation"
    unprivileged_server

    say "Upgrading, removing, purging"
    echo '#mine' >>"$root/etc/quillo-server/quillo-server.env"
    inside systemctl enable quillo-server.service >/dev/null 2>&1
    # shellcheck disable=SC2046
    apt install $(packages "$version$next")
    [ "$(inside dpkg-query -W -f '${Version}' quillo-server)" = "$version$next" ] || fail "it was not upgraded"
    grep -qx '#mine' "$root/etc/quillo-server/quillo-server.env" || fail "the upgrade lost the administrator's settings"
    # The service's state, as it lies there after a run.
    mkdir -p "$root/var/lib/private/quillo-server"
    ln -s private/quillo-server "$root/var/lib/quillo-server"
    apt remove quillo quillo-server
    [ -e "$root/etc/quillo-server/quillo-server.env" ] && [ -e "$root/var/lib/private/quillo-server" ] ||
        fail "removing took settings or state along"
    apt purge quillo quillo-server
    after=$(listing)
    [ "$before" = "$after" ] || fail "after the purge there is another set of files: $(diff <(echo "$before") <(echo "$after"))"
}
mounted life_of_the_packages

if ! command -v systemd-nspawn >/dev/null; then
    echo "The service was not tried under a service manager: systemd-nspawn is not installed" >&2
    exit 0
fi
say "Running the service under a service manager"
cat >"$root/etc/systemd/system/quillo-test.service" <<'TEXT'
[Unit]
After=multi-user.target
SuccessAction=poweroff-force
FailureAction=poweroff-force
[Service]
Type=oneshot
Environment=HOME=/root DEBIAN_FRONTEND=noninteractive
ExecStart=/bin/bash /root/service-test.sh
StandardOutput=file:/root/service-test.log
StandardError=inherit
TimeoutStartSec=150
TEXT
mkdir -p "$root/etc/systemd/system/default.target.wants"
ln -s ../quillo-test.service "$root/etc/systemd/system/default.target.wants/"
printf '%s\n%s\n' "$(packages "$version")" "$(packages "$version$next")" >"$root/root/versions"
timeout 240 systemd-nspawn --quiet --directory="$root" --machine=quillo-test --register=no --keep-unit --private-network \
    --boot </dev/null >"$work/boot.log" 2>&1 || true
if [ ! -f "$root/root/service-test.log" ]; then
    tail -5 "$work/boot.log" >&2
    echo "The service was not tried under a service manager: none could be started here, see above" >&2
    exit 0
fi
cat "$root/root/service-test.log"
grep -qx 'all passed' "$root/root/service-test.log" || fail "the service under a service manager"
say "The packages install, run, upgrade and leave"
