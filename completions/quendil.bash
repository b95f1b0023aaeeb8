# Bash completion of quendil(8): options, and the groups and targets of the installed patterns.
#
# quendil-check(8) lists the groups and targets; without it, the options are offered. The names are data: they
# are offered as text and never evaluated. This file does not need the bash-completion package.

_quendil_lister=/opt/norvale/quendil/bin/quendil-check

# Prints the names of all groups or targets, one per line. Left out are a name that looks like an option, and
# one with a control character, which is shown as a backslash and three digits, or a tab among the fields.
_quendil_values() {
    local line name
    while IFS= read -r line; do
        [[ $line == "$1"$'\t'*$'\t'*$'\t'* && $line != *$'\t'*$'\t'*$'\t'*$'\t'* ]] || continue
        name=${line#*$'\t'}
        name=${name%%$'\t'*}
        [[ -z $name || $name == -* || $name == *[[:cntrl:]]* || $name == *\\[0-7][0-7][0-7]* ]] ||
            printf '%s\n' "$name"
    done < <("$_quendil_lister" --list 2>/dev/null) | LC_ALL=C sort -u
}

# Splits the line before the cursor into words like the shell, without evaluating any. Sets `before` to the
# last complete word, `plain` to the unfinished word without its quoting and `quote` to its open quote, if
# any. COMP_WORDS is not usable: readline also splits words at ":" and "=", which a value may contain.
_quendil_split() {
    local line=${COMP_LINE:0:COMP_POINT} character i
    before='' plain='' quote=''
    for ((i = 0; i < ${#line}; i++)); do
        character=${line:i:1}
        if [[ $character == \\ && $quote != "'" ]]; then
            ((++i))
            plain+=${line:i:1}
        elif [[ -n $quote && $character == "$quote" ]]; then
            quote=''
        elif [[ -z $quote && $character == [\"\'] ]]; then
            quote=$character
        elif [[ -z $quote && $character == [[:blank:]] ]]; then
            before=${plain:-$before}
            plain=''
        else
            plain+=$character
        fi
    done
}

# Sets `quoted` to the text as it must be typed at the cursor; fails if single quotes cannot quote it.
_quendil_quote() {
    quoted=$1
    case $quote in
        \') [[ $1 != *\'* ]] ;;
        \")
            quoted=${quoted//\\/\\\\}
            quoted=${quoted//\"/\\\"}
            quoted=${quoted//\$/\\\$}
            quoted=${quoted//\`/\\\`}
            ;;
        *) printf -v quoted %q "$1" ;;
    esac
}

# Offers the lines of the input that begin with the unfinished word.
_quendil_offer() {
    local value quoted word=${COMP_WORDS[COMP_CWORD]} kept=''
    # The part that readline keeps, up to the last character at which it splits words.
    if [[ -z $quote ]]; then
        word=${word##[:=@<>]}
        kept=${plain%"${word//\\/}"}
    fi
    while IFS= read -r value; do
        if [[ $value == "$plain"* ]] && _quendil_quote "${value#"$kept"}"; then
            COMPREPLY+=("$quoted")
        fi
    done
}

_quendil() {
    local before plain quote
    _quendil_split
    COMPREPLY=()
    case $before in
        -[gG]) _quendil_offer < <(_quendil_values group) ;;
        -[tT]) _quendil_offer < <(_quendil_values target) ;;
        -[dD]) compopt -o dirnames ;;
        -[cCoO]) compopt -o default ;;
        -[hH]) ;;
        *) mapfile -t COMPREPLY < <(compgen -W '-g -t -c -d -o -h' -- "$plain") ;;
    esac
}

complete -F _quendil quendil
