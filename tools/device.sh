# shellcheck shell=sh
# Which devices are to be left alone. No command, but a part that those which ask devices read in.
# To ask a device that the kernel has put to sleep would wake it, and to read one that is suspended would
# not end before it is resumed.
# shellcheck disable=SC2034 # what a function sets is for those that call it

# read_value FILE: sets value to the first line of a file of sysfs, or to nothing
read_value() {
    value=
    [ ! -r "$1" ] || read -r value 2>/dev/null <"$1"
}

# sleeps DIRECTORY: whether the device of this directory in sysfs is asleep, or almost
sleeps() {
    read_value "$1/power/runtime_status"
    case $value in
        suspended | suspending) return 0 ;;
    esac
    return 1
}

# is_suspended DIRECTORY: whether a mapped device waits to be resumed
is_suspended() {
    read_value "$1/dm/suspended"
    [ "$value" = 1 ]
}

# find_obstacle NAME: sets obstacle to why a block device must not be read, such as "sda sleeps", or to
# nothing. It checks the device, the disk of a partition, and all that these are made of.
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
