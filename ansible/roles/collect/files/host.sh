# shellcheck shell=sh
# shellcheck disable=SC2154  # the controller sets the variables that are named below
#
# What the role does on a host, as root. The controller sends this text through the connection and runs it with
# `eval`: nothing is stored on the host, which may have no free space and no Python.
#
#   step         what to do: start, job (what `start` leaves running), wait, remove
#   script       this text
#   work         a directory of root's for all requests
#   request      the name of this request; all its files are in $work/$request
#   user         the number of the user who logs in, and who fetches the archive
#   limit        the longest time of a run, in seconds
#   least        the least free space, in KiB; empty: worked out here
#   recipients   public keys of age, one on each line; empty: the archive is not encrypted
#   patterns     names of pattern files, one on each line; pattern_1 and so on are their texts
#   package      a package to install for this run; empty: none. package_bytes and package_sha256 are its size and
#                its checksum
#   uninstall    yes or no: remove that package after the run
#   patience     how long `wait` waits for the end of the run, in seconds
#   keep         yes or no: `remove` copies the archive to quendil's own directory
#   verified     for `remove`: the checksum of the archive that the controller has; empty if it has none
#   arguments    in $1 and so on: the options of quendil that select what is collected
#
# It answers with lines "quendil KEY VALUE", of printable ASCII. The last line is "quendil end".

PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
LC_ALL=C
export PATH LC_ALL
unset CDPATH
umask 077
# A step goes on when its connection is lost. Not ignored, because the run would inherit that.
trap : HUP PIPE

program=/opt/norvale/quendil/bin/quendil
check=/opt/norvale/quendil/bin/quendil-check
settings=/etc/opt/norvale/quendil
variable=/var/opt/norvale/quendil
settled=no # whether $work is known to be root's own
trees="/opt/norvale/quendil $variable $settings"

# ---- Answers -----------------------------------------------------------------------------------------

# say KEY VALUE: the value becomes one line of at most 1,500 printable bytes.
say() {
    printf 'quendil %s %s\n' "$1" "$(printf '%s' "$2" | tr '\n\t' '  ' | tr -c '\040-\176' '?' | cut -c 1-1500)"
}

finish() {
    echo "quendil end"
    exit 0
}

# For `wait` of a controller that did not get this answer, it is the result too.
refuse() {
    if [ "$settled" = yes ]; then
        restore
        [ ! -f "$run/result" ] || { say cause "$1" && echo "quendil end"; } 1<>"$run/result"
    fi
    say cause "$1"
    finish
}

# ---- The job of a request ----------------------------------------------------------------------------

# Prints when a process began, in ticks since the boot: with the process ID, it names a process for good. Nothing
# for one that has ended.
beginning_of() {
    sed 's/.*) //' "/proc/$1/stat" 2>/dev/null | grep -v '^[ZX]' | cut -d ' ' -f 20
}

# note_job PID: this process is the job. The file has room for that from the beginning.
note_job() {
    printf '%-30s' "$1 $(beginning_of "$1")" 1<>"$run/job"
}

is_running() {
    pid=
    [ ! -f "$run/job" ] || read -r pid began <"$run/job" || true
    [ -n "$pid" ] && [ -n "$began" ] && [ "$(beginning_of "$pid")" = "$began" ]
}

is_complete() {
    [ -f "$run/result" ] && grep -q '^quendil end$' "$run/result"
}

has_archive() {
    is_complete && grep -q '^quendil sha256 ' "$run/result"
}

# ---- start -------------------------------------------------------------------------------------------

# Nobody but root may be able to replace what root writes and reads, at any level.
is_safe() {
    directory=$1
    while :; do
        found=$(stat -c '%F %u %a' "$directory" 2>/dev/null) || return 1
        case $found in
            "directory 0 "1???) [ "$directory" != "$1" ] || return 1 ;; # such as /var/tmp
            "directory 0 "*[2367]? | "directory 0 "*[2367]) return 1 ;;
            "directory 0 "*) ;;
            *) return 1 ;;
        esac
        [ "$directory" != / ] || return 0
        directory=${directory%/*}
        directory=${directory:-/}
    done
}

# Comes first in every step: nothing below $work is looked at before.
settle() {
    [ "$(id -u)" -eq 0 ] || refuse "not root: this user needs become"
    work=$(readlink -f "$work")
    is_safe "$work" || refuse "$work is not root's own: other users can replace it or write to it"
    run=$work/$request
    settled=yes
}

make_directories() {
    mkdir "$run" "$run/data" "$run/out" 2>/dev/null || refuse "no directory $run can be made: $(why_not "$run")"
    chmod 0711 "$run"
    printf '%s' "$asked" >"$run/asked" 2>/dev/null || refuse "no space left in $work"
    # The files have their blocks before the disk is full.
    { printf '%4096s' '' >"$run/result" && printf '%30s' '' >"$run/job"; } 2>/dev/null ||
        refuse "no space left in $work"
    note_job $$ # a second start, after a lost connection, leaves this one alone
}

why_not() {
    { mkdir -p "$1"; } 2>&1 | sed 's/.*: //' | head -n 1
}

place_patterns() {
    printf '%s\n' "$patterns" >"$run/patterns" 2>/dev/null || refuse "no space left in $work"
    number=0
    for name in $patterns; do
        number=$((number + 1))
        eval "text=\$pattern_$number"
        { printf '%s\n' "$text" >"$settings/pattern/$name.$request"; } 2>/dev/null ||
            refuse "the pattern file $name could not be written to $settings/pattern"
    done
}

# The package was sent as the user who logs in: what is installed is root's own copy, once its checksum is right.
install_package() {
    had=
    for tree in $trees; do
        [ ! -e "$tree" ] || had="$had $tree"
    done
    copy=$run/package/${package##*/}
    # Whatever that user has made of the file: no more than the package, and not for ever.
    { mkdir "$run/package" && timeout 300 head -c "$package_bytes" "$package" >"$copy"; } 2>/dev/null ||
        refuse "no space for the package"
    [ "$(sha256sum <"$copy" | cut -d ' ' -f 1)" = "$package_sha256" ] || refuse "the package was changed on its way"
    rm -f "$package"
    rmdir "${package%/*}" 2>/dev/null
    printf '%s\n' "$copy" "$had" >"$run/package/record" 2>/dev/null || refuse "no space for the package"
    case $copy in
        *.deb) said=$(DEBIAN_FRONTEND=noninteractive dpkg -i "$copy" 2>&1 </dev/null) ;;
        *.rpm) said=$(rpm -U "$copy" 2>&1 </dev/null) ;;
        *) said=$(unpack_package 2>&1 </dev/null) ;;
    esac || refuse "the package could not be installed: $(printf '%s\n' "$said" | tail -n 3)"
}

unpack_package() {
    mkdir "$run/package/tree" && tar -xzf "$copy" -C "$run/package/tree" --strip-components=1 &&
        "$run/package/tree/install.sh"
}

# Takes back what this request has changed outside of its own directory: pattern files and the package.
restore() {
    if [ -f "$run/patterns" ]; then
        while read -r name; do
            [ -z "$name" ] || rm -f "$settings/pattern/$name.$request"
        done <"$run/patterns"
    fi
    [ "$uninstall" = yes ] && [ -f "$run/package/record" ] || return 0
    { read -r installed && read -r had; } <"$run/package/record"
    case $installed in
        *.deb) dpkg --purge quendil ;;
        *.rpm) rpm -e quendil ;;
        *) "$run/package/tree/install.sh" --uninstall ;;
    esac </dev/null >/dev/null 2>&1
    for tree in $trees; do
        case "$had " in
            *" $tree "*) ;;
            *) rm -rf "$tree" && rmdir "${tree%/*}" 2>/dev/null ;;
        esac
    done
    rm -f "$run/package/record"
}

# What an earlier job has collected and could not hand over is never removed here.
put_aside() {
    if [ -n "$(ls -A "$run/data" 2>/dev/null)" ]; then
        aside=$run.kept-$(date +%s)-$$
        mv "$run" "$aside" && say kept "$aside"
    else
        rm -rf "$run"
    fi
}

find_program() {
    if [ ! -x "$program" ] && [ -n "$package" ]; then
        install_package
    fi
    [ -x "$program" ] || refuse "quendil is not installed"
    if [ -x "$check" ]; then
        version=$(timeout 20 "$check" --version </dev/null 2>/dev/null | sed -n 's/^quendil-check //p')
    else
        version=$(timeout 20 "$program" -h </dev/null 2>/dev/null | sed -n 's/^quendil \[Ver\. \(.*\)\]$/\1/p')
    fi
    [ -n "$version" ] || refuse "$program does not run on this host"
    say version "$version"
}

# Twice what a preview knows of, because the archive needs as much again while it is made, and 100 MiB for the
# output of tools; 200 MiB without a preview.
check_space() {
    if [ -z "$least" ]; then
        least=$((200 * 1024))
        known=
        [ ! -x "$check" ] || known=$(timeout 60 "$check" --preview --format=json -d "$run/data" "$@" \
            </dev/null 2>/dev/null | sed -n 's/.*"known_bytes": *\([0-9]\{1,15\}\).*/\1/p')
        [ -z "$known" ] || least=$((known * 2 / 1024 + 100 * 1024))
    fi
    free=$(timeout 20 df -Pk "$run" 2>/dev/null | awk 'NR == 2 { print $4 }')
    [ -n "$free" ] || refuse "the free space of $work cannot be told"
    [ "$free" -ge "$least" ] || refuse "disk full: $((free / 1024)) MiB free in $work, $((least / 1024)) MiB needed"
}

start() {
    asked="$* $patterns $recipients"
    if [ "$(id -u)" -eq 0 ]; then
        (umask 022 && mkdir -p "$work") 2>/dev/null || refuse "no directory $work can be made: $(why_not "$work")"
    fi
    settle
    chmod 0711 "$work"
    if [ -d "$run" ] && ! [ -L "$run" ]; then
        # A play of this request was cut off. Its job goes on, or has left its archive.
        if is_running || has_archive; then
            if [ "$(cat "$run/asked")" != "$asked" ]; then
                say cause "an earlier run of this request, with other options, is still on the host: $run"
                finish
            fi
            say state resumed
            finish
        fi
        restore
        put_aside || refuse "an earlier $run cannot be removed"
    fi
    make_directories
    find_program
    place_patterns
    check_space "$@"
    export script work request user limit recipients uninstall
    # shellcheck disable=SC2016  # the new shell expands it
    step=job setsid sh -c 'eval "$script"' quendil-collect "$@" </dev/null >/dev/null 2>&1 &
    note_job "$!"
    say state started
    finish
}

# ---- job ---------------------------------------------------------------------------------------------

# The last lines of the run log; of the history log if the run ended before it opened a run log.
last_lines() {
    for log in "$variable/log/quendil.log" "$variable/log/quendil_hist.log"; do
        if [ -n "$(find "$log" -newer "$run/begin" 2>/dev/null)" ]; then
            tail -n 6 "$log" | cut -c 1-240
            return
        fi
    done
    echo "the run has left no log"
}

# Sets `archive` to the only entry of the output whose name ends so; "/" stands for directories.
take() {
    archive=
    for found in "$run/data/"*"$1"; do
        found=${found%/}
        if [ -n "$archive" ] || [ ! -e "$found" ] || [ -L "$found" ]; then
            archive=
            cause="the run left no single result that ends with \"$1\""
            return 1
        fi
        archive=$found
    done
}

# tar has failed in the run. Its "h", because the directory has links to the files.
pack() {
    take / || return 1
    directory=$archive
    archive=$directory.tar.gz
    said=$(timeout 700 tar -C "$run/data" -chzf "$archive" "${directory##*/}" 2>&1 </dev/null)
    if [ $? -le 1 ] && [ -s "$archive" ]; then # 1: a file changed while it was read
        return 0
    fi
    rm -f "$archive"
    archive=
    cause="tar failed in the run, and again for the role: $(printf '%s\n' "$said" | tail -n 3)"
    return 1
}

# After the encryption, nobody but a recipient can check the archive: this is done here.
encrypt() {
    command -v age >/dev/null || { cause="age is not installed on this host"; return 1; }
    case $archive in
        *.gz) gzip -t "$archive" 2>/dev/null && tar -tzf "$archive" ;;
        *) tar -tf "$archive" ;;
    esac 2>/dev/null | grep -q '^[^/]*/quendil_index$' || { cause="the archive is damaged or has no index"; return 1; }
    set --
    IFS='
'
    for recipient in $recipients; do
        set -- "$@" -r "$recipient"
    done
    unset IFS
    said=$(timeout 700 age "$@" -o "$archive.age" "$archive" 2>&1) ||
        { rm -f "$archive.age"; cause="age failed: $said"; return 1; }
    rm -f "$archive"
    archive=$archive.age
}

# The directory is given away last: until then only root can enter it.
hand_over() {
    chown "$user" "$archive" && chmod 0400 "$archive" && mv "$archive" "$run/out/" && chown "$user" "$run/out"
}

outcome() {
    cause=
    archive=
    seconds=$(($(uptime_seconds) - start_seconds))
    case $status in
        0) take .tar.gz ;;
        10)
            take .tar && cause="the archive is not compressed: gzip failed"
            ;;
        20)
            pack && cause="tar failed in the run; the role has packed the directory"
            ;;
        124 | 137)
            cause="the run was stopped: it took more than $limit s"
            [ "$seconds" -ge "$limit" ] || cause="quendil was killed after $seconds s"
            ;;
        255) cause=$(last_lines) ;;
        *) cause="quendil ended with status $status" ;;
    esac
    [ -z "$archive" ] || [ -z "$recipients" ] || encrypt || archive=
    [ -z "$archive" ] || describe
    say exit "$status"
    say seconds "$seconds"
    say cause "$cause"
}

# The clock may be set during the run.
uptime_seconds() {
    cut -d . -f 1 /proc/uptime
}

describe() {
    sum=$(sha256sum <"$archive" | cut -d ' ' -f 1)
    size=$(stat -c %s "$archive")
    if hand_over; then
        say path "$run/out/${archive##*/}"
        say bytes "$size"
        say sha256 "$sum"
    else
        cause="the archive could not be given to user $user"
        archive=
    fi
}

job() {
    settle
    start_seconds=$(uptime_seconds)
    : >"$run/begin"
    status=0
    quiet=
    ! command -v ionice >/dev/null || quiet="ionice -c 2 -n 7"
    # shellcheck disable=SC2086  # words
    nice -n 10 $quiet timeout -s TERM -k 60 "$limit" "$program" -d "$run/data" "$@" \
        </dev/null >/dev/null 2>&1 || status=$?
    text=$(outcome)
    restore
    printf '%s\nquendil end\n' "$text" 1<>"$run/result"
}

# ---- wait --------------------------------------------------------------------------------------------

wait_for_end() {
    settle
    waited=0
    while ! is_complete; do
        if ! is_running && ! is_complete; then
            say state lost
            finish
        fi
        if [ "$waited" -ge "$patience" ]; then
            say state running
            finish
        fi
        sleep 1
        waited=$((waited + 1))
    done
    say state finished
    head -c 4096 "$run/result" | sed -n '/^quendil [a-z]/p'
    exit 0
}

# ---- remove ------------------------------------------------------------------------------------------

# Copies the archive for root: the user who has fetched it may hold the file open, and it is his until now.
keep_archive() {
    chown 0:0 "$run/out"
    archive=$(sed -n 's/^quendil path //p' "$run/result")
    copy=$variable/data/${archive##*/}
    (umask 022 && mkdir -p "${variable%/*}")
    mkdir -p "$variable/data"
    [ -f "$archive" ] && [ ! -L "$archive" ] && (set -C && cat "$archive" >"$copy") 2>/dev/null || return 1
    if [ "$(sha256sum <"$copy" | cut -d ' ' -f 1)" != "$verified" ]; then
        rm -f "$copy"
        return 1
    fi
}

# What was collected is removed only if the controller has it, or if there is nothing.
remove() {
    [ -d "$work" ] || { say state removed; finish; }
    settle
    if is_running; then
        say cause "the run has not ended; it ends by itself, and $run remains"
        finish
    fi
    restore
    if has_archive; then
        if [ "$(sed -n 's/^quendil sha256 //p' "$run/result")" != "$verified" ]; then
            say kept "$(sed -n 's/^quendil path //p' "$run/result")"
            finish
        elif [ "$keep" = yes ] && ! keep_archive; then
            say cause "the archive could not be copied to $variable/data"
            say kept "$archive"
            finish
        fi
    elif [ -n "$(ls -A "$run/data" 2>/dev/null)" ]; then
        say kept "$run/data"
        finish
    fi
    rm -rf "$run" || { say cause "$run could not be removed"; finish; }
    # On a host without quendil, the directory above it was made too.
    { rmdir "$work" && [ "${work%/*}" = /var/opt/norvale ] && rmdir /var/opt/norvale; } 2>/dev/null
    say state removed
    finish
}

case $step in
    start) start "$@" ;;
    job) job "$@" ;;
    wait) wait_for_end ;;
    remove) remove ;;
esac
