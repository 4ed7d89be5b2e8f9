#!/usr/bin/env bash
# Installs the build into a temporary prefix and runs the tools from there, so
# a missing program, man page or a program that only runs from the build tree
# shows up before a bench machine gets the package.
set -euo pipefail
build=$1
prefix=$(mktemp -d /tmp/avrtest-install-XXXXXX)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null

fail() { echo "FAIL: $*" >&2; exit 1; }
for tool in avrtest avrflash boardsim docksim; do
  [[ -x "$prefix/bin/$tool" ]] || fail "$tool not installed"
  [[ -f "$prefix/share/man/man1/$tool.1" ]] || fail "$tool.1 not installed"
done

# An unknown board type, and a dock that is not there (no emulator named).
out=$(env -u AVRTEST_DOCKSIM "$prefix/bin/avrtest" z </dev/null 2>/dev/null) && status=0 || status=$?
[[ $status -eq 255 && "$out" == *"Unknown board type!"* ]] || fail "avrtest z: status $status, printed: $out"
out=$(env -u AVRTEST_DOCKSIM "$prefix/bin/avrtest" s 0 c </dev/null 2>/dev/null) && status=0 || status=$?
[[ $status -eq 255 && "$out" == *"Hardware Test Utility"*"Failed to find USB 3.0 Dock board id 0!"* ]] ||
  fail "avrtest s 0 c: status $status, printed: $out"
"$prefix/bin/docksim" --help >/dev/null || fail "docksim --help"
echo "installed tools run from $prefix"
