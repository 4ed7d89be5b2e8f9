#!/usr/bin/env bash
# Runs the console against an emulated diskpack board: boardsim publishes the
# board in a private device directory, avrtest finds it there, and a scripted
# technician presses ?, a few menu keys and x on avrtest's terminal while the
# board sends a temperature report and a button press. Needs no keyboard and
# ends by itself.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=${BIN_DIR:-build/bin}

dir=$(mktemp -d /tmp/avrtest-demo-XXXXXX)
fifo="$dir.control"
mkfifo "$fifo"
cleanup() {
  exec 3>&- 2>/dev/null || true
  if [[ -n "${sim:-}" ]]; then
    kill "$sim" 2>/dev/null || true
    wait "$sim" 2>/dev/null || true
  fi
  rm -rf "$dir" "$fifo" "$dir.sim"
}
trap cleanup EXIT

"$bin/boardsim" --dir "$dir" --board d --id 0 --version "V1.00" <"$fifo" >"$dir.sim" 2>&1 &
sim=$!
exec 3>"$fifo"
for _ in $(seq 100); do grep -q '^ready' "$dir.sim" 2>/dev/null && break; sleep 0.1; done
grep -q '^ready' "$dir.sim" || { echo "boardsim did not start:"; cat "$dir.sim"; exit 1; }

echo "== Emulated diskpack board published in $dir"
echo "== AVRTEST_DEV_DIR=$dir $bin/avrtest d"
echo

steps=(
  "wait:Type ? for help"
  "key:?" "wait:x exit"
  "key:O" "wait:Operating hours"
  "key:V" "wait:Battery Voltage"
  "key:U" "wait:Guid"
  "key:L" "wait:flash): " "line:0 3 0 0" "raw"
  "key:T" "wait:enable: " "line:1" "raw"
  "sim:temp 0 31" "wait:Temperature: 31 deg"
  "sim:button 0 41" "wait:Button event: 41"
  "key:W" "wait:text): " "line:2 Bay two" "raw"
  "key:R" "wait:(page): " "line:2" "wait:Bay two"
  "key:M" "wait:Temperatures"
  "key:Y" "wait:Protected"
  "key:Q" "wait:pages: " "line:99" "wait:Failed"
  "key:x"
)
script=$(IFS=';'; echo "${steps[*]}")
status=0
AVRTEST_DEV_DIR="$dir" python3 scripts/console_session.py --control "$fifo" --pause 0.4 \
  "$script" -- "$bin/avrtest" d || status=$?

echo
echo "== avrtest exited with status $status; stopping boardsim"
echo "quit" >&3
[[ $status -ne 0 ]] || scripts/dock_demo.sh || status=$?
exit "$status"
