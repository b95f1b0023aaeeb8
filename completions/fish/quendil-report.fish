# Fish completion of quendil-report(8): options and their values, and files.

complete -c quendil-report -o o -r -F -d 'Write the page to this file'
complete -c quendil-report -s h -l help -d 'Print the usage'
complete -c quendil-report -l all -d 'Compare what changes by itself too, and all other files'
complete -c quendil-report -l diff -d 'Print what differs between two results'
complete -c quendil-report -l follow-links -d 'In a directory, read what links lead to'
complete -c quendil-report -l json -d 'Print everything but the contents as JSON'
complete -c quendil-report -l limit -x -d 'The most content of files in the page, in MiB'
complete -c quendil-report -l overview -d 'Make a page with a row for each result below a directory'
complete -c quendil-report -l print-rules -d 'Print the built-in definitions'
complete -c quendil-report -l rules -r -F -d 'Use the definitions of this file too'
complete -c quendil-report -l text -d 'Print summary and findings'
complete -c quendil-report -l version -d 'Print the version'
