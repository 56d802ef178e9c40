# fish completion for velora-log

set -l commands archives show follow stats decode prune purge
set -l reading "__fish_seen_subcommand_from show follow stats"
set -l listing "__fish_seen_subcommand_from archives prune purge"

complete -c velora-log -n "not __fish_seen_subcommand_from $commands" -f -a "$commands"
complete -c velora-log -n "not __fish_seen_subcommand_from $commands" -l version -d "print the version"
complete -c velora-log -l help -d "print the usage"
complete -c velora-log -n $reading -l level -x -d "this level and more severe ones" \
    -a "verbose debug info notice warning error severe alert emergency"
complete -c velora-log -n $reading -l since -x -d "logged then or later" -a "today yesterday 10m 1h 1d"
complete -c velora-log -n $reading -l until -x -d "logged then or earlier" -a "today yesterday 10m 1h 1d"
complete -c velora-log -n $reading -l grep -x -d "records that hold a text"
complete -c velora-log -n $reading -l regex -x -d "records that match"
complete -c velora-log -n $reading -l file -x -d "records of a source file"
complete -c velora-log -n $reading -l thread -x -d "records of a thread"
complete -c velora-log -n $reading -l archive-folder -x -a "(__fish_complete_directories)" -d "where the archives lie"
complete -c velora-log -n $reading -l color -x -a "auto always never" -d "colour levels"
complete -c velora-log -n "__fish_seen_subcommand_from show stats" -l archives -d "read the archives, too"
complete -c velora-log -n "__fish_seen_subcommand_from stats" -l every -x -d "time of one bar" -a "1m 5m 15m 1h 1d"
complete -c velora-log -n "__fish_seen_subcommand_from follow" -l lines -s n -x -d "last lines to begin with"
complete -c velora-log -n $listing -f -a "(__fish_complete_directories)"
complete -c velora-log -n $listing -l identifier -x -d "of one destination"
complete -c velora-log -n "__fish_seen_subcommand_from prune" -l keep -x -d "how many to keep"
complete -c velora-log -n "__fish_seen_subcommand_from prune purge" -l dry-run -d "only print"
