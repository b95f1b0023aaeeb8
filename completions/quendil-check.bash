# Bash completion of quendil-check(8): names of files.
complete -o default quendil-check
