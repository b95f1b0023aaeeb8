# Fish completion of quendil-check(8): options and their values, groups, targets and files. The completion of
# quendil(8) has the function that prints groups and targets.

complete -c quendil-check -o c -r -F -d 'Read this configuration file'
complete -c quendil-check -o d -x -a '(__fish_complete_directories)' -d 'Where the run would write'
complete -c quendil-check -o g -x -a '(__quendil_names group)' -d 'The patterns in this group, as for quendil'
complete -c quendil-check -o t -x -a '(__quendil_names target)' -d 'The blocks with this target, as for quendil'
complete -c quendil-check -s h -l help -d 'Print the usage'
complete -c quendil-check -l version -d 'Print the version'
complete -c quendil-check -l fail-level -x -a 'error warning' -d 'Exit with 1 for an error, or for a warning too'
complete -c quendil-check -l format -x -a 'json sarif text' -d 'The form of the output'
complete -c quendil-check -l list -d 'List the groups and targets of the installed patterns'
complete -c quendil-check -l offline -d 'No warnings that depend on this machine'
complete -c quendil-check -l preview -d 'List what a run with these options would collect'
