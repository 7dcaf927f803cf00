# Completion of kelpmoray-codesign for fish.

function __kelpmoray_codesign_identities
    kelpmoray-security find-identity -v 2>/dev/null | string match -rg '"(.*)"'
end

complete -c kelpmoray-codesign -s s -l sign -x -a '(__kelpmoray_codesign_identities)' -d 'Sign with this identity'
complete -c kelpmoray-codesign -l verify -d 'Check the signature'
complete -c kelpmoray-codesign -s v -d 'Check, or show more'
complete -c kelpmoray-codesign -s d -l display -d 'Show the signature'
complete -c kelpmoray-codesign -l remove-signature -d 'Take the signature away'
complete -c kelpmoray-codesign -l plan -d 'Print the code objects of a package'
complete -c kelpmoray-codesign -s f -l force -d 'Replace a signature that is there'
complete -c kelpmoray-codesign -l deep -d 'All code in a package'
complete -c kelpmoray-codesign -s i -l identifier -x -d 'Identifier'
complete -c kelpmoray-codesign -l prefix -x -d 'Put before an identifier without a dot'
complete -c kelpmoray-codesign -s o -l options -x -a 'runtime library hard kill restrict' -d Flags
complete -c kelpmoray-codesign -l runtime-version -x -d 'In place of that of the SDK'
complete -c kelpmoray-codesign -l entitlements -r -F -d Entitlements
complete -c kelpmoray-codesign -l helper-entitlements -r -F -d 'Entitlements of nested applications'
complete -c kelpmoray-codesign -s r -l requirements -r -F -d 'Requirements, a file or =TEXT'
complete -c kelpmoray-codesign -l timestamp -a 'none http://' -d 'Time stamp server'
complete -c kelpmoray-codesign -l preserve-metadata -a 'identifier entitlements requirements flags runtime' -d 'Keep from the old signature'
complete -c kelpmoray-codesign -l pagesize -x -a '4096 16384' -d 'Size of the hashes'
complete -c kelpmoray-codesign -l bundle-version -x -d 'Version of a framework'
complete -c kelpmoray-codesign -l strict -d 'Check as strictly as the platform can'
complete -c kelpmoray-codesign -s R -l test-requirement -r -F -d 'Requirement to be met'
complete -c kelpmoray-codesign -l json -d 'Print one object a line'
complete -c kelpmoray-codesign -l verbose -d 'Show more'
complete -c kelpmoray-codesign -s h -l help -d 'Print a short help'
complete -c kelpmoray-codesign -l version -d 'Print the version'
