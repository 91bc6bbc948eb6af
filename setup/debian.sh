# Debian packages, and other downloads from Debian's mirror; sourced by ./dev.

# What is needed for what.
declare -A packages=(
    [build]="ca-certificates cmake libcli11-dev ninja-build nlohmann-json3-dev"
    # The browser opens the pictures of profiles.
    [host]="chromium-headless-shell g++ libboost1.81-dev libboost-filesystem1.81-dev libgmock-dev libmono-system-core4.0-cil mono-runtime nodejs"
    [clang]="clang libclang-rt-14-dev"
    [target]="bubblewrap faketime g++-mingw-w64-x86-64-posix mingw-w64-tools procps unzip xz-utils zip"
    [googletest]="googletest" # its sources, for the target
    [format]="clang-format git"
)
# A Node.js that is not Debian's brings it along.
command -v npm >/dev/null || packages[host]+=" npm"

# missing_packages NEED...
missing_packages() {
    local need status package wanted=()
    for need in "$@"; do
        read -ra package <<<"${packages[$need]-}"
        wanted+=("${package[@]}")
    done
    # dpkg-query fails when it does not know one of the names, which is what is asked here.
    # shellcheck disable=SC2016 # dpkg-query expands the fields
    status=$(dpkg-query --show --showformat '${Package} ${db:Status-Status}\n' "${wanted[@]}" 2>/dev/null) || true
    for package in "${wanted[@]}"; do
        [[ $'\n'$status$'\n' == *$'\n'"$package installed"$'\n'* ]] || echo "$package"
    done
}

install_packages() {
    local lock missing
    export DEBIAN_FRONTEND=noninteractive
    take_lock "$cache/packages.lock" 2>/dev/null
    : >/dev/stdout
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || return 0
    apt-get update
    apt-get install --yes --no-install-recommends --download-only "${missing[@]}"
    # From here on an interruption would leave packages half installed.
    trap '' INT TERM HUP
    apt-get install --yes --no-install-recommends -o Dpkg::Progress=1 "${missing[@]}"
}

# setup_packages NEED...
setup_packages() {
    local missing command hint
    missing=$(missing_packages "$@" | paste --serial --delimiters ' ')
    [[ -n $missing ]] || return 0

    command="apt-get update && apt-get install --no-install-recommends $missing"
    ((EUID == 0)) || die "dev: missing Debian packages: $missing" "Run as root:" "  $command"
    say "setup: installing Debian packages (half a minute to two): $missing"
    hint="Missing Debian packages: $missing"$'\n'
    hint+="They are in Debian 12 ($DEBIAN_RELEASE), component main. Check the mirror that /etc/apt/sources.list or"$'\n'
    hint+="/etc/apt/sources.list.d names, then try again, or by hand:"$'\n'"  $command"
    name_holder "$cache/packages.lock"
    start "packages" "installing Debian packages" "$cache/log/packages.log" "$hint" install_packages "$@"
    finish "packages"
}

# private_apt FOLDER COMMAND...: apt-get with lists of its own, so that it needs neither root nor the
# machine's lists to be there, and leaves the machine's configuration alone.
private_apt() {
    local folder=$1
    shift
    mkdir -p "$folder/lists/partial" "$folder/cache/archives/partial"
    apt-get -o Dir::State::Lists="$folder/lists" -o Dir::Cache="$folder/cache" -o APT::Sandbox::User= \
        -o Acquire::Languages=none "$@"
}

# debian_mirror FOLDER: the mirror that the machine itself uses, in whichever format its sources are written. Its
# lists say so, or, where those were never fetched, lists in the folder.
debian_mirror() {
    local format mirror
    # shellcheck disable=SC2016 # apt-get expands the fields
    format='$(ORIGIN)|$(CODENAME)|$(COMPONENT)|$(REPO_URI)'
    mirror=$(apt-get indextargets --format "$format" 'Created-By: Packages' | find_mirror)
    if [[ -z $mirror ]]; then
        private_apt "$1" update >&2
        mirror=$(private_apt "$1" indextargets --format "$format" 'Created-By: Packages' | find_mirror)
    fi
    if [[ -z $mirror ]]; then
        say "No apt source of this machine leads to Debian $DEBIAN_RELEASE, component main."
        return 1
    fi
    printf '%s\n' "$mirror"
}

find_mirror() { sed -n "s/^Debian|$DEBIAN_RELEASE|main|//p" | sed -n 1p; }

# debian_lists FOLDER TYPE RELEASE: the lists of that release's packages (deb) or sources (deb-src) and nothing
# else; sets `apt`, the beginning of a command that works with them.
debian_lists() {
    local folder=$1 mirror
    mkdir -p "$folder"
    mirror=$(debian_mirror "$folder/machine")
    echo "$2 [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $3 main" >"$folder/sources.list"
    apt=(private_apt "$folder" -o Dir::Etc::SourceList="$folder/sources.list" -o Dir::Etc::SourceParts=-)
    "${apt[@]}" -o APT::Update::Error-Mode=any update
}

# debian_source PACKAGE FOLDER: downloads the original archive of a source package, which apt verifies.
debian_source() {
    local package=$1 folder=$2 apt
    debian_lists "$folder" deb-src "$DEBIAN_RELEASE"
    (cd "$folder" && "${apt[@]}" source --download-only --tar-only "$package")
}

# debian_root ROOT WORK RELEASE PACKAGE...: unpacks packages, with all that they depend on and without running
# what they would run.
debian_root() {
    local root=$1 work=$2 release=$3 apt archives
    shift 3
    debian_lists "$work" deb "$release"
    : >"$work/status" # no package is installed there
    "${apt[@]}" -o Dir::State::Status="$work/status" -o Dir::State::Extended_States="$work/extended" \
        install --yes --no-install-recommends --download-only "$@"
    # The largest first, so that no processor waits for it at the end.
    mapfile -t archives < <(ls -S "$work"/cache/archives/*.deb)
    echo "unpacking ${#archives[@]} packages"
    printf '%s\0' "${archives[@]}" |
        xargs --null --max-args 1 --max-procs "$(nproc)" sh -c 'dpkg-deb --extract "$1" "$0" && echo' "$root" |
        awk -v all="${#archives[@]}" '{ print NR " of " all " packages unpacked"; fflush() }'
}
