# Shared by the scripts in the top folder; sourced, not run.

say() { printf '\033[1m==> %s\033[0m\n' "$*"; }

# install_packages LIST...: installs what is missing of packaging/packages/LIST.txt.
install_packages() {
    local wanted missing=() package
    wanted=$(for list in "$@"; do cat "packaging/packages/$list.txt"; done)
    for package in $wanted; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "Installing ${#missing[@]} packages: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "These packages are missing and there is no sudo; install them as root and run this again: apt-get install ${missing[*]}" >&2; exit 1; }
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# ccache caches precompiled headers only with these settings for comparing them.
export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    say "Building ($preset)"
    cmake --preset "$preset" >"/tmp/quillo-configure-$(id -u).log" 2>&1 || { cat "/tmp/quillo-configure-$(id -u).log" >&2; exit 1; }
    cmake --build --preset "$preset" ${1:+--target "$@"}
}
