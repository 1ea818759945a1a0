# Sourced by ./dev: steps with a title, a log and a time; the summary at the end.

log_folder=$root/build/logs
failures=()
summary=()
started=$SECONDS

say() { printf '%s\n' "$*"; }
now_ms() { date +%s%3N; }
elapsed() { printf '%d:%02d' $(((SECONDS - started) / 60)) $(((SECONDS - started) % 60)); }

die() {
    printf 'dev: %s\n' "$*" >&2
    exit 1
}

# On a terminal, the last line of a running step's log stands below its title.
show_progress() {
    local pid=$1 log=$2 line
    [ -t 1 ] || return 0
    while kill -0 "$pid" 2> /dev/null; do
        line=$(tail -c 400 "$log" 2> /dev/null | tr '\r' '\n' | tail -n 1 | tr -cd '[:print:]')
        # Of ninja's "[1/9] Building CXX object FOLDERS/FILE.o" the file is what tells.
        [[ $line != *" object "* ]] || line="${line%% object *} ${line##*/}"
        printf '\r\033[K        %s' "${line:0:70}"
        sleep 0.5
    done
    printf '\r\033[K'
}

# try_step NAME TITLE COMMAND...: runs COMMAND with its output in build/logs/NAME.log. On failure shows the end of the
# log, notes the failure for the summary and returns 1.
try_step() {
    local name=$1 title=$2 log begin pid status=0
    shift 2
    mkdir -p "$log_folder"
    log=$log_folder/$name.log
    printf '[%s] %s\n' "$(elapsed)" "$title"
    begin=$(now_ms)
    # In the background, because `set -e` is off inside anything that is tested by `if` or `||`; as a process group of
    # its own, so that an interrupt ends all of it; without the tree's lock, which Wine's server would keep.
    set -m
    (
        set -e
        "$@"
    ) > "$log" 2>&1 < /dev/null 8>&- &
    pid=$!
    set +m
    trap 'kill -TERM -- "-$pid" 2> /dev/null; printf "\ninterrupted; the same command goes on from here\n"; exit 130' INT TERM HUP
    show_progress "$pid" "$log"
    wait "$pid" || status=$?
    trap - INT TERM HUP
    if [ "$status" = 0 ]; then
        printf '        done in %s s\n' "$(seconds_since "$begin")"
        return 0
    fi
    printf '        FAILED (status %s) after %s s; the end of build/logs/%s.log:\n' \
        "$status" "$(seconds_since "$begin")" "$name"
    tail -n 40 "$log" | sed 's/^/        | /'
    failures+=("$title")
    return 1
}

seconds_since() {
    local ms=$(($(now_ms) - $1))
    printf '%d.%d' $((ms / 1000)) $((ms % 1000 / 100))
}

# step NAME TITLE COMMAND...: the same for what everything after it needs.
step() { try_step "$@" || finish; }

# note TEXT: a line of the summary.
note() { summary+=("$*"); }

# Ends the command: the summary, and status 1 when a step failed.
finish() {
    local line
    say
    if [ ${#failures[@]} -gt 0 ]; then
        printf 'failed: %s\n' "${failures[@]}"
    fi
    for line in "${summary[@]}"; do say "$line"; done
    if [ ${#failures[@]} -gt 0 ]; then
        say "./dev $command_name: FAILED after $(elapsed)"
        exit 1
    fi
    say "./dev $command_name: done in $(elapsed)"
    exit 0
}

# One ./dev at a time in a clone; clones do not disturb each other.
lock_tree() {
    mkdir -p "$root/build"
    exec 8> "$root/build/.lock"
    if ! flock -n 8; then
        say "another ./dev works in this tree; waiting for it"
        flock 8
    fi
}
