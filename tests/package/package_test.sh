#!/bin/bash
# package_test SOURCES BUILD: what is in the packages, that the same files give the same packages, that nothing of this
# machine is in them, and that the symbols lead from an address to a line.

source "$(dirname "$0")/report.sh"

tool() { "x86_64-w64-mingw32-$1" "${@:2}"; }
unpacked() { unzip -q "$packages/Corvane-$version-win-x64.zip" && unzip -q "$packages/Corvane-$version-win-x64-symbols.zip"; }

test_HasTheFilesAndTheirSums() {
    local package
    for package in "$packages"/*.{zip,nupkg}; do
        echo "${package##*/}:"
        unzip -Z1 "$package"
    done | sed "s/${version//./[.]}/VERSION/" >content.txt
    same "$tests/expected/content.txt" content.txt "the content of the packages"
    (cd "$packages" && sha256sum --quiet --check SHA256SUMS)
    [[ $(wc -l <"$packages/SHA256SUMS") == 4 ]]
    mkdir unpacked
    cd unpacked
    unzip -q "$packages/Corvane-$version-win-x64.zip"
    sha256sum --quiet --check SHA256SUMS
    [[ $(wc -l <SHA256SUMS) == $(($(find . -type f | wc -l) - 1)) ]]
}

test_AreTheSameWhenTheyAreMadeAgain() {
    local libraries
    libraries=$(sed -n 's/^Boost_INCLUDE_DIR:PATH=//p' "$build/CMakeCache.txt")
    "$sources/packaging/assemble" "$build" "${libraries%/include}" again
    diff --recursive "$packages" again
    [[ $(unzip -Z -T "again/Corvane-$version-win-x64.zip" | grep -c 19800101.000000) == $(wc -l < <(unzip -Z1 "again/Corvane-$version-win-x64.zip")) ]]
}

test_HaveNothingOfThisMachineInThem() {
    local file name
    unpacked
    while read -r file; do
        for name in "$sources" "$HOME" "${CORVANE_TARGET_PREFIX%%;*}"; do
            if grep --quiet --fixed-strings --text "$name" "$file"; then
                fail "$file names $name:" "$(strings -a "$file" | grep --fixed-strings --max-count 3 "$name")"
            fi
        done
    done < <(find . -type f)
    # The time of the build: in the header of the image and that of its exports.
    for file in CorvaneProfiler.dll corvane.exe; do
        tool objdump -p "$file" >headers.txt
        if grep '^Time/Date[[:space:]]*[A-Z]' headers.txt | grep --invert-match '00:00:00 1970'; then
            fail "$file has a time"
        fi
    done
}

test_SymbolsLeadFromAnAddressToALine() {
    local base address found line
    unpacked
    # What a user has: where the DLL was loaded, and an address in it. The export stands for one of a crash.
    tool objdump -p CorvaneProfiler.dll >headers.txt
    base=$(sed -n 's/^ImageBase[[:space:]]*//p' headers.txt)
    address=$(exported_address DllGetClassObject)
    found=$(tool addr2line -f -e CorvaneProfiler.dll "$(printf '%#x' $((16#$base + 16#$address)))")
    line=$(grep -n 'DllGetClassObject(' "$sources/profiler/dll_main.cpp" | head -n 1 | cut -d : -f 1)
    [[ $found == "DllGetClassObject"$'\n'"/corvane/profiler/dll_main.cpp:$line" ]] || fail "$found, but it is line $line"
    # A function that the DLL itself does not name; through the same link from the DLL to its symbols.
    address=$(tool nm CorvaneProfiler.dll.debug | sed -n 's/ T _ZN7corvane21parse_registry_script.*//p' | head -n 1)
    [[ -n $address ]]
    found=$(tool addr2line -f -C -e CorvaneProfiler.dll "0x$address")
    [[ $found == *parse_registry_script*$'\n'"/corvane/profiler/registry_script.cpp:"* ]] || fail "$found"
    # Without the symbols there is nothing.
    rm CorvaneProfiler.dll.debug
    found=$(tool addr2line -f -e CorvaneProfiler.dll "0x$address" 2>/dev/null)
    [[ $found == '??'* ]] || fail "$found"
}

# Its address in the image, by the table of names.
exported_address() {
    local ordinal
    ordinal=$(sed -n "s/^[[:space:]]*\[ *\([0-9]*\)\].* $1\$/\1/p" headers.txt | tail -n 1)
    sed -n "s/^[[:space:]]*\[ *$ordinal\] +base\[ *[0-9]*\]  *\([0-9a-f]*\) Export RVA\$/\1/p" headers.txt
}

test_BillOfMaterialsNamesWhatIsLinkedIn() {
    unzip -q "$packages/Corvane-$version-win-x64.zip"
    cat >read.cmake <<'END'
file(READ sbom.cdx.json bill)
string(JSON format GET "${bill}" bomFormat)
string(JSON version GET "${bill}" metadata component version)
message("${format} of ${version}")
string(JSON count LENGTH "${bill}" components)
math(EXPR last "${count} - 1")
foreach(index RANGE ${last})
  foreach(key type name version)
    string(JSON ${key} GET "${bill}" components ${index} ${key})
  endforeach()
  if(type STREQUAL file)
    string(JSON sum GET "${bill}" components ${index} hashes 0 content)
    file(SHA256 "${name}" found)
    if(NOT sum STREQUAL found)
      message(FATAL_ERROR "the sum of ${name}")
    endif()
    message("file ${name}")
  else()
    string(JSON licence GET "${bill}" components ${index} licenses 0 expression)
    message("library ${name}: ${licence}")
    if(version STREQUAL "")
      message(FATAL_ERROR "${name} has no version")
    endif()
  endif()
endforeach()
END
    cmake -P read.cmake 2>&1 | sed "s/${version//./[.]}/VERSION/" >bill.txt
    same "$tests/expected/bill.txt" bill.txt "the bill of materials"
    for name in boost:'Boost Software License' cli11:'Redistribution and use' gcc-runtime:'Runtime Library Exception' \
        gpl-3:'GNU GENERAL PUBLIC LICENSE' mingw-w64-runtime:winpthreads nlohmann-json:MIT; do
        grep --quiet --ignore-case "${name#*:}" "licenses/${name%%:*}.txt" || fail "the licence of ${name%%:*}"
    done
}

run_tests
