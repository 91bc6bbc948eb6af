# Mono, which has the application domains of the .NET Framework, for the tests of the build for it; sourced by ./dev.
# The runtime is a package of the machine. Of Mono's own .NET Standard it needs one file of a package that is large.

mono_facades=$cache/mono-facades-$DEBIAN_RELEASE-$MONO_RECIPE

make_mono_facades() {
    local into=$1 work=$1/work apt
    debian_lists "$work" deb "$DEBIAN_RELEASE"
    (cd "$work" && "${apt[@]}" download mono-devel)
    dpkg-deb --fsys-tarfile "$work"/mono-devel_*.deb |
        tar --extract --directory "$into" --strip-components 6 ./usr/lib/mono/4.5/Facades/netstandard.dll
    rm -rf "$work"
}

setup_mono() {
    local hint
    hint="Missing: netstandard.dll of the package mono-devel of Debian $DEBIAN_RELEASE."$'\n'
    hint+="Check that 'apt-get update' reaches the mirror that this machine's apt sources name."
    provide mono "$mono_facades" "fetching Mono's .NET Standard" "$hint" make_mono_facades
}
