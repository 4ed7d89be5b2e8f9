#!/usr/bin/env bash
# Prints the rows the benchmark programs left in FILE ("TABLE|figure|project|
# peer or limit|ratio|goal", one a line) as one aligned table, under a line
# naming the machine they ran on. `make bench` ends with it.
set -euo pipefail
file=${1:?usage: bench-table.sh FILE}

cpu=$(sed -n 's/^model name[[:space:]]*:[[:space:]]*//p' /proc/cpuinfo 2>/dev/null | head -n1)
echo "== Benchmarks on $(nproc) cores, ${cpu:-unknown CPU}, $(date -u '+%Y-%m-%d %H:%M UTC')"
if ! grep -q '^TABLE|' "$file" 2>/dev/null; then
  echo "(no figures: every benchmark failed)"
  exit 0
fi
grep '^TABLE|' "$file" | awk -F'|' '
  BEGIN { n = 1; split("figure|avrtest|peer or limit|ratio|goal", head, "|")
          for (c = 1; c <= 5; c++) { cell[1, c] = head[c]; width[c] = length(head[c]) } }
  { n++; for (c = 1; c <= 5; c++) { cell[n, c] = $(c + 1); if (length($(c + 1)) > width[c]) width[c] = length($(c + 1)) } }
  END {
    for (r = 1; r <= n; r++) {
      line = "| "
      for (c = 1; c <= 5; c++) line = line sprintf("%-" width[c] "s | ", cell[r, c])
      sub(/ $/, "", line); print line
      if (r == 1) {
        line = "|"
        for (c = 1; c <= 5; c++) { dash = ""; for (i = 0; i < width[c] + 2; i++) dash = dash "-"; line = line dash "|" }
        print line
      }
    }
  }'
