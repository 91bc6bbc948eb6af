# Tests that are shell functions, for what the packages need from this machine's own tools; sourced by the tests.
# Each function test_NAME runs by itself, in a folder that is its own and empty at first; the first command that fails
# fails it. A report like GoogleTest's says what became of each.

set -uo pipefail
export LC_ALL=C

suite=$(basename "$0" .sh)
sources=$1 build=$2
tests=$sources/tests/package
version=$(<"$sources/version.txt")
packages=$build/packages
folders=$build/$suite

fail() {
    printf '%s\n' "$@" >&2
    return 1
}

# same EXPECTED FOUND TEXT: two files, compared; with CORVANE_REBASE=1 the expected one is written again.
same() {
    [[ ${CORVANE_REBASE-} != 1 ]] || cp "$2" "$1"
    diff --unified "$1" "$2" >&2 || fail "$3: not what is expected"
}

run_tests() {
    local name report=$build/reports/$suite.xml output outcome=0
    mkdir -p "$build/reports"
    rm -rf --one-file-system "$folders"
    {
        echo '<testsuites>'
        while read -r name; do
            mkdir -p "$folders/$name"
            output=$folders/$name.log
            echo "<testcase name=\"$name\" classname=\"$suite\" result=\"completed\">"
            # Not in a condition, where a shell goes on behind a command that fails.
            (set -e && cd "$folders/$name" && "test_$name") >"$output" 2>&1
            if (($? != 0)); then
                outcome=1
                echo "<failure message=\"see the output\"><![CDATA["
                sed 's/]]>/]] >/g' "$output"
                echo ']]></failure>'
                printf '%s\n' "FAILED: $suite.$name" >&2
                cat "$output" >&2
            fi
            echo '</testcase>'
        done < <(declare -F | sed -n 's/^declare -f test_//p')
        echo '</testsuites>'
    } >"$report"
    exit "$outcome"
}
