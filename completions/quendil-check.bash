# Bash completion of quendil-check(8): options and their values, groups, targets and files.
#
# How words are split, quoted and offered is in the completion of quendil(8), which is in the same directory.

# shellcheck source=completions/quendil.bash
declare -F _quendil_offer >/dev/null || . "${BASH_SOURCE[0]%/*}/quendil" 2>/dev/null || return 0

_quendil_check_options() {
    printf '%s\n' -c -d -g -t -h --fail-level=error --fail-level=warning --format=json --format=sarif \
        --format=text --help --list --offline --preview --version
}

_quendil_check() {
    local before plain quote
    _quendil_split
    COMPREPLY=()
    case $before in
        -g) _quendil_offer < <(_quendil_values group) ;;
        -t) _quendil_offer < <(_quendil_values target) ;;
        -d) compopt -o dirnames ;;
        -c) compopt -o default ;;
        --format) _quendil_offer < <(printf '%s\n' json sarif text) ;;
        --fail-level) _quendil_offer < <(printf '%s\n' error warning) ;;
        *)
            case $plain in
                -*) _quendil_offer < <(_quendil_check_options) ;;
                *) compopt -o default ;;
            esac
            ;;
    esac
}

complete -F _quendil_check quendil-check
