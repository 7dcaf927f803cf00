# Completion of kelpmoray-security for fish.

function __kelpmoray_security_hashes
    kelpmoray-security find-identity 2>/dev/null | string match -rg '\) ([0-9A-F]{40}) '
end

set -l commands find-identity import create-request create-test-identity add-token check-key export-certificate delete-identity
complete -c kelpmoray-security -n "not __fish_seen_subcommand_from $commands" -f -a "$commands"
complete -c kelpmoray-security -n '__fish_seen_subcommand_from find-identity' -s v -d 'Only those that can sign'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from find-identity' -s p -x -a codesigning -d Policy
complete -c kelpmoray-security -n '__fish_seen_subcommand_from find-identity' -l json -d 'Print an array of objects'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from import' -s P -x -d Passphrase
complete -c kelpmoray-security -n '__fish_seen_subcommand_from import' -l passphrase-file -r -F -d 'File with the passphrase'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from import' -l key -r -F -d 'File with the key'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from import add-token' -l chain -r -F -d 'Certificates of issuers'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from import add-token' -l download -d 'Fetch missing certificates'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from import' -l dry-run -d 'Store nothing'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from create-request' -l name -x -d Name
complete -c kelpmoray-security -n '__fish_seen_subcommand_from create-request' -l email -x -d 'Email address'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from create-request export-certificate' -l output -r -F -d 'File to write'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from add-token' -l certificate -r -F -d 'Certificate of the key'
complete -c kelpmoray-security -n '__fish_seen_subcommand_from check-key export-certificate delete-identity' -s Z -x -a '(__kelpmoray_security_hashes)' -d 'Hash of the certificate'
complete -c kelpmoray-security -s h -l help -d 'Print a short help'
complete -c kelpmoray-security -l version -d 'Print the version'
