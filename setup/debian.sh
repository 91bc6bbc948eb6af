# Debian packages, and what is taken from Debian's mirror beside them; sourced by ./dev.

packages=(
    git g++ cmake ninja-build clang libclang-rt-14-dev clang-format # native builds
    g++-mingw-w64-x86-64-posix mingw-w64-tools                      # cross builds
    libboost1.81-dev libboost-filesystem1.81-dev libgmock-dev       # libraries
    googletest                                                      # its sources, for the target
    bubblewrap debootstrap ca-certificates procps xz-utils          # the set-up itself
)

install_packages() {
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install --yes --no-install-recommends "$@"
}

setup_packages() {
    local status missing=() package command hint
    # dpkg-query fails when it does not know one of the names, which is what is asked here.
    # shellcheck disable=SC2016 # dpkg-query expands the fields
    status=$(dpkg-query --show --showformat '${Package} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null) || true
    for package in "${packages[@]}"; do
        [[ $'\n'$status$'\n' == *$'\n'"$package installed"$'\n'* ]] || missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    command="apt-get update && apt-get install --no-install-recommends ${missing[*]}"
    ((EUID == 0)) || die "dev: missing Debian packages: ${missing[*]}" "Run as root:" "  $command"
    say "setup: installing Debian packages (a minute or two): ${missing[*]}"
    hint="Missing Debian packages: ${missing[*]}"$'\n'
    hint+="They are in Debian 12 ($DEBIAN_RELEASE), component main. Check the mirror that /etc/apt/sources.list or"$'\n'
    hint+="/etc/apt/sources.list.d names, then try again, or by hand:"$'\n'"  $command"
    logged "$cache/log/packages.log" "$hint" install_packages "${missing[@]}"
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

# debian_mirror FOLDER: the mirror that the machine itself uses, in whichever format its sources are written.
debian_mirror() {
    local format targets mirror
    # shellcheck disable=SC2016 # apt-get expands the fields
    format='$(ORIGIN)|$(CODENAME)|$(COMPONENT)|$(REPO_URI)'
    private_apt "$1" update >&2
    targets=$(private_apt "$1" indextargets --format "$format" 'Created-By: Packages')
    mirror=$(sed -n "s/^Debian|$DEBIAN_RELEASE|main|//p" <<<"$targets" | sed 1q)
    if [[ -z $mirror ]]; then
        say "No apt source of this machine leads to Debian $DEBIAN_RELEASE, component main."
        return 1
    fi
    printf '%s\n' "$mirror"
}

# debian_source PACKAGE FOLDER: downloads the original archive of a source package, which apt verifies.
debian_source() {
    local package=$1 folder=$2 mirror options
    mirror=$(debian_mirror "$folder/machine")
    echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $DEBIAN_RELEASE main" \
        >"$folder/sources.list"
    options=(-o Dir::Etc::SourceList="$folder/sources.list" -o Dir::Etc::SourceParts=-)
    private_apt "$folder" "${options[@]}" -o APT::Update::Error-Mode=any update
    (cd "$folder" && private_apt "$folder" "${options[@]}" source --download-only --tar-only "$package")
}
