#!/bin/sh
# withoutLeftOut.sh [--left-out] LIST PROGRAM [ARGUMENT...]
#
# Runs a test program on another machine or system, without the tests that LIST names. LIST may be missing. Each test has a
# line of its own, below the reason:
#
#     # why the test does not pass there
#     Suite.Test
#     source.cpp        a whole source, which is not built
#
# A line without a reason, or one that names no test, is an error. With --left-out, runs the tests of the list, each
# alone, and fails if one of them passes.
set -eu
mode=all
[ "$1" != --left-out ] || { mode=left-out; shift; }
list=$1
shift
die() { echo "withoutLeftOut: $list: $*" >&2; exit 1; }

rows=
if [ -e "$list" ]; then
    rows=$(awk '
        /^# / { if (!inReason) reason = ""; reason = reason $0; inReason = 1; next }
        { inReason = 0 }
        /^$/ { reason = ""; next }
        reason == "" { print "no reason: " $0 >"/dev/stderr"; exit 1 }
        $0 in seen { print "twice: " $0 >"/dev/stderr"; exit 1 }
        { seen[$0] = 1 }
        !/\.cpp$/ { print }
    ' "$list") || die "cannot be used"
fi

if [ -n "$rows" ]; then
    tests=$("$@" --gtest_list_tests | tr -d '\r' | awk '
        { sub(/ *#.*/, "") }
        /^[^ ]/ { suite = $0; next }
        { sub(/^ */, ""); print suite $0 }')
    for row in $rows; do
        grep -qxF "$row" <<<"$tests" || die "there is no test $row"
    done
fi

if [ "$mode" = left-out ]; then
    passed=
    for row in $rows; do
        if timeout -k 5 30 "$@" --gtest_brief=1 --gtest_filter="$row"; then
            passed="$passed $row"
        fi
    done
    [ -z "$passed" ] || die "these pass:$passed"
    exit 0
fi

filter=$(echo "$rows" | paste -sd: -)
exec "$@" ${filter:+"--gtest_filter=-$filter"}
