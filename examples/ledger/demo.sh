#!/usr/bin/env bash
# Shows the ledger as a service of its own process: demo.sh BUILD_DIR. Exits with 0 when everything
# came out as it should.
set -euo pipefail
export LC_ALL=C

readonly build=${1:?usage: demo.sh BUILD_DIR}
readonly example=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly requests=50000 sources=16
readonly each=$((requests / sources))
readonly balance=$((each * (each + 1) / 2))

dir=$(mktemp -d)
host=
cleanUp() {
    [[ -z $host ]] || kill -KILL "$host" 2>/dev/null || true
    rm -rf "$dir"
}
trap cleanUp EXIT

fail() {
    echo "demo: $1" >&2
    [[ ! -s $dir/log ]] || tail -n 20 "$dir/log" >&2
    exit 1
}

call() {
    "$build/bin/mirel-call" --channel "ipc://$dir/ledger" "$@"
}

echo "1. A host loads the ledger's library and serves it to other processes of this user."
mkfifo "$dir/output"
"$build/bin/mirel-host" --library "$build/examples/libledger.so" --creator createLedger \
    --interface Ledger --channel "ipc://$dir/ledger" >"$dir/output" 2>"$dir/log" &
host=$!
exec 3<"$dir/output"
IFS= read -r -t 20 serving <&3 && [[ $serving == serving* ]] || fail "the host does not serve"

echo "2. One caller sends requests of five sources, two notes and a timer event; each source gets"
echo "   its answers in its order, whatever its priorities, and failures are answers, too:"
status=0
call --input "$example/requests.jsonl" >"$dir/answers" || status=$?
((status == 1)) || fail "mirel-call exited with $status instead of 1, which tells of the failures"
sort -s -t: -k1,1 "$dir/answers" | sed 's/^/     /'
diff <(sort -s -t: -k1,1 "$example/expected.txt") <(sort -s -t: -k1,1 "$dir/answers") >&2 ||
    fail "these are not the expected answers"

echo "3. $sources sources post $requests numbers at changing priorities; the ledger takes an"
echo "   account's numbers only one by one, so a request lost, doubled or overtaken would fail:"
call --load "$requests" --sources "$sources" --source account --priorities 0,1,2 \
    --interface Ledger --protocol text --data 'post {source} {n}' >"$dir/load" ||
    { cat "$dir/load" >&2; fail "the load did not go through"; }
sed 's/^/     /' "$dir/load"
echo "   A source's requests keep their order at any priority, so one of priority 2 also waits for"
echo "   those of priority 0 that its source sent before it. That is why these lines are alike."

echo "4. Every account must hold the sum of 1 to $each, which is $balance."
for ((i = 1; i <= sources; ++i)); do
    echo "{\"kind\": \"request\", \"source\": \"account-$i\", \"interface\": \"Ledger\"," \
        "\"protocol\": \"text\", \"data\": \"statement account-$i\"}"
done >"$dir/statements.jsonl"
call --input "$dir/statements.jsonl" >"$dir/balances" || fail "the statements failed"
for ((i = 1; i <= sources; ++i)); do
    grep -qx "account-$i: account-$i $balance" "$dir/balances" || fail "account-$i is wrong"
done
echo "     all $sources are right"

echo "5. SIGTERM stops the host, which says what it has done:"
kill -TERM "$host"
status=0
wait "$host" || status=$?
host=
((status == 0)) || fail "the host exited with $status"
sed 's/^/     /' <&3
