#!/bin/sh
# leftOut.sh prints what is not tested under Wine, from the files wine.txt of the test folders.
set -eu
cd "$(dirname "$0")"
for list in wine.txt */wine.txt; do
    [ "$list" != conformance/wine.txt ] || continue
    awk -v folder="${list%wine.txt}" '
        /^# / { print "    " substr($0, 3); next }
        !/^$/ { print "        " folder $0 }
    ' "$list"
done
