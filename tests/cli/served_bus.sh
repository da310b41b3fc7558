#!/usr/bin/env bash
# The online commands against a served bus (ryn sim serve), which keeps its drives across
# commands: a backup, a change, the change seen by diff, a restore, no difference left. The
# output is compared with served_bus.expected.
#
#   served_bus.sh <ryn executable>
set -uo pipefail
ryn=$1
expected="$(cd "$(dirname "$0")" && pwd)/served_bus.expected"
work=$(mktemp -d)
server=
cleanup() {
    [ -n "$server" ] && kill "$server" 2>/dev/null && wait "$server" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
cd "$work" || exit 1
export SOURCE_DATE_EPOCH=1767225600

"$ryn" sim serve --listen 127.0.0.1:0 >listen.txt 2>server.log &
server=$!
for _ in $(seq 100); do
    grep -q "^listening on" listen.txt 2>/dev/null && break
    sleep 0.1
done
port=$(sed -n 's/^listening on 127.0.0.1:\([0-9]*\)$/\1/p' listen.txt)
[ -n "$port" ] || { echo "the server did not start: $(cat server.log)"; exit 1; }
bus="tcp://127.0.0.1:$port"

run() {
    echo "\$ ryn $*" | sed "s|$bus|tcp://SERVED|g"
    "$ryn" "$@" 2>&1 | sed -E -e "s|$bus|tcp://SERVED|g" -e 's/in [0-9]+\.[0-9]+ s/in T s/'
    echo "[exit ${PIPESTATUS[0]}]"
}
{
    run info --bus "$bus"
    run backup --bus "$bus" -o before.par
    run send --bus "$bus" K12.0=2 'KF1.1=2.5F'
    run diff before.par "bus:$bus"
    run restore before.par --bus "$bus"
    run diff before.par "bus:$bus"
} >actual.txt

if [ "${RYN_UPDATE_GOLDEN:-0}" = 1 ]; then
    cp actual.txt "$expected"
    echo "served bus: expected output rewritten"
    exit 0
fi
diff -u --label expected --label actual "$expected" actual.txt && echo "served bus: ok"
