#!/bin/bash
# road_test SOURCES BUILD: what somebody does first who has the packages and nothing else: unpacks the archive, asks,
# runs a program and looks at the results; and takes the packages of NuGet into a program.

source "$(dirname "$0")/report.sh"

# A path as Windows programs see it.
windows() { printf 'Z:%s' "${1//\//\\}"; }

# in_runtime MAJOR COMMAND...: without what this shell may have set for programs of its own.
in_runtime() {
    env --unset DOTNET_STARTUP_HOOKS DOTNET_ROOT="$(windows "$CORVANE_DOTNET_ROOTS/$1")" "$CORVANE_WINE" "${@:2}"
}

# step EXIT_CODE WORD...: a command of the tool, as it is typed, with its output. It has to end so.
step() {
    local expected=$1 status=0
    shift
    printf '\n> corvane %s\n' "$*"
    in_runtime "$runtime" corvane.exe "$@" 2>&1 || status=$?
    ((status == expected)) || fail "corvane $*: ended with $status, not with $expected"
}

# What differs from run to run: folders, numbers of processes, times. A time keeps its place, a count its value.
steady() {
    tr -d '\r' | sed -E \
        -e "s|Z:[^ ]*\\\\road\\\\|FOLDER\\\\|g; s|${version//./[.]}|VERSION|g" \
        -e 's/\b[0-9]+\.[0-9]+ ?(ms|us|s)\b/TIME \1/g' \
        -e 's/^( *[0-9]+ +[0-9]+) +[0-9.,]+ +[0-9.,]+( +[0-9.,]+)* +/\1 TIMES /'
}

test_FromTheArchiveToTheFlameGraph() {
    local runtime=10 name
    # In a folder with nothing else, whose name has a blank, as on Windows.
    mkdir -p "road/My Tools" road/program
    cp -r "$build/managed/newcomer/." road/program
    cd "road/My Tools"
    unzip -q "$packages/Corvane-$version-win-x64.zip"
    {
        step 0 --version
        step 111 check '..\program\newcomer.exe'
        step 0 run -- '..\program\newcomer.exe'
        step 0 run --tree --values all --method 'Newcomer.Cart.*' -- '..\program\newcomer.exe'
        step 1 run --method 'Newcomer.Cart.*' --trace trace.json --flame flame.svg --speedscope stacks.json -- \
            '..\program\newcomer.exe' argument
        step 0 status
    } >../steps.txt
    steady <../steps.txt >../steady.txt
    same "$tests/expected/road.txt" ../steady.txt "the road"

    # The trace is JSON whose spans are those of the calls.
    grep -o '"name":"[A-Z][^"]*"' trace.json | grep 'Program\|Cart' | sort | uniq -c >../spans.txt
    same "$tests/expected/road-spans.txt" ../spans.txt "the spans of the trace"
    # The picture has the functions one below the other, the innermost with most of the samples.
    for name in Newcomer.Program.Main Newcomer.Cart.Add Newcomer.Cart.Weigh; do
        grep --quiet "$name" flame.svg || fail "the flame graph lacks $name"
    done
    [[ $(head -c 5 flame.svg) == '<?xml' || $(head -c 4 flame.svg) == '<svg' ]]
    echo 'foreach(name trace.json stacks.json)
        file(READ ${name} text)
        string(JSON length LENGTH "${text}")
    endforeach()' >../read.cmake
    cmake -P ../read.cmake
}

# consume RUNTIME: a program that was published with the packages.
consume() {
    local runtime=$1
    cd "$folders/consumer/published"
    in_runtime "$runtime" consumer.exe 2>&1 | tr -d '\r' >"plain-$runtime.txt" || true
    grep --quiet 'is not in this process' "plain-$runtime.txt" || fail "without the profiler: $(<"plain-$runtime.txt")"
    { step 0 run --tree --values all -- consumer.exe; } >"run-$runtime.txt"
    steady <"run-$runtime.txt" >"steady-$runtime.txt"
    same "$tests/expected/consumer.txt" "steady-$runtime.txt" "the program with the packages, in .NET $runtime"
}

test_PackagesAreUsedByAProgram() {
    local name
    mkdir "$folders/consumer"
    cp "$tests"/consumer/* "$sources"/{Directory.Build.props,version.txt} "$folders/consumer"
    # The packages of this build and no older ones; what else a project needs was fetched before.
    dotnet publish "$folders/consumer/consumer.csproj" --configuration Release --nologo --verbosity quiet \
        --output "$folders/consumer/published" --source "$packages" -nodeReuse:false -p:UseSharedCompilation=false \
        -p:RestorePackagesPath="$folders/consumer/packages" -p:RestoreFallbackFolders="$NUGET_PACKAGES"
    for name in CorvaneProfiler.dll corvane.exe kite.managed.dll; do
        [[ -e $folders/consumer/published/$name ]] || fail "dotnet publish did not copy $name"
    done
    cmp "$folders/consumer/published/kite.managed.dll" "$build/managed/kite/kite.managed.dll"
    (consume 8)
    (consume 10)
}

# The other build, for a program of .NET Standard, is compiled with.
test_PackageHasTheBuildForTheFramework() {
    mkdir "$folders/standard"
    cp "$sources"/{Directory.Build.props,version.txt} "$folders/standard"
    sed 's|<OutputType>Exe</OutputType>|<TargetFramework>netstandard2.0</TargetFramework><RuntimeIdentifier />|' \
        "$tests/consumer/consumer.csproj" >"$folders/standard/standard.csproj"
    echo 'public static class Kitchen { [Corvane.Instrumentation.Trace] public static int Brew() => 1; }' \
        >"$folders/standard/Kitchen.cs"
    dotnet build "$folders/standard/standard.csproj" --configuration Release --nologo --verbosity quiet \
        --output "$folders/standard/built" --source "$packages" -nodeReuse:false -p:UseSharedCompilation=false \
        -p:RestorePackagesPath="$folders/standard/packages" -p:RestoreFallbackFolders="$NUGET_PACKAGES" \
        -p:CopyLocalLockFileAssemblies=true
    cmp "$folders/standard/built/kite.managed.dll" "$build/managed/kite_framework/kite.managed.dll"
}

run_tests
