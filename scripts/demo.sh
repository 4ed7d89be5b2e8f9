#!/usr/bin/env bash
# Runs the link against an emulated diskpack board: boardsim publishes the
# board in a private device directory, the demo finds and opens it, prints its
# identity line and the events the board sends, and closes it.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=build/bin

dir=$(mktemp -d /tmp/avrtest-demo-XXXXXX)
fifo="$dir/control"
mkfifo "$fifo"
cleanup() {
  exec 3>&- 2>/dev/null || true
  [[ -n "${sim:-}" ]] && wait "$sim" 2>/dev/null || true
  rm -rf "$dir"
}
trap cleanup EXIT

"$bin/boardsim" --dir "$dir" --board d --id 0 --version "V1.00" <"$fifo" >"$dir/sim.out" &
sim=$!
exec 3>"$fifo"
for _ in $(seq 100); do grep -q '^ready' "$dir/sim.out" 2>/dev/null && break; sleep 0.1; done

echo "Emulated diskpack board published in $dir"
AVRTEST_DEV_DIR="$dir" "$bin/linkdemo" "Diskpack board" 4 &
demo=$!
sleep 1.5
echo "event 0 i1" >&3
sleep 0.3
echo "event 0 w1" >&3
wait "$demo"
echo "quit" >&3
