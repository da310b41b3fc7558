#!/usr/bin/env bash
# Runs one golden case of the ryn tool and compares its standard output, standard error and exit
# status with the expected ones.
#
#   run_case.sh <ryn executable> <case directory>
#
# A case directory holds `args` (the arguments, written as for bash), optionally `stdin` (fed to
# the tool; otherwise it reads nothing) and `filter` (a sed script applied to both outputs before
# they are compared, for parts that change from build to build), and the expected `stdout`,
# `stderr` and `status`; the line numbers of error trace frames are compared as "LINE". The tool
# runs in tests/cli/data, so that cases name their input files by relative paths. With
# RYN_UPDATE_GOLDEN=1 the expected files are rewritten from the actual run.
set -uo pipefail

ryn=$1
case_dir=$2
data_dir="$(cd "$(dirname "$0")" && pwd)/data"
name=$(basename "$case_dir")

[ -f "$case_dir/args" ] || { echo "$name: no args file"; exit 1; }
args=$(<"$case_dir/args")
stdin=/dev/null
[ -f "$case_dir/stdin" ] && stdin="$case_dir/stdin"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

eval "set -- $args"
# Uploads write this fixed date into their header (2026-01-01 00:00:00 UTC), so that a backup's
# expected output does not change from run to run.
export SOURCE_DATE_EPOCH=1767225600
(cd "$data_dir" && "$ryn" "$@") <"$stdin" >"$work/stdout" 2>"$work/stderr"
echo $? >"$work/status"

# The line numbers of trace frames belong to the library's sources, not to the tool: they are
# replaced by "LINE" so that an edit of the library does not break the tool's cases.
for f in stdout stderr; do
    sed -E -e 's/\b(tra[a-z0-9]+|vok[a-z0-9]*|sup[a-z0-9]*):[0-9]+ /\1:LINE /g' \
        -e 's/("file":"[a-z0-9]+","line":)[0-9]+/\1"LINE"/g' "$work/$f" >"$work/$f.norm"
    mv "$work/$f.norm" "$work/$f"
    if [ -f "$case_dir/filter" ]; then
        sed -f "$case_dir/filter" "$work/$f" >"$work/$f.filtered" && mv "$work/$f.filtered" "$work/$f"
    fi
done

if [ "${RYN_UPDATE_GOLDEN:-0}" = 1 ]; then
    cp "$work/stdout" "$work/stderr" "$work/status" "$case_dir/"
    echo "$name: expected output rewritten"
    exit 0
fi

failed=0
for f in status stdout stderr; do
    if ! diff -u --label "expected $f" --label "actual $f" "$case_dir/$f" "$work/$f"; then
        failed=1
    fi
done
[ $failed -eq 0 ] && echo "$name: ok"
exit $failed
