#!/bin/sh
# leftOut.sh MACHINE prints what is not tested there, from the files MACHINE.txt of the test folders.
set -eu
cd "$(dirname "$0")"
for list in "$1.txt" */"$1.txt"; do
    [ -e "$list" ] || continue
    [ "${list%/*}" != conformance ] || continue # has another form
    awk -v folder="${list%"$1.txt"}" '
        /^# / { print "    " substr($0, 3); next }
        !/^$/ { print "        " folder $0 }
    ' "$list"
done
