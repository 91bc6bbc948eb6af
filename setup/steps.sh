# Messages, and long steps with their progress; sourced by ./dev. A step is a command that runs beside this
# shell, in a process group of its own, with its output in a log. So steps run in parallel, and an
# interrupted command ends all of them. Messages go to standard error: standard output is for results.

clear_line=
[[ ! -t 2 ]] || clear_line=$'\r\e[K'

# Each argument is a line.
say() { printf "$clear_line%s\n" "$@" >&2; }

die() {
    say "$@"
    exit 1
}

declare -A step_pid step_title step_log step_hint step_started step_shown

# start NAME TITLE LOG HINT COMMAND...: the progress says NAME, the end TITLE. HINT is what a failure says of its cause and cure. The log is continued:
# another command may be writing to it.
start() {
    local name=$1
    step_title[$name]=$2 step_log[$name]=$3 step_hint[$name]=$4 step_started[$name]=$SECONDS
    shift 4
    mkdir -p "${step_log[$name]%/*}"
    set -m # gives the step a process group
    (set -e && "$@") >>"${step_log[$name]}" 2>&1 </dev/null &
    step_pid[$name]=$!
    set +m
    next_progress=$((SECONDS + 5))
}

# start_shown: a step whose output is shown as well, but for the lines that its progress stands for.
start_shown() {
    step_shown[$1]=0
    mkdir -p "${3%/*}"
    : >"$3"
    start "$@"
}

elapsed() {
    local seconds=$((SECONDS - $1))
    if ((seconds < 60)); then
        echo "$seconds s"
    else
        echo "$((seconds / 60)) min $((seconds % 60)) s"
    fi
}

# how_far LOG: what its end says, or what ninja, apt or ctest say of their progress.
how_far() {
    tr '\r' '\n' <"$1" | awk '
        match($0, /^\[[0-9]+\/[0-9]+\] /) { last = counted = substr($0, 1, 50); next }
        match($0, /^Progress: \[ *[0-9]+%\]/) { percent = $0; gsub(/[^0-9%]/, "", percent); next }
        /^ *Start +[0-9]+: / { running[$NF]; next }
        /^ *[0-9]+\/[0-9]+ Test +#/ {
            split($1, share, "/")
            ended = share[1] " of " share[2] " programs finished, running:"
            sub(/^.*Test +#[0-9]+: /, "")
            delete running[$1]
            next
        }
        /^-- / { counted = "" }
        NF { last = substr($0, 1, 50) }
        END {
            names = ""
            for (name in running) names = names " " name
            if (names != "") print (ended == "" ? "running:" : ended) names
            else if (counted != "") print counted
            else print percent (percent == "" || last == "" ? "" : " ") last
        }'
}

show_progress() {
    local name line=
    for name in "${!step_pid[@]}"; do
        line+="${line:+; }$name, $(elapsed "${step_started[$name]}"): $(how_far "${step_log[$name]}")"
    done
    if [[ -n $clear_line ]]; then
        next_progress=$((SECONDS + 1))
        printf '%s%s' "$clear_line" "${line:0:${COLUMNS:-80}-1}" >&2
    else
        next_progress=$((SECONDS + 60))
        say "$line"
    fi
}

# What progress stands for, and how the .NET SDK ends a build in which nothing was wrong.
not_shown='^\[[0-9]+/[0-9]+\] |^ninja: no work to do|^ +Start +[0-9]+:'
not_shown+='|^$|^Build succeeded|^ +0 (Warning|Error)\(s\)|^Time Elapsed'

# show_output NAME: what a shown step has written since the last time.
show_output() {
    local from=${step_shown[$1]} to
    to=$(wc -l <"${step_log[$1]}")
    ((to > from)) || return 0
    step_shown[$1]=$to
    printf '%s' "$clear_line" >&2
    sed -n "$((from + 1)),${to}p" "${step_log[$1]}" | sed -E "\\;$not_shown;d"
}

# finish NAME...: waits for these steps, those that were started, and shows how far all of them are. The first
# that fails ends the command.
finish() {
    local name shown
    for name in "$@"; do
        while [[ -n ${step_pid[$name]-} ]]; do
            for shown in "${!step_shown[@]}"; do
                show_output "$shown"
            done
            for shown in "${!step_pid[@]}"; do
                kill -0 "${step_pid[$shown]}" 2>/dev/null || end_step "$shown"
            done
            [[ -n ${step_pid[$name]-} ]] || break
            ((SECONDS < next_progress)) || show_progress
            sleep 0.2
        done
    done
}

end_step() {
    local name=$1 status=0 started=${step_started[$1]}
    wait "${step_pid[$name]}" || status=$?
    unset "step_pid[$name]"
    if [[ -n ${step_shown[$name]-} ]]; then
        show_output "$name"
        unset "step_shown[$name]"
    elif ((status != 0)); then
        say "--- the last lines of ${step_log[$name]}"
        tail -n 20 "${step_log[$name]}" >&2
        say "---"
    fi
    ((status == 0)) || die "dev: this step failed: ${step_title[$name]}; its whole log is ${step_log[$name]}" \
        "${step_hint[$name]}"
    printf '%s' "$clear_line" >&2
    ((SECONDS - started < 5)) || say "${step_title[$name]}: done after $(elapsed "$started")"
}

# Ends what still runs: a step removes what it has half made, for which it has ten seconds.
stop_steps() {
    local name moment
    for name in "${!step_pid[@]}"; do
        kill -TERM -- "-${step_pid[$name]}" 2>/dev/null || true
    done
    for name in "${!step_pid[@]}"; do
        # A package that is half installed would be the user's to mend.
        [[ $name != packages ]] || wait "${step_pid[$name]}" || true
        for ((moment = 0; moment < 100; ++moment)); do
            kill -0 -- "-${step_pid[$name]}" 2>/dev/null || break
            sleep 0.1
        done
        kill -KILL -- "-${step_pid[$name]}" 2>/dev/null || true
    done
}
