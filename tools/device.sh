# shellcheck shell=sh
# Which devices must not be accessed. Not a command: the commands that access devices include it. Access would
# wake a sleeping device, and would block on a suspended one until it is resumed.
# shellcheck disable=SC2034 # the variables are for the callers of these functions

# read_value FILE: sets value to the first line of a file in sysfs, or to nothing
read_value() {
    value=
    [ ! -r "$1" ] || read -r value 2>/dev/null <"$1"
}

# sleeps DIRECTORY: whether the device with this sysfs directory is suspended or about to be
sleeps() {
    read_value "$1/power/runtime_status"
    case $value in
        suspended | suspending) return 0 ;;
    esac
    return 1
}

# is_suspended DIRECTORY: whether a mapped device is suspended
is_suspended() {
    read_value "$1/dm/suspended"
    [ "$value" = 1 ]
}

# find_obstacle NAME: sets obstacle to the reason why a block device must not be read, such as "sda sleeps", or
# to nothing. It checks the device, the disk of a partition, and all devices below them.
find_obstacle() {
    obstacle=
    checked=' '
    while [ $# -gt 0 ]; do
        device=$1
        shift
        case $checked in
            *" $device "*) continue ;;
        esac
        checked="$checked$device "
        directory=/sys/class/block/$device
        if sleeps "$directory/device"; then
            obstacle="$device sleeps"
            return
        elif is_suspended "$directory"; then
            obstacle="$device is suspended"
            return
        fi
        if [ -e "$directory/partition" ]; then
            disk=$(cd -P "$directory/.." && pwd)
            set -- "$@" "${disk##*/}"
        fi
        for part in "$directory"/slaves/*; do
            [ ! -e "$part" ] || set -- "$@" "${part##*/}"
        done
    done
}
