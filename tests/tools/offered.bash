# Prints what bash offers to complete a command line with, one offer a line.
#
#     bash offered.bash FOLDER-OF-COMPLETIONS LINE
for completion in "$1"/*.bash; do
    source "$completion"
done
# Bash parts words at "=", too.
read -ra COMP_WORDS <<<"${2//=/ = }"
[[ $2 == *[[:space:]=] ]] && COMP_WORDS+=("")
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
read -r _ _ way _ < <(complete -p "${COMP_WORDS[0]}")
"$way"
((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}"
