#!/bin/sh
# Runs a program under kivo-dev once for each fault, all at the same time, and prints the output of each that fails.
# usage: side-by-side.sh FAULT... -- PROGRAM [ARGUMENT...]
# REPORTS names the folder for the reports, which a browser's network panel opens; otherwise they are deleted.

set -eu
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
reports="${REPORTS:-$scratch}"
mkdir -p "$reports"

count=0
while [ "${1:?usage: side-by-side.sh FAULT... -- PROGRAM [ARGUMENT...]}" != -- ]; do
    count=$((count + 1))
    echo "$1" >"$scratch/$count.fault"
    shift
done
shift

for number in $(seq "$count"); do
    (
        status=0
        kivo-dev run --fresh --fault "$(cat "$scratch/$number.fault")" --report "$reports/$number.har" \
            -- "$@" >"$scratch/$number.output" 2>&1 </dev/null || status=$?
        echo "$status" >"$scratch/$number.status"
    ) &
done
wait

failed=0
for number in $(seq "$count"); do
    status="$(cat "$scratch/$number.status")"
    echo "status $status  $(cat "$scratch/$number.fault")"
    [ "$status" -eq 0 ] && continue
    failed=$((failed + 1))
    sed 's/^/    /' "$scratch/$number.output"
done
echo "$((count - failed)) passed, $failed failed"
[ "$failed" -eq 0 ]
