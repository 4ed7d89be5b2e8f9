#!/usr/bin/env bash
# Makes sure the Debian packages the build needs are installed. As root it
# installs what is missing; otherwise it prints the command to run and fails.
set -euo pipefail

packages=(
  build-essential
  cmake
  pkg-config
  juce-modules-source-data   # JUCE 7 module sources only: juce_core and juce_events
  zlib1g-dev                 # crc32 for the XBoot2 requests
  libgtest-dev               # GoogleTest
  libsrecord-dev             # firmware image files (Intel HEX and others) for avrflash
  libboost-dev               # headers that the srecord headers include
  python3-serial             # the reference client of bench/exchange
  dpkg-dev                   # dpkg-shlibdeps: the package's runtime dependencies
  clang                      # the fuzz targets (make fuzz, make test-fuzz)
  libclang-rt-14-dev         # libFuzzer and clang's sanitizer runtimes
  llvm                       # llvm-symbolizer: readable stacks in fuzzer reports
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

[[ ${#missing[@]} -eq 0 ]] && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "Missing packages: ${missing[*]}" >&2
  echo "Install them with:  sudo apt-get install ${missing[*]}" >&2
  exit 1
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
