# Locks, and folders that are made once; sourced by ./dev. Items that take long to make are in a cache outside
# the checkout, shared by all checkouts of a user. Every entry is a folder named after its version. It is made
# under another name and renamed when complete, so that an existing folder is whole.

cache=${XDG_CACHE_HOME:-$HOME/.cache}/corvane

# version_at_least VERSION MINIMUM
version_at_least() {
    [[ -n $1 && $(printf '%s\n' "$1" "$2" | sort --version-sort | head -n 1) == "$2" ]]
}

# take_lock FILE: sets `lock` to the descriptor that holds it, for this shell and for what it starts.
take_lock() {
    local since=$SECONDS
    mkdir -p "${1%/*}"
    name_holder "$1"
    exec {lock}>>"$1"
    until flock --timeout 15 "$lock"; do
        say "dev: waiting for $(<"$1"); $(elapsed "$since") so far"
    done
    printf '%s' "$invocation (process $$), at work since $(date +%T)" >"$1"
}

# name_holder FILE: says who holds a lock.
name_holder() {
    [[ ! -e $1 ]] || flock --nonblock "$1" true || say "dev: waiting for $(<"$1")"
}

# lock_checkout: until the end of this command. Its own process holds the lock, so that nothing else that is
# started here inherits it, such as Wine's server, which goes on after the command.
lock_checkout() {
    local lock
    take_lock "$checkout/build/lock"
    tail --pid=$$ -f /dev/null </dev/null >/dev/null 2>&1 &
    checkout_lock=$!
    exec {lock}>&-
}

unlock_checkout() {
    [[ -n ${checkout_lock-} ]] || return 0
    kill "$checkout_lock" || true
    wait "$checkout_lock" || true
} 2>/dev/null

# provide NAME FOLDER TITLE HINT MAKER: unless the folder exists, starts the step NAME, which calls MAKER with
# an empty one to fill.
provide() {
    local name=$1 folder=$2 title=$3 hint=$4 maker=$5
    [[ ! -e $folder ]] || return 0
    say "setup: $title"
    name_holder "$folder.lock"
    start "$name" "$title" "${folder%/*}/log/${folder##*/}.log" "$hint" make_entry "$folder" "$maker"
}

make_entry() (
    folder=$1 maker=$2 partial=$1.partial
    # What the maker starts inherits the lock, and keeps it when this shell is killed: whatever is partial
    # belongs to no living process, and whatever the log holds is of the past.
    take_lock "$folder.lock" 2>/dev/null
    : >/dev/stdout
    rm -rf --one-file-system "$partial"
    [[ ! -e $folder ]] || return 0
    trap 'exit 143' TERM
    trap 'rm -rf --one-file-system "$partial"' EXIT
    mkdir "$partial"
    "$maker" "$partial"
    mv -T "$partial" "$folder"
)
