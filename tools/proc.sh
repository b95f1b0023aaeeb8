# shellcheck shell=sh
# Reading the processes. Not a command: the commands that list processes include it.
# shellcheck disable=SC2034 # the variables are for the commands that include this file

# find_descriptors EXPRESSION...: runs find with this expression on the open descriptors of all processes. It
# enters only the descriptor directories: listing others can block on a lock that a stuck process holds.
find_descriptors() {
    find /proc -ignore_readdir_race -mindepth 1 -maxdepth 3 \
        \( -path '/proc/*' ! -path '/proc/[0-9]*' -prune \) -o \
        \( -path '/proc/[0-9]*/*' ! -path '/proc/[0-9]*/fd' ! -path '/proc/[0-9]*/fd/*' -prune \) -o \
        \( -path '/proc/[0-9]*/fd/*' "$@" \) 2>/dev/null
}

# Awk functions for the names of processes and threads, from the output of "grep -Hs ''" on the files
# /proc/.../comm. A process may end while it is read; some awks would then exit, but grep continues. If a name
# has several lines, grep puts the path of the file before each of them.
# shellcheck disable=SC2016
names_in_awk='
    # take_name: reads one line of a name
    function take_name(    end, path) {
        end = index($0, "/comm:")
        path = substr($0, 1, end - 1)
        if (path in name) name[path] = name[path] "?"
        name[path] = name[path] substr($0, end + 6)
    }
    # name_of DIRECTORY: the name of this process or thread, with question marks for control characters
    function name_of(path,    text) {
        text = path in name ? name[path] : ""
        gsub(/[\001-\037\177]/, "?", text)
        return text == "" ? "-" : text
    }'
