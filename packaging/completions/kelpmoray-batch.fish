# Completion of kelpmoray-batch for fish.

function __kelpmoray_batch_identities
    set -l words (commandline -opc)
    $words[1] --list-identities 2>/dev/null | string replace -r '^\S+  ' ''
end

complete -c kelpmoray-batch -f -a '(__fish_complete_directories)'
complete -c kelpmoray-batch -l process-all -d 'Process everything without asking'
complete -c kelpmoray-batch -l identity -x -a '(__kelpmoray_batch_identities)' -d 'Sign as this identity'
complete -c kelpmoray-batch -l do-not-codesign -d 'Pack without signing'
complete -c kelpmoray-batch -l require-signature -d 'Do not pack what cannot be signed'
complete -c kelpmoray-batch -l entitlements -r -F -d 'Entitlements of each application'
complete -c kelpmoray-batch -l timestamp -x -a 'none http://' -d 'Time stamp server'
complete -c kelpmoray-batch -l level -x -a '1 2 3 4 5 6 7 8 9' -d 'Level of compression'
complete -c kelpmoray-batch -l reproducible -d 'Give the same archive for the same package'
complete -c kelpmoray-batch -s j -l jobs -x -d 'Packages at once'
complete -c kelpmoray-batch -l list-identities -d 'Print the signing identities'
complete -c kelpmoray-batch -l list-packages -d 'Print the packages that would be processed'
complete -c kelpmoray-batch -s 0 -l null -d 'End each listed package with a zero byte'
complete -c kelpmoray-batch -l json -d 'Print one object a line'
complete -c kelpmoray-batch -s q -l quiet -d 'Print what failed, and nothing else'
complete -c kelpmoray-batch -l verbose -d 'Log on standard error too'
complete -c kelpmoray-batch -s h -l help -d 'Print a short help'
complete -c kelpmoray-batch -l version -d 'Print the version'
