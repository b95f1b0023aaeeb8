# shellcheck shell=sh
# Whether a run of quendil is active. Not a command: the commands that wait for a run, or leave its files alone,
# include it.

lock=/opt/norvale/quendil/bin/.quendil.lck

# run_is_active: whether a process holds the record lock of a run. flock(1) does not see record locks, and the file
# alone tells nothing: it stays after a run. The lock is compared by its inode only, because some file systems
# have another device number in this list: at worst, a lock on another file counts too. Without the list, a run
# may be active.
run_is_active() {
    [ -r /proc/locks ] || return 0
    inode=$(stat -c %i "$lock" 2>/dev/null) || return 1
    awk -v inode="$inode" '
        $2 == "POSIX" && $4 == "WRITE" { split($6, file, ":"); active = active || file[3] == inode }
        END { exit !active }' /proc/locks
}
