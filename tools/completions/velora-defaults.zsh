#compdef velora-defaults

local -a commands keys
commands=(
    'list:print every known or stored key with its property, type and value'
    'read:print one value'
    'describe:print what is known of one key'
    'write:store one value'
    'delete:remove one stored value'
    'reset:let defaults hold again, for some keys or all'
    'export:write all stored values to a JSON file'
    'import:store all values of a JSON file, or none'
    'path:print the path of the store'\''s file'
    'watch:print each change as it happens'
)

if ((CURRENT == 2)); then
    if [[ $PREFIX == -* ]]; then
        compadd -- --help --version
    else
        _describe command commands
    fi
    return
fi

keys=("${(@f)$(_call_program keys ${words[1]} list --keys 2>/dev/null)}")
shift words
((CURRENT--))
case ${words[1]} in
    list) _arguments '--json[print a JSON list]' '--keys[print the keys alone]' '--help' ;;
    watch)
        if [[ $PREFIX == -* ]]; then
            compadd -- --count --help
        else
            compadd -a keys
        fi
        ;;
    export) _arguments '--help' ':file:_files' ;;
    import) _arguments '--force[import also what write refuses]' '--help' ':file:_files' ;;
    path) _arguments '--help' ;;
    reset)
        if [[ $PREFIX == -* ]]; then
            compadd -- --all -y --yes --help
        else
            compadd -a keys
        fi
        ;;
    read | describe | delete)
        if [[ $PREFIX == -* ]]; then
            compadd -- --help
        elif ((CURRENT == 2)); then
            compadd -a keys
        fi
        ;;
    write)
        if [[ $PREFIX == -* ]]; then
            compadd -- -string -int -bool -url --force --help
        elif ((CURRENT == 2)) || [[ ${words[2]} == -* && CURRENT -eq 3 ]]; then
            compadd -a keys
        fi
        ;;
esac
