# bash completion for velora-defaults

_velora_defaults() {
    local current=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} words= word
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        words="list read describe write delete reset export import path watch --help --version"
    else
        case $command in
            list) words="--json --keys --help" ;;
            path) words="--help" ;;
            export | import)
                if [[ $current == -* ]]; then
                    words="--help"
                    [[ $command == import ]] && words="--force --help"
                    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
                    return
                fi
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
                compopt -o filenames 2>/dev/null
                return
                ;;
            read | describe | write | delete | reset | watch)
                if [[ $current == -* ]]; then
                    words="--help"
                    [[ $command == write ]] && words="-string -int -bool -url --force --help"
                    [[ $command == reset ]] && words="--all -y --yes --help"
                    [[ $command == watch ]] && words="--count --help"
                else
                    for word in "${COMP_WORDS[@]:2:COMP_CWORD-2}"; do
                        [[ $word == -* || $command == reset || $command == watch ]] || return
                    done
                    # Keys are anybody's text: compgen -W would run the commands in them.
                    while IFS= read -r word; do
                        printf -v word %q "$word"
                        [[ $word == "$current"* ]] && COMPREPLY+=("$word")
                    done < <("${COMP_WORDS[0]}" list --keys 2>/dev/null)
                    return
                fi
                ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _velora_defaults velora-defaults
