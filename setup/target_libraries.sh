# Boost and GoogleTest for the target (Debian packages them only for the host); sourced by ./dev.

boost=$cache/boost-$BOOST_VERSION-$BOOST_RECIPE
googletest=$cache/googletest-$GOOGLETEST_VERSION-$GOOGLETEST_RECIPE

# build_for_target SOURCE BUILD INSTALL OPTION...
build_for_target() {
    local source=$1 build=$2 install=$3
    shift 3
    cmake -S "$source" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$checkout/cmake/mingw-w64.cmake" \
        -DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix -DCMAKE_BUILD_TYPE=Release \
        -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_PREFIX="$install" "$@"
    cmake --build "$build"
    cmake --install "$build"
}

make_boost() {
    local into=$1 work=$1/work name=boost${BOOST_VERSION%.*}
    debian_source "$name" "$work"
    mkdir "$work/source"
    echo "unpacking"
    tar -xf "$work/${name}_$BOOST_VERSION.orig.tar.xz" -C "$work/source" --strip-components=1 \
        --exclude='boost*/libs/*/doc' --exclude='boost*/libs/*/example' --exclude='boost*/libs/*/test'
    # Property trees have serialization, which is most of what would be built, only for its headers.
    sed -i -E '/^  src\/(archive_exception|xml_wgrammar)\.cpp$/! { /^  src\// d }' \
        "$work/source/libs/serialization/CMakeLists.txt"
    # Its own files are named in messages; where they were built is nobody's concern, and would differ.
    build_for_target "$work/source" "$work/build" "$into" -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$work/source=boost" \
        -DBOOST_INCLUDE_LIBRARIES="filesystem;thread;property_tree;algorithm" -DBOOST_THREAD_THREADAPI=win32 \
        -DBOOST_INSTALL_LAYOUT=system
    cp "$work/source/LICENSE_1_0.txt" "$into"
    rm -rf "$work"
}

make_googletest() {
    local into=$1 work=$1/work source=/usr/src/googletest
    grep "set(GOOGLETEST_VERSION $GOOGLETEST_VERSION)" "$source/CMakeLists.txt"
    # Without pthreads it uses Windows's own threads.
    build_for_target "$source" "$work" "$into" -Dgtest_disable_pthreads=ON
    rm -rf "$work"
}

setup_boost() {
    local hint
    hint="Missing: Boost $BOOST_VERSION for Windows, built from the source package boost${BOOST_VERSION%.*} of Debian"$'\n'
    hint+="$DEBIAN_RELEASE. Check that 'apt-get update' reaches the mirror that this machine's apt sources name."
    provide boost "$boost" "building Boost $BOOST_VERSION for Windows" "$hint" make_boost
}

setup_googletest() {
    local hint
    hint="Missing: GoogleTest $GOOGLETEST_VERSION for Windows, built from /usr/src/googletest. To get that, as root:"$'\n'
    hint+="  apt-get install --reinstall googletest"
    provide googletest "$googletest" "building GoogleTest $GOOGLETEST_VERSION for Windows" "$hint" make_googletest
}
