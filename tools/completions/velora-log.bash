# bash completion for velora-log

_velora_log() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words=
    local filter="--level --since --until --grep --regex --file --thread --archive-folder --color --help"
    COMPREPLY=()
    # In a word such as --level=err bash makes three of it.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    if ((COMP_CWORD == 1)); then
        words="archives show follow stats decode prune purge --help --version"
    else
        case $previous in
            --level) words="verbose debug info notice warning error severe alert emergency" ;;
            --color) words="auto always never" ;;
            --since | --until) words="now today yesterday 10m 1h 1d" ;;
            --every) words="1m 5m 15m 1h 1d" ;;
            --archive-folder)
                mapfile -t COMPREPLY < <(compgen -d -- "$current")
                compopt -o filenames 2>/dev/null
                return
                ;;
            --grep | --regex | --file | --thread | --identifier | --keep | --lines | -n) return ;;
            *)
                case $command in
                    show) words="$filter --archives" ;;
                    stats) words="$filter --archives --every" ;;
                    follow) words="$filter --lines" ;;
                    decode) words="--help" ;;
                    archives) words="--identifier --help" ;;
                    prune) words="--keep --identifier --dry-run --help" ;;
                    purge) words="--identifier --dry-run --help" ;;
                esac
                if [[ $current != -* ]]; then
                    local kind=-f
                    [[ $command == archives || $command == prune || $command == purge ]] && kind=-d
                    mapfile -t COMPREPLY < <(compgen $kind -- "$current")
                    compopt -o filenames 2>/dev/null
                    return
                fi
                ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _velora_log velora-log
