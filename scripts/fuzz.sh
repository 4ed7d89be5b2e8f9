#!/usr/bin/env bash
# Runs every fuzz target of build-fuzz for SECONDS each, starting from its seed
# corpus, and prints one line of figures per target.
#
#   scripts/fuzz.sh SECONDS [keep]
#
# Inputs the fuzzer finds go to a scratch corpus, never into the source tree;
# with "keep" they stay in build-fuzz/corpus/<target> for the next run.
# A crashing input is written to build-fuzz/crashes/ and fails the run.
set -uo pipefail

seconds=${1:?usage: scripts/fuzz.sh SECONDS [keep]}
keep=${2:-}
bin=build-fuzz/bin
seeds=tests/fuzz/corpus
crashes=build-fuzz/crashes
mkdir -p "$crashes"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

failed=()
printf '%-18s %10s %8s %6s %6s %6s\n' target runs exec/s cov ft corpus
for seedDir in "$seeds"/*/; do
  name=$(basename "$seedDir")
  fuzzer="$bin/fuzz_$name"
  [[ -x "$fuzzer" ]] || { echo "missing $fuzzer (build it with make build-fuzz)" >&2; failed+=("$name"); continue; }
  work="$scratch/$name"
  [[ -n "$keep" ]] && work="build-fuzz/corpus/$name"
  mkdir -p "$work"
  log="$scratch/$name.log"
  "$fuzzer" "$work" "$seedDir" -max_total_time="$seconds" -print_final_stats=1 -timeout=20 -rss_limit_mb=4096 \
    -artifact_prefix="$crashes/$name-" </dev/null >"$log" 2>&1
  status=$?
  done=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -1)
  runs=$(sed -n 's/^stat::number_of_executed_units: //p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: //p' "$log")
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$done")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$done")
  corp=$(sed -n 's/.* corp: \([0-9]*\).*/\1/p' <<<"$done")
  printf '%-18s %10s %8s %6s %6s %6s\n' "$name" "${runs:--}" "${rate:--}" "${cov:--}" "${ft:--}" "${corp:--}"
  if [[ $status -ne 0 ]]; then
    failed+=("$name")
    echo "--- $name failed (status $status); its log ends:" >&2
    tail -40 "$log" >&2
  fi
done

if [[ ${#failed[@]} -gt 0 ]]; then
  echo "Fuzzing found problems in: ${failed[*]} (inputs in $crashes/)" >&2
  exit 1
fi
