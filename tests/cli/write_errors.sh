#!/usr/bin/env bash
# Runs the tool with its standard output on /dev/full: each run must fail with exit status 4 and
# say on standard error that the output could not be written.
#
#   write_errors.sh <ryn executable> <data directory>
set -uo pipefail
ryn=$1
cd "$2" || exit 1
[ -w /dev/full ] || { echo "no /dev/full here: skipped"; exit 0; }
failed=0
check() {
    local err status
    err=$("$ryn" "$@" 2>&1 >/dev/full)
    status=$?
    if [ $status -ne 4 ] || ! grep -q "cannot write standard output" <<<"$err"; then
        echo "ryn $*: status $status, stderr: $err"
        failed=1
    fi
}
check translate -f batch.txt
check translate --json -f batch.txt
check translate K12.0=2
check dict products
check dict registers
check version
check --help
[ $failed -eq 0 ] && echo "write errors: ok"
exit $failed
