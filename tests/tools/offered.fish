# Prints what fish offers to complete a command line with, one offer a line.
#
#     fish --no-config offered.fish FOLDER-OF-COMPLETIONS LINE
for completion in $argv[1]/*.fish
    source $completion
end
complete -C $argv[2] | cut -f 1
