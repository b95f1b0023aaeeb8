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

# Prints which of the named distribution packages are missing. A name such as `a|b` means the first package
# that this distribution has, or `a` while apt has no package lists yet.
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

# Installs those of the named distribution packages that are missing.
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

# The same for packages that only some tests need: one that this distribution does not have is left out, and
# the tests are skipped.
want_packages() {
    # shellcheck disable=SC2046  # a list of package names
    need_packages $(for name in "$@"; do
        ! { is_installed "$name" || apt-cache show "$name" >/dev/null 2>&1; } || echo "$name"
    done)
}

# Runs a build step quietly; its output is shown only if it fails.
quietly() {
    log=$1
    shift
    "$@" </dev/null >"$log" 2>&1 || { cat "$log" >&2; fail "failed: $*"; }
}

# Configures a preset and builds the named targets (all if none is named). Warnings stop the build only where
# the caller has set `werror`: a newer compiler may have new ones.
build_preset() {
    preset=$1
    shift
    say "building: $preset"
    quietly "build/$preset.log" cmake --preset "$preset" "-DQUENDIL_WERROR=${werror:-OFF}"
    quietly "build/$preset.log" cmake --build "build/$preset" ${1:+--target "$@"}
}

# Prints the time of all files in a package: that of the last commit, so that the same commit gives the same
# package, or without a history that of the changelog.
package_time() {
    git --git-dir=.git log -1 --format=%ct 2>/dev/null || date -r CHANGELOG.md +%s
}

# make_package GENERATOR DIRECTORY [CPACK-OPTION...]: makes the packages quendil and quendil-tools of the
# portable preset, in a temporary directory: the path of this one may contain a blank, which rpmbuild does not
# accept.
make_package() {
    generator=$1
    directory=$2
    shift 2
    tree=$(mktemp -d)
    trap 'rm -rf "$tree"' EXIT
    for config in CPackConfig CPackToolsConfig; do
        quietly build/package.log cpack --config "build/portable/$config.cmake" -G "$generator" \
            -B "$tree" "$@"
    done
    mkdir -p "$directory"
    mv "$tree"/quendil* "$directory/"
    rm -rf "$tree"
}

# make_archive DIRECTORY: makes the archive for any distribution there, with its install.sh.
make_archive() {
    version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' build/portable/CPackConfig.cmake)
    [ -n "$version" ] || fail "build/portable names no version"
    name=quendil-$version-linux-$(uname -m)
    tree=$(mktemp -d)
    trap 'rm -rf "$tree"' EXIT
    mkdir "$tree/$name"
    quietly build/package.log env DESTDIR="$tree/$name/root" cmake --install build/portable --strip
    quietly build/package.log cmake -D "CPACK_TEMPORARY_INSTALL_DIRECTORY=$tree/$name/root" \
        -D "CPACK_QUENDIL_SOURCE_DIR=$PWD" -P cmake/PackageTree.cmake
    cp packaging/archive/install.sh "$tree/$name/"
    uname -m >"$tree/$name/machine"
    # The list of what it installs, with modes; of the directories, only its own. No pipes: a failure of
    # their first program would go unnoticed.
    (cd "$tree/$name/root" && find . -type d \( -path '*/norvale*' -o -path '*/doc/quendil*' \) \
        -printf 'd %m /%P\n' -o -type f -printf 'f %m /%P\n' -o -type l -printf 'l %l /%P\n') >"$tree/list"
    LC_ALL=C sort -k 3 "$tree/list" >"$tree/$name/list"
    tar -c -C "$tree" --format=ustar --sort=name --owner=root:0 --group=root:0 \
        --mtime="@$SOURCE_DATE_EPOCH" -f "$tree/$name.tar" "$name"
    mkdir -p "$1"
    gzip -9nc "$tree/$name.tar" >"$1/$name.tar.gz"
    rm -rf "$tree"
}

# Makes all packages and the archive in build/packages, and removes earlier ones.
make_packages() {
    say "making packages"
    rm -rf build/packages
    SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(package_time)}
    export SOURCE_DATE_EPOCH
    make_package DEB build/packages
    make_package RPM build/packages
    make_archive build/packages
}

# Whether a path, below DESTDIR, is a link of ours: one to our program of the same name.
is_our_link() {
    [ "$(readlink "${DESTDIR:-}$1")" = "/opt/norvale/quendil/bin/${1##*/}" ]
}

# link_command NAME DIRECTORY: puts a command on the path, in sbin or bin of /usr/local. It replaces nothing, and
# makes no second link where a package has one in /usr.
link_command() {
    link=$2/$1
    if is_our_link "$link" || is_our_link "/usr/${2##*/}/$1"; then
        return 0
    elif [ -e "${DESTDIR:-}$link" ] || [ -L "${DESTDIR:-}$link" ]; then
        say "kept: $link (quendil has not placed it)"
    elif ! { mkdir -p "${DESTDIR:-}$2" && ln -s "/opt/norvale/quendil/bin/$1" "${DESTDIR:-}$link"; }; then
        say "not on the path: $1"
    fi
}

# Puts the installed commands on the path: the program on root's, because only root can run it, and the companion
# commands, each of which has a page of its name, on everyone's.
link_commands() {
    link_command quendil /usr/local/sbin
    for page in man/quendil-*.8; do
        name=$(basename "$page" .8)
        [ ! -x "${DESTDIR:-}/opt/norvale/quendil/bin/$name" ] || link_command "$name" /usr/local/bin
    done
}

# remove_links NAME: removes our links to a command from every directory in which one may be.
remove_links() {
    for directory in /usr/local/sbin /usr/local/bin /usr/sbin /usr/bin; do
        ! is_our_link "$directory/$1" || rm -f "${DESTDIR:-}$directory/$1"
    done
}
