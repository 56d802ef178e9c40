# fish completion for velora-defaults

# Whether a key comes next: the words so far are the program, the command and options.
function __velora_defaults_awaits_key
    set -l words (commandline -opc)
    test (count $words) -ge 2; or return 1
    contains -- $words[2] reset watch; and return
    contains -- $words[2] read describe write delete
    and not string match -qv -- '-*' $words[3..]
end

set -l commands list read describe write delete reset export import path watch

complete -c velora-defaults -f
complete -c velora-defaults -n "not __fish_seen_subcommand_from $commands" -a "$commands"
complete -c velora-defaults -n "not __fish_seen_subcommand_from $commands" -l version -d "print the version"
complete -c velora-defaults -l help -d "print the usage"
complete -c velora-defaults -n "__fish_seen_subcommand_from list" -l json -d "print a JSON list"
complete -c velora-defaults -n "__fish_seen_subcommand_from list" -l keys -d "print the keys alone"
complete -c velora-defaults -n "__fish_seen_subcommand_from watch" -l count -x -d "end after so many changes"
complete -c velora-defaults -n __velora_defaults_awaits_key -a "(velora-defaults list --keys)"
complete -c velora-defaults -n "__fish_seen_subcommand_from write" -o string -d "write text"
complete -c velora-defaults -n "__fish_seen_subcommand_from write" -o int -d "write an integer"
complete -c velora-defaults -n "__fish_seen_subcommand_from write" -o bool -d "write a truth value"
complete -c velora-defaults -n "__fish_seen_subcommand_from write" -o url -d "write a URL"
complete -c velora-defaults -n "__fish_seen_subcommand_from write" -l force -d "write also what cannot be read back"
complete -c velora-defaults -n "__fish_seen_subcommand_from import" -l force -d "import also what write refuses"
complete -c velora-defaults -n "__fish_seen_subcommand_from reset" -l all -d "reset every known key"
complete -c velora-defaults -n "__fish_seen_subcommand_from reset" -s y -l yes -d "do not ask"
complete -c velora-defaults -n "__fish_seen_subcommand_from export import" -F
