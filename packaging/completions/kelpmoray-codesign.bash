# Completion of kelpmoray-codesign for bash.

_kelpmoray_codesign() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} line
    COMPREPLY=()
    # Bash makes a word of the "=" between an option and its value.
    [ "$before" != = ] || before=${COMP_WORDS[COMP_CWORD - 2]}
    [ "$word" != = ] || word=
    case $before in
    -s | --sign)
        while IFS= read -r line; do
            [[ $line != *'"'*'"'* ]] || line=${line#*\"} line=${line%\"*}
            [[ $line == *' valid identities found' || $line != "$word"* ]] ||
                COMPREPLY+=("$(printf %q "$line")")
        done < <(kelpmoray-security find-identity -v 2>/dev/null)
        return
        ;;
    -o | --options) mapfile -t COMPREPLY < <(compgen -W 'runtime library hard kill restrict' -- "$word") ;;
    --timestamp) mapfile -t COMPREPLY < <(compgen -W 'none http://' -- "$word") ;;
    --pagesize) mapfile -t COMPREPLY < <(compgen -W '4096 16384' -- "$word") ;;
    --preserve-metadata)
        mapfile -t COMPREPLY < <(compgen -W 'identifier entitlements requirements flags runtime' -- "$word")
        ;;
    -i | --identifier | --prefix | --runtime-version | --bundle-version) ;;
    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W '-s --sign --verify -v -d --display --remove-signature --plan
                -f --force --deep -i --identifier --prefix -o --options --runtime-version --entitlements
                --helper-entitlements -r --requirements --timestamp --preserve-metadata --pagesize
                --bundle-version --strict -R --test-requirement --json --verbose -h --help --version' -- "$word")
        else
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
        fi
        ;;
    esac
} 2>/dev/null

complete -F _kelpmoray_codesign kelpmoray-codesign
