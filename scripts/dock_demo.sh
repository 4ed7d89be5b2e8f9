#!/usr/bin/env bash
# Runs the dock console against an emulated USB 3.0 transfer dock: docksim
# listens on a private socket, avrtest reaches it through AVRTEST_DOCKSIM, and
# a scripted technician reads a rail, watches a temperature report arrive and
# runs the autotest, whose JSON record goes to a private directory shown at the
# end. Needs no keyboard and ends by itself.
set -euo pipefail
cd "$(dirname "$0")/.."
bin=${BIN_DIR:-build/bin}

dir=$(mktemp -d /tmp/avrtest-dockdemo-XXXXXX)
fifo="$dir/control"
mkfifo "$fifo"
mkdir "$dir/records"
cleanup() {
  exec 3>&- 2>/dev/null || true
  if [[ -n "${sim:-}" ]]; then
    kill "$sim" 2>/dev/null || true
    wait "$sim" 2>/dev/null || true
  fi
  rm -rf "$dir"
}
trap cleanup EXIT

"$bin/docksim" --socket "$dir/docksim.sock" --dock s <"$fifo" >"$dir/sim.out" 2>&1 &
sim=$!
exec 3>"$fifo"
for _ in $(seq 100); do grep -q '^ready' "$dir/sim.out" 2>/dev/null && break; sleep 0.1; done
grep -q '^ready' "$dir/sim.out" || { echo "docksim did not start:"; cat "$dir/sim.out"; exit 1; }

echo
echo "== Emulated USB 3.0 transfer dock listening on $dir/docksim.sock"
echo "== AVRTEST_DOCKSIM=$dir/docksim.sock AVRTEST_RECORD_DIR=$dir/records $bin/avrtest s"
echo

steps=(
  "wait:Enter command (? for help)"
  "key:?" "wait:x exit"
  "key:G" "wait:disk 3V3=1): " "line:0" "wait:mV"
  "sim:diskpack-temp 0 36" "wait:Diskpack temperature: 36"
  "key:U" "wait:Guid"
  "key:!" "wait:AUTOTEST"
  "key:x"
)
script=$(IFS=';'; echo "${steps[*]}")
status=0
AVRTEST_DOCKSIM="$dir/docksim.sock" AVRTEST_RECORD_DIR="$dir/records" \
  python3 scripts/console_session.py --control "$fifo" --pause 0.3 "$script" -- "$bin/avrtest" s || status=$?

echo
echo "== avrtest exited with status $status; the autotest record:"
for record in "$dir"/records/*.json; do
  [[ -e "$record" ]] || { echo "(no record written)"; status=1; break; }
  echo "== $record"
  python3 -m json.tool "$record" | sed -n 1,40p
  echo "   ..."
done
echo "quit" >&3
exit "$status"
