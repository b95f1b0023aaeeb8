# quendil-check(8) lists the names; without it, nothing is printed. They are data: they are offered as text and
# never evaluated. Left out are a name that looks like an option, and one with a control character, which is
# shown as a backslash and three digits, or a tab among the fields.
function __quendil_names -d 'Print the names of all groups or targets of the installed patterns'
    set -l lister /opt/norvale/quendil/bin/quendil-check
    test -x $lister; or return 0
    for line in ($lister --list 2>/dev/null)
        set -l fields (string split \t -- $line)
        test (count $fields) -eq 4; and contains -- "$fields[1]" $argv[1]; and test -n "$fields[2]"; or continue
        string match -qr -- '^-|[[:cntrl:]]|\\\\[0-7]{3}' $fields[2]; or printf '%s\n' $fields[2]
    end
end
