# shellcheck shell=sh
# What is read of every process. No command, but a part that those which list processes read in.
# shellcheck disable=SC2034 # what is set here is for those that read it in

# find_descriptors EXPRESSION...: runs find with this expression on the open descriptors of all processes. Only
# the directories of descriptors are entered: to list others of a process can take a lock that a stuck one keeps.
find_descriptors() {
    find /proc -ignore_readdir_race -mindepth 1 -maxdepth 3 \
        \( -path '/proc/*' ! -path '/proc/[0-9]*' -prune \) -o \
        \( -path '/proc/[0-9]*/*' ! -path '/proc/[0-9]*/fd' ! -path '/proc/[0-9]*/fd/*' -prune \) -o \
        \( -path '/proc/[0-9]*/fd/*' "$@" \) 2>/dev/null
}

# In awk, the names of processes and threads, from what "grep -Hs ''" prints of the files /proc/.../comm. A
# process may end while it is read, which would end some awk: grep goes on, and puts the path of the file before
# every line of a name that has several.
# shellcheck disable=SC2016
names_in_awk='
    # take_name: takes the line of a name
    function take_name(    end, path) {
        end = index($0, "/comm:")
        path = substr($0, 1, end - 1)
        if (path in name) name[path] = name[path] "?"
        name[path] = name[path] substr($0, end + 6)
    }
    # name_of DIRECTORY: the name there, with question marks for control characters
    function name_of(path,    text) {
        text = path in name ? name[path] : ""
        gsub(/[\001-\037\177]/, "?", text)
        return text == "" ? "-" : text
    }'
