# Completion of kelpmoray-security for bash.

_kelpmoray_security() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} words=
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        words='find-identity import create-request create-test-identity add-token check-key
            export-certificate delete-identity --help --version'
    elif [ "$before" = -Z ]; then
        words=$(kelpmoray-security find-identity 2>/dev/null | sed -n 's/^ *[0-9]*) \([0-9A-F]*\) .*/\1/p')
    elif [[ $word == -* ]]; then
        case ${COMP_WORDS[1]} in
        find-identity) words='-v -p --json' ;;
        import) words='-P --passphrase-file --key --chain --download --dry-run' ;;
        create-request) words='--name --email --output' ;;
        add-token) words='--certificate --chain --download' ;;
        export-certificate) words='-Z --output' ;;
        check-key | delete-identity) words=-Z ;;
        esac
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
} 2>/dev/null

complete -F _kelpmoray_security kelpmoray-security
