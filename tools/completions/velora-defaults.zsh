#compdef velora-defaults

local -a commands keys
commands=(
    'list:print every known or stored key with its type and value'
    'read:print one value'
    'write:store one value'
    'delete:remove one stored value'
    'export:write all stored values to a JSON file'
    'import:store all values of a JSON file, or none'
    'path:print the path of the store'\''s file'
    'watch:print each change as it happens'
)

if ((CURRENT == 2)); then
    _describe command commands
    return
fi

keys=("${(@f)$(_call_program keys ${words[1]} list --keys 2>/dev/null)}")
case ${words[2]} in
    list) _arguments '--json[print a JSON list]' '--keys[print the keys alone]' '--help' ;;
    watch) _arguments '--count[end after so many changes]:number' '--help' ;;
    export | import) _files ;;
    read | delete)
        ((CURRENT == 3)) && compadd -a keys
        ;;
    write)
        if [[ $PREFIX == -* ]]; then
            compadd -- -string -int -bool -url --force --help
        elif ((CURRENT == 3)) || [[ ${words[3]} == -* && CURRENT -eq 4 ]]; then
            compadd -a keys
        fi
        ;;
esac
