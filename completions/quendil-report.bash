# Bash completion of quendil-report(8): options and their values, and files.
#
# How words are split, quoted and offered is in the completion of quendil(8), which is in the same directory.

# shellcheck source=completions/quendil.bash
declare -F _quendil_offer >/dev/null || . "${BASH_SOURCE[0]%/*}/quendil" 2>/dev/null || return 0

_quendil_report_options() {
    printf '%s\n' -o -h --all --diff --follow-links --help --json --limit= --overview --print-rules --rules= \
        --text --version
}

_quendil_report() {
    local before plain quote
    _quendil_split
    COMPREPLY=()
    case $before in
        --limit) ;;
        *)
            case $plain in
                --rules=*) compopt -o default ;;
                --limit=*) ;;
                -*) _quendil_offer < <(_quendil_report_options) ;;
                *) compopt -o default ;;
            esac
            ;;
    esac
}

complete -F _quendil_report quendil-report
