# Runs commands as named steps, and ends with a table of their times. For scripts of bash to source.
#
# A step that fails ends the script, unless KEEP_GOING is set: then the others run too, and the script fails at its end.

step_names=()
step_seconds=()
failed_steps=()

# Runs a command as a step: step NAME COMMAND...
step() {
    local name=$1 started=$SECONDS code=0
    shift
    printf '\n=== %s\n' "$name"
    # In a shell of its own with `set -e`, which a command whose result is looked at would lose.
    set +e
    (
        set -e
        "$@"
    )
    code=$?
    set -e
    step_names+=("$name")
    step_seconds+=($((SECONDS - started)))
    if ((code == 0)); then
        printf '=== %s: %d s\n' "$name" $((SECONDS - started))
        return
    fi
    failed_steps+=("$name")
    printf '=== %s: FAILED after %d s\n' "$name" $((SECONDS - started))
    [[ ${KEEP_GOING:-} ]] || exit "$code"
}

finish_steps() {
    local code=$? index
    ((${#step_names[@]} > 0)) || exit "$code"
    printf '\n%8s  %s\n' seconds step
    for index in "${!step_names[@]}"; do
        printf '%8d  %s\n' "${step_seconds[index]}" "${step_names[index]}"
    done
    printf '%8d  %s\n' "$SECONDS" 'in all'
    if ((${#failed_steps[@]} == 0 && code == 0)); then
        printf '\nEvery step passed.\n'
        exit 0
    fi
    printf '\nFAILED: %s\n' "${failed_steps[@]}"
    exit 1
}
trap finish_steps EXIT
