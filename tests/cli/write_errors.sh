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
check info
check send K1.0
check backup --axes 0 --types KF
check backup
check restore restore_ok.par
check check restore_ok.par
check diff diff_a.par diff_b.par
check watch M7 --count 1
# A backup written with -o onto a full device fails as loudly, and names the file.
err=$("$ryn" backup -o /dev/full 2>&1)
status=$?
if [ $status -ne 4 ] || ! grep -q "cannot write '/dev/full'.*the backup is incomplete" <<<"$err"; then
    echo "ryn backup -o /dev/full: status $status, stderr: $err"
    failed=1
fi
[ $failed -eq 0 ] && echo "write errors: ok"
exit $failed
