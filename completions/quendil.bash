# Bash completion of quendil(8): options, and the groups and targets of the installed patterns.
#
# Pattern files are data: they are read by awk, and what they hold is offered as text and never
# evaluated. The file needs nothing of the bash-completion package.

_quendil_patterns=/etc/opt/norvale/quendil/pattern

# Writes the values of a keyword, one a line: quotes are gone, "%%" is one "%".
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

# Splits the line before the cursor into words as the shell would, without evaluating any. Sets
# `before` to the last whole word, `plain` to the unfinished one without its quoting and `quote` to
# the quote that it is still inside of. COMP_WORDS cannot be asked: readline cuts words at ":" and
# "=" too, which may stand in a value.
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

# Sets `quoted` to the text as it must be typed where the cursor stands; fails where single quotes
# cannot hold it.
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

# Offers the values of a keyword that continue the unfinished word.
_quendil_offer() {
    local value quoted word=${COMP_WORDS[COMP_CWORD]} kept=''
    # What readline leaves as it is, up to the last character at which it cuts words.
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
