# Fish completion of quendil(8): options, and the groups and targets of the installed patterns.
#
# An option in upper case means the same; its value is completed, but it is not offered.

complete -c quendil -f
complete -c quendil -o g -x -a '(__quendil_names group)' -d 'Collect the patterns in this group'
complete -c quendil -o t -x -a '(__quendil_names target)' -d 'Collect only the blocks with this target'
complete -c quendil -o c -r -F -d 'Read this configuration file'
complete -c quendil -o d -x -a '(__fish_complete_directories)' -d 'Write the output to this directory'
complete -c quendil -o o -r -F -d 'The full path of the archive, without .tar.gz'
complete -c quendil -o h -d 'Print the usage'

complete -c quendil -n '__fish_prev_arg_in -G' -a '(__quendil_names group)'
complete -c quendil -n '__fish_prev_arg_in -T' -a '(__quendil_names target)'
complete -c quendil -n '__fish_prev_arg_in -D' -a '(__fish_complete_directories)'
complete -c quendil -n '__fish_prev_arg_in -C -O' -F
