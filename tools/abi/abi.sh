#!/usr/bin/env bash
# Compares the binary interfaces of both libraries with those of the last release, which are kept here.
#
#     abi.sh compare BUILD    fails if a program that was built with the last release would break, and the SONAME is the
#                             same
#     abi.sh renew BUILD      keeps the interfaces of this build
#
# BUILD is a build folder with shared libraries, debug information and no optimiser.
set -euo pipefail
kept=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
action=$1
build=$2
work=$build/abi

fail() { printf 'abi: %s\n' "$*" >&2; exit 1; }

[ "$(uname -m)" = x86_64 ] || fail "the kept descriptions are for x86-64"

rm -rf "$work"
mkdir -p "$work"
# Types are public if the headers that are installed have them.
cmake --install "$build" --prefix "$work/installed" --component development >/dev/null

# describe LIBRARY writes the interface of a library into the work folder.
describe() {
    local library
    library=$(realpath "$build/src/$1.so")
    readelf -S "$library" | grep '\.debug_info' >/dev/null || fail "$library has no debug information"
    abidw --suppressions "$kept/outside.ini" --headers-dir "$work/installed/include" --drop-private-types \
        --exported-interfaces-only --no-parameter-names --no-elf-needed --no-corpus-path --no-comp-dir-path \
        --no-show-locs --out-file "$work/$1.abi" "$library"
}

soname() { sed -n "1s/.* soname='\([^']*\)'.*/\1/p" "$1"; }

# isBroken OLD NEW prints what has changed and returns 0, unless all that OLD has is in NEW as it was.
isBroken() {
    local status=0
    abidiff --no-added-syms "$1" "$2" || status=$?
    [ $((status & 3)) -eq 0 ] || fail "abidiff cannot compare $1 with $2"
    [ "$status" -ne 0 ]
}

compare() {
    xz -dc "$kept/$1.abi.xz" >"$work/$1.old.abi"
    describe "$1"
    local old new
    old=$(soname "$work/$1.old.abi")
    new=$(soname "$work/$1.abi")
    # See that the comparison can find something: a class that has grown.
    sed "0,/\(class-decl name='[A-Z][^']*' size-in-bits='\)/s//\11/" "$work/$1.abi" >"$work/$1.broken.abi"
    isBroken "$work/$1.abi" "$work/$1.broken.abi" >/dev/null || fail "a planted break of $1 was not found"
    if [ "$old" != "$new" ]; then
        echo "$new is a new interface, after $old"
    elif isBroken "$work/$1.old.abi" "$work/$1.abi"; then
        fail "programs that use the $old of the last release would break. Take the change back, or raise ZV_ABI in CMakeLists.txt"
    fi
}

for library in libzvbase libzvresmgt; do
    case $action in
    compare) compare "$library" ;;
    renew)
        describe "$library"
        xz -9 -c "$work/$library.abi" >"$kept/$library.abi.xz"
        ;;
    *) fail "unknown action: $action" ;;
    esac
done
