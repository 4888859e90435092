#!/usr/bin/env bash
# Does what docs/start.md tells a newcomer, with the commands as they are there: builds the README's
# program with what is installed, by CMake and by hand, runs both, and runs the installed programs.
#
#     consumer.sh --install BUILD_DIRECTORY LIBDIR    installs below a prefix; LIBDIR as in CMake
#     consumer.sh --packages DIRECTORY                unpacks the Debian packages
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# The code block of docs/start.md in language $1 that contains the text $2.
shown() {
    awk -v language="$1" -v text="$2" '
        /^```/ { if (inside && index(block, text)) { printf "%s", block; found = 1; exit }
                 inside = $0 == "```" language && !inside; block = ""; next }
        inside { block = block $0 "\n" }
        END { exit !found }' "$top/docs/start.md" || fail "docs/start.md does not show $2"
}

run_shown() { # with the directory that this installation has
    HOME=$work bash -e <<<"$(shown sh "$1" | sed "s|/lib/|/$libdir/|")" >log 2>&1 || fail "$(<log)"
}

expect_note() {
    local printed
    printed=$("$top/tools/private-server" "$1")
    [[ $printed == "It's a \"first\" note" ]] || fail "$1 printed: $printed"
}

case $1 in
--install)
    libdir=$3
    cmake --install "$2" --prefix "$work/installed" >"$work/log"
    mv "$work/installed" "$work/kestro" # an installation may be moved
    ;;
--packages)
    for package in "$2"/*.deb; do
        dpkg-deb -x "$package" "$work/unpacked"
    done
    mv "$work/unpacked/usr" "$work/kestro"
    libdir=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
    # Where they belong, the dynamic linker finds them by itself.
    export LD_LIBRARY_PATH=$work/kestro/$libdir
    depends() { dpkg-deb -f "$(echo "$2"/"$1"_*.deb)" Depends | sed 's/ ([^)]*)//g'; }
    while read -r name expected; do
        [[ $(depends "$name" "$2") == "$expected" ]] || fail "$name depends on: $(depends "$name" "$2")"
    done <<'END'
libkestrodb0 libc6, libgcc-s1, libmariadb3, libstdc++6
kestrodb-tools libkestrodb0, libc6, libgcc-s1, libstdc++6
libkestrodb-dev libkestrodb0
END
    for program in "$work"/kestro/bin/*; do
        for file in "man/man1/$(basename "$program").1.gz" "bash-completion/completions/$(basename "$program")"; do
            [[ -s $work/kestro/share/$file ]] || fail "kestrodb-tools has no $file"
        done
    done
    ;;
esac

mkdir "$work/program"
cd "$work/program"
cp "$top/examples/first_program.cpp" first.cpp
shown cmake find_package >CMakeLists.txt
run_shown CMAKE_PREFIX_PATH
expect_note "$PWD/build/first"
run_shown pkg-config
expect_note "$PWD/first"
for program in "$work"/kestro/bin/*; do
    "$program" --help >log 2>&1 || fail "$(<log)"
done

# libkestrodb itself needs the standard library and the platform layer alone.
needed=$(objdump -p "$work/kestro/$libdir/libkestrodb.so" |
    awk '$1 == "NEEDED" { print $2 }' | sort | tr '\n' ' ')
[[ $needed =~ ^'libc.so.6 libgcc_s.so.1 libkestroplatform.so.0 '(libm.so.6 )?'libstdc++.so.6 '$ ]] ||
    fail "libkestrodb.so needs: $needed"
