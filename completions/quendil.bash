# Bash completion of quendil(8): options, and the groups and targets of the installed patterns.
#
# Pattern files are data: awk reads them, and their values are offered as text and never evaluated. This file
# does not need the bash-completion package.

_quendil_patterns=/etc/opt/norvale/quendil/pattern

# Prints the values of a keyword, one per line, without quotes and with "%" for "%%".
_quendil_values() {
    local files=("$_quendil_patterns"/*)
    [[ -f ${files[0]} ]] || return 0
    LC_ALL=C awk -v keyword="$1" '
        { sub(/\r$/, "") }
        match($0, /^[ \t]*[A-Za-z_]+[ \t]*=[ \t]*/) {
            word = substr($0, 1, RLENGTH)
            gsub(/[ \t=]/, "", word)
            if (toupper(word) != keyword) next
            rest = substr($0, RLENGTH + 1)
            value = ""
            while (rest != "" && rest !~ /^[ \t]/) {
                if (match(rest, /^"([^"\\]|\\.)*"/)) {
                    text = substr(rest, 2, RLENGTH - 2)
                    rest = substr(rest, RLENGTH + 1)
                    while (match(text, /\\["\\#]/)) {
                        value = value substr(text, 1, RSTART - 1) substr(text, RSTART + 1, 1)
                        text = substr(text, RSTART + 2)
                    }
                    value = value text
                } else if (match(rest, /^[^" \t]+/)) {
                    value = value substr(rest, 1, RLENGTH)
                    rest = substr(rest, RLENGTH + 1)
                } else {
                    next
                }
            }
            gsub(/%%/, "%", value)
            if (value != "" && value !~ /^-/ && value !~ /[[:cntrl:]]/ && !seen[value]++)
                print value
        }' "${files[@]}" 2>/dev/null
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

# Offers the values of a keyword that begin with the unfinished word.
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
    done < <(_quendil_values "$1")
}

_quendil() {
    local before plain quote
    _quendil_split
    COMPREPLY=()
    case $before in
        -[gG]) _quendil_offer PP_GROUP ;;
        -[tT]) _quendil_offer TARGET ;;
        -[dD]) compopt -o dirnames ;;
        -[cCoO]) compopt -o default ;;
        -[hH]) ;;
        *) mapfile -t COMPREPLY < <(compgen -W '-g -t -c -d -o -h' -- "$plain") ;;
    esac
}

complete -F _quendil quendil
