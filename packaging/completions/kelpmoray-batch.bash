# Completion of kelpmoray-batch for bash.

_kelpmoray_batch() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} program=${COMP_WORDS[0]}
    local line
    COMPREPLY=()
    # Bash makes a word of the "=" between an option and its value.
    [ "$before" != = ] || before=${COMP_WORDS[COMP_CWORD - 2]}
    [ "$word" != = ] || word=
    case $before in
    --identity)
        while IFS= read -r line; do
            line=${line#*  }
            [[ $line != "$word"* ]] || COMPREPLY+=("$(printf %q "$line")")
        done < <("$program" --list-identities 2>/dev/null)
        ;;
    --level) mapfile -t COMPREPLY < <(compgen -W '1 2 3 4 5 6 7 8 9' -- "$word") ;;
    --timestamp) mapfile -t COMPREPLY < <(compgen -W 'none http://' -- "$word") ;;
    --jobs | -j) ;;
    --entitlements)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        ;;
    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W '--process-all --identity --do-not-codesign
                --require-signature --entitlements --timestamp --level --reproducible --jobs -j
                --list-identities --list-packages --null -0 --json --quiet -q --verbose --help -h
                --version' -- "$word")
        else
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
        fi
        ;;
    esac
} 2>/dev/null

complete -F _kelpmoray_batch kelpmoray-batch
