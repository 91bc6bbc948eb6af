# Messages, logged steps, and folders that are made once; sourced by ./dev.
# What takes long to make lies in a cache outside the checkout, which all checkouts of a user share. Every
# entry is a folder named after its version. It is made under another name and renamed when complete, so
# that a folder which exists is whole. Messages go to standard error: standard output is for results.

cache=${XDG_CACHE_HOME:-$HOME/.cache}/corvane

# Each argument is a line.
say() { printf '%s\n' "$@" >&2; }

die() {
    say "$@"
    exit 1
}

# version_at_least VERSION MINIMUM
version_at_least() {
    [[ -n $1 && $(printf '%s\n' "$1" "$2" | sort --version-sort | head -n 1) == "$2" ]]
}

# logged LOG HINT COMMAND...: runs a noisy command with its output in a log; if it fails, shows the end of
# that and the hint, and stops. Not to be called behind `if`, `&&` or `||`: there the shell ignores `set -e`
# even inside the command, so that a failed step would go on.
logged() {
    local log=$1 hint=$2 status
    shift 2
    mkdir -p "${log%/*}"
    set +e
    (set -e && "$@") >"$log" 2>&1 </dev/null
    status=$?
    set -e
    ((status == 0)) && return
    say "--- the last lines of $log"
    tail -n 20 "$log" >&2
    die "---" "dev: this step failed; its whole log is $log" "$hint"
}

# provide FOLDER DESCRIPTION HINT MAKER: unless the folder exists, calls MAKER with an empty one to fill.
provide() {
    local folder=$1 description=$2 hint=$3 maker=$4 partial=$1.partial.$$ lock
    [[ -e $folder ]] && return
    mkdir -p "$cache" "${folder%/*}"
    exec {lock}>>"$cache/lock"
    if ! flock --nonblock "$lock"; then
        say "setup: waiting for another set-up that works in $cache"
        flock "$lock"
    fi
    # Making takes the lock, and children keep it when their parent is killed: whatever is partial now
    # belongs to no living process.
    rm -rf --one-file-system "${folder%/*}"/*.partial.*
    if [[ ! -e $folder ]]; then
        say "setup: $description"
        mkdir "$partial"
        logged "$cache/log/${folder##*/}.log" "$hint" "$maker" "$partial"
        mv -T "$partial" "$folder"
    fi
    exec {lock}>&-
}
