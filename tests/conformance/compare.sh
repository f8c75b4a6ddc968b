#!/bin/sh
# compare.sh EXPECTED EXCEPTIONS PROGRAM [ARGUMENT...]
#
# Runs the program and compares its lines with those that are expected. EXCEPTIONS may be empty, or the file of the
# lines in which this form of the services differs, each with its reason:
#
#     # why it is not followed
#     - the line as it is expected
#     + the line as it is here
#
# If an exception no longer differs, or its first line is not expected, the comparison fails.
set -eu
expected=$1
exceptions=${2:-/dev/null}
shift 2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

awk -v exceptions="$exceptions" '
    function refuse(text) { print "compare: " exceptions ": " text >"/dev/stderr"; bad = 1 }
    BEGIN {
        while ((getline line <exceptions) > 0) {
            text = substr(line, 3)
            if (line ~ /^# /) reason = text
            else if (line ~ /^- /) wanted = text
            else if (line ~ /^\+ /) {
                if (reason == "" || wanted == "" || wanted == text) refuse("no reason, or no difference: " text)
                here[wanted] = text
                wanted = ""
            } else if (line == "") reason = ""
            else refuse("not understood: " line)
        }
    }
    $0 in here { used[$0] = 1; print here[$0]; next }
    { print }
    END {
        for (line in here)
            if (!(line in used)) refuse("not expected anyway: " line)
        exit bad
    }
' "$expected" >"$folder/expected"

status=0
"$@" >"$folder/output" || status=$?
tr -d '\r' <"$folder/output" >"$folder/lines"
if ! diff -u "$folder/expected" "$folder/lines"; then
    echo "compare: the lines differ" >&2
    exit 1
fi
[ "$status" -eq 0 ] || { echo "compare: the program ends with $status" >&2; exit 1; }
echo "$(wc -l <"$folder/lines") lines agree"
