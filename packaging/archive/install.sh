#!/bin/sh
# Installs quendil and its companion commands from this unpacked archive into their fixed directories, or
# upgrades such an installation. An upgrade keeps edited configuration and pattern files. It asks no questions.
# usage: ./install.sh [--uninstall]    (with DESTDIR in the environment: below that directory)
# With --uninstall it keeps collected data, logs, and edited and added files, and prints where they are.
set -eu
umask 022
unset CDPATH # with it, cd may enter another directory, and prints its name
here=$(cd "$(dirname "$0")" && pwd)
root=${DESTDIR:-}
program=/opt/norvale/quendil
variable=/var/opt/norvale/quendil
settings=/etc/opt/norvale/quendil
record=$root$program/package # what the last installation has installed, and this script

say() {
    printf '%s\n' "== $*"
}

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

is_same() {
    [ ! -L "$2" ] && cmp -s "$1" "$2"
}

# place MODE FILE PATH: installs a file by renaming it, so that it may replace a running program.
place() {
    new=$root${3%/*}/.quendil.new
    case $3 in
        "$settings"/*) new=$root$settings/.quendil.new ;; # quendil reads every file in the pattern directory
    esac
    mkdir -p "$root${3%/*}"
    cp "$2" "$new"
    chown 0:0 "$new"
    chmod "$1" "$new"
    mv -f "$new" "$root$3"
}

# place_setting MODE PATH: installs a file that may be edited. Like a package manager, it keeps a file that was
# edited or removed as it is, and puts a new version that is not used into another directory.
place_setting() {
    mode=$1
    new_version=$here/root$2
    last_version=$record/root$2
    if [ ! -e "$root$2" ] && [ ! -L "$root$2" ]; then
        [ -f "$last_version" ] || place "$mode" "$new_version" "$2"
    elif is_same "$last_version" "$root$2"; then
        place "$mode" "$new_version" "$2"
    elif ! is_same "$new_version" "$root$2" && ! is_same "$new_version" "$last_version"; then
        place "$mode" "$new_version" "$settings/aside/${2##*/}.new"
        say "kept: $2 (edited by you); the new version is $settings/aside/${2##*/}.new"
    fi
}

place_directory() {
    [ ! -L "$root$2" ] || return 0
    mkdir -p "$root$2"
    chown 0:0 "$root$2"
    chmod "$1" "$root$2"
}

# Removes what the last installation has installed and this archive does not have.
remove_former() {
    [ -f "$record/list" ] || return 0
    while read -r kind _ path; do
        [ "$kind" != d ] || continue
        if [ ! -e "$here/root$path" ] && [ ! -L "$here/root$path" ]; then
            remove_placed "$path"
        fi
    done <"$record/list"
}

remove_placed() {
    case $1 in
        "$settings"/*)
            ! is_same "$record/root$1" "$root$1" || rm -f "$root$1"
            rm -f "$root$settings/aside/${1##*/}.new"
            ;;
        *) rm -f "$root$1" ;;
    esac
}

# Keeps what the next upgrade or removal must know of this installation.
keep_record() {
    rm -rf "$record.new"
    mkdir -p "$record.new/root$settings"
    cp "$here/list" "$here/install.sh" "$record.new/"
    cp -R "$here/root$settings/." "$record.new/root$settings/"
    chown -R 0:0 "$record.new"
    chmod 0755 "$record.new/install.sh"
    rm -rf "$record"
    mv "$record.new" "$record"
}

# Lets systemd read its units again, if it runs here.
reload_units() {
    if [ -z "$root" ] && [ -d /run/systemd/system ]; then
        systemctl daemon-reload || true
    fi
}

# No unit may start a program that is no longer there.
stop_units() {
    if [ -z "$root" ] && command -v systemctl >/dev/null 2>&1; then
        systemctl --no-reload --quiet disable quendil.timer || true
        [ ! -d /run/systemd/system ] ||
            systemctl --quiet stop quendil.timer 'quendil*.service' || true
    fi
}

install_all() {
    [ -f "$here/machine" ] || fail "$0 is not in an unpacked archive of quendil"
    if [ -z "$root" ]; then
        machine=$(uname -m)
        [ "$machine" = "$(cat "$here/machine")" ] ||
            fail "this archive is for $(cat "$here/machine"), and this machine is $machine"
    fi
    while read -r kind mode path; do
        case $kind$path in
            d*) place_directory "$mode" "$path" ;;
            l*)
                mkdir -p "$root${path%/*}"
                ln -sf "$mode" "$root$path"
                ;;
            f"$settings"/*) place_setting "$mode" "$path" ;;
            f*) place "$mode" "$here/root$path" "$path" ;;
        esac
    done <"$here/list"
    remove_former
    keep_record
    reload_units
    say "quendil is installed: $program/bin/quendil"
}

# keep DIRECTORY TEXT: removes a directory if it is empty, or prints that it is kept.
keep() {
    if [ -d "$root$1" ] && ! rmdir "$root$1" 2>/dev/null; then
        say "kept: $1 ($2)"
    fi
}

uninstall_all() {
    [ -f "$record/list" ] || fail "quendil was not installed from an archive"
    stop_units
    while read -r kind _ path; do
        [ "$kind" = d ] || remove_placed "$path"
    done <"$record/list"
    rm -f "$root/var/lib/systemd/timers/stamp-quendil.timer"
    reload_units
    rm -f "$root$program/bin/.quendil.lck" "$root$program/bin/.quendil_hist.lck"
    rm -rf "$record"
    for directory in "$program/bin" "$program/tool" "$program/template"; do
        keep "$directory" "files that quendil has not placed"
    done
    for directory in "$settings/config" "$settings/pattern" "$settings/aside"; do
        keep "$directory" "edited or added by you"
    done
    keep "$variable/data" "collected data"
    keep "$variable/log" "logs"
    for directory in "$program" "$settings" "$variable" /usr/share/doc/quendil \
        /usr/share/doc/quendil-tools /opt/norvale /etc/opt/norvale /var/opt/norvale; do
        rmdir "$root$directory" 2>/dev/null || true
    done
    say "quendil is removed"
}

[ "$(id -u)" -eq 0 ] || fail "run this as root: sudo $0${1:+ $1}"
if [ -z "$root" ] && dpkg-query -S "$program/bin/quendil" >/dev/null 2>&1; then
    fail "quendil was installed as a package: apt-get remove quendil"
fi
# On Debian, rpm makes a database in the home directory if there is one.
if [ -z "$root" ] && HOME=/dev/null rpm -qf "$program/bin/quendil" >/dev/null 2>&1; then
    fail "quendil was installed as a package: rpm -e quendil"
fi
case ${1-} in
    "") install_all ;;
    --uninstall) uninstall_all ;;
    *) fail "usage: $0 [--uninstall]" ;;
esac
