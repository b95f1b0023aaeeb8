# shellcheck shell=sh
# Functions for the commands in this directory. Sourced from the project's root.

say() {
    printf '%s\n' "== $*"
}

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# Only root can install packages, install the program and collect: run "$@" again as root.
become_root() {
    [ "$(id -u)" -ne 0 ] || return 0
    command -v sudo >/dev/null 2>&1 || fail "$1: run this as root"
    exec sudo -- "$@"
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null || true)" = installed ]
}

# Prints the missing ones of the named distribution packages. A name such as `a|b` means the first package
# that this distribution has, or `a` while the package lists are not known yet.
missing_packages() {
    for package in "$@"; do
        chosen=${package%%|*}
        for name in $(echo "$package" | tr '|' ' '); do
            if is_installed "$name" || apt-cache show "$name" >/dev/null 2>&1; then
                chosen=$name
                break
            fi
        done
        is_installed "$chosen" || printf ' %s' "$chosen"
    done
}

# Installs the missing ones of the named distribution packages.
need_packages() {
    missing=$(missing_packages "$@")
    [ -n "$missing" ] || return 0
    command -v apt-get >/dev/null 2>&1 || fail "please install:$missing"
    say "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    # shellcheck disable=SC2046  # a list of package names, chosen again now that apt has its package lists
    { apt-get update -q && apt-get install -q -y --no-install-recommends $(missing_packages "$@"); } \
        </dev/null >build/packages.log 2>&1 ||
        { cat build/packages.log >&2; fail "packages could not be installed"; }
}

# Runs a build step quietly; its output is shown only if it fails.
quietly() {
    log=$1
    shift
    "$@" </dev/null >"$log" 2>&1 || { cat "$log" >&2; fail "failed: $*"; }
}

# Configures a preset and builds the named targets (all if none is named).
build_preset() {
    preset=$1
    shift
    say "building: $preset"
    quietly "build/$preset.log" cmake --preset "$preset"
    quietly "build/$preset.log" cmake --build "build/$preset" ${1:+--target "$@"}
}

# make_package GENERATOR DIRECTORY [CPACK-OPTION...]: makes a package of the release preset. Not below
# this directory, whose path may hold a blank: rpmbuild takes none.
make_package() {
    generator=$1
    directory=$2
    shift 2
    tree=$(mktemp -d)
    trap 'rm -rf "$tree"' EXIT
    quietly build/package.log cpack --config build/release/CPackConfig.cmake -G "$generator" \
        -B "$tree" "$@"
    mkdir -p "$directory"
    mv "$tree"/quendil* "$directory/"
    rm -rf "$tree"
}

# Makes both packages in build/packages, in place of what is there.
make_packages() {
    say "making packages"
    rm -rf build/packages
    make_package DEB build/packages
    make_package RPM build/packages
}
