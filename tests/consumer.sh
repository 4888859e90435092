#!/usr/bin/env bash
# Does what docs/start.md tells a newcomer, with the commands as they stand there: builds the README's
# program against what is installed, by CMake and by hand, and runs it both times, and starts the
# installed programs; then the same with the unpacked Debian packages.
#
#     consumer.sh BUILD_DIRECTORY
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# The code block of docs/start.md that is in language $1 and has the text $2 in it.
shown() {
    awk -v language="$1" -v text="$2" '
        /^```/ { if (inside && index(block, text)) { printf "%s", block; found = 1; exit }
                 inside = $0 == "```" language && !inside; block = ""; next }
        inside { block = block $0 "\n" }
        END { exit !found }' "$top/docs/start.md" || fail "docs/start.md does not show $2"
}

expect_note() {
    local printed
    printed=$("$top/dev" server "$1")
    [[ $printed == "It's a \"first\" note" ]] || fail "$1 printed: $printed"
}

# With $1 as the home directory: what is installed is in its directory kestro.
follow() {
    mkdir "$1/program"
    cd "$1/program"
    cp "$top/examples/first_program.cpp" first.cpp
    shown cmake find_package >CMakeLists.txt
    HOME=$1 bash -e <<<"$(shown sh 'cmake -B')" >log 2>&1 || fail "$(<log)"
    expect_note "$PWD/build/first"
    HOME=$1 bash -e <<<"$(shown sh pkg-config)" >log 2>&1 || fail "$(<log)"
    expect_note "$PWD/first"
    for program in kestro-doctor kestro-record; do
        "$1/kestro/bin/$program" --help >log 2>&1 || fail "$(<log)"
    done
    cd "$top"
}

mkdir "$work/home" "$work/other_home"
cmake --install "$build" --prefix "$work/installed" >"$work/log"
mv "$work/installed" "$work/home/kestro" # what is installed may be moved
follow "$work/home"

(cd "$build" && cpack -B "$work/packages" >"$work/log") || fail "$(<"$work/log")"
for package in "$work"/packages/*.deb; do
    dpkg-deb -x "$package" "$work/unpacked"
done
mv "$work/unpacked/usr" "$work/other_home/kestro"
follow "$work/other_home"

# What the packages bring along: nothing that their users do not need, and nothing missing.
depends() { dpkg-deb -f "$(echo "$work"/packages/"$1"_*.deb)" Depends | sed 's/ ([^)]*)//g'; }
[[ $(depends libkestrodb0) == 'libc6, libgcc-s1, libmariadb3, libstdc++6' ]] ||
    fail "libkestrodb0 depends on: $(depends libkestrodb0)"
[[ $(depends libkestrodb-dev) == libkestrodb0 ]] ||
    fail "libkestrodb-dev depends on: $(depends libkestrodb-dev)"

# The library itself stands on the standard library and the platform layer alone.
needed=$(objdump -p "$work"/other_home/kestro/lib/*/libkestrodb.so |
    awk '$1 == "NEEDED" { print $2 }' | sort | tr '\n' ' ')
[[ $needed =~ ^'libc.so.6 libgcc_s.so.1 libkestroplatform.so.0 '(libm.so.6 )?'libstdc++.so.6 '$ ]] ||
    fail "libkestrodb.so needs: $needed"
