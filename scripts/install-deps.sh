#!/usr/bin/env bash
# Installs the Debian packages the build, tests, demo and benchmarks need,
# only when some are missing (so repeated `make` runs stay offline).
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libhwy-dev libyuv-dev libjpeg-dev libpng-dev
  nlohmann-json3-dev libcli11-dev libopencolorio-dev libeigen3-dev
  ffmpeg libjpeg-turbo-progs
  clang libfuzzer-14-dev libclang-rt-14-dev
  chromium gcovr parallel
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
