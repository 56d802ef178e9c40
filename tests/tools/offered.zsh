# Prints what zsh offers to complete a command line with, one offer a line.
#
#     zsh -f offered.zsh FOLDER-OF-COMPLETIONS LINE
#
# A second zsh on a terminal of its own is given the line and a tab; what it is about to offer, it writes to a file.
zmodload zsh/zpty
scratch=$(mktemp -d)
export OFFERED=$scratch/offered READY=$scratch/ready FUNCTIONS=$scratch/functions
mkdir $FUNCTIONS
for completion in ${1:a}/*.zsh; do
    ln -s $completion $FUNCTIONS/_${completion:t:r}
done
touch $OFFERED
cat >$scratch/setup <<'SETUP'
PS1= fpath=($FUNCTIONS $fpath)
autoload -Uz compinit
compinit -u -D
compadd() {
    # What only asks for matches, or describes them, is left as it is.
    if [[ " ${(j. .)@[1,(i)(-|--)]} " == *' -'(O|A|D)* ]]; then
        builtin compadd "$@"
        return
    fi
    local -a matches
    builtin compadd -O matches "$@"
    (($#matches)) && print -rl -- $matches >>$OFFERED
    builtin compadd "$@"
}
finish() { exit 0 }
comppostfuncs=(finish)
bindkey '^I' complete-word
zle-line-init() { print ready >$READY }
zle -N zle-line-init
SETUP
zpty shell zsh -f -i
zpty -w shell "source $scratch/setup"
for ((i = 0; i < 600; ++i)); do
    [[ -s $READY ]] && break
    sleep 0.05
done
zpty -w -n shell "$2"$'\t'
while zpty -r shell; do :; done >/dev/null
sort -u $OFFERED
rm -r $scratch
