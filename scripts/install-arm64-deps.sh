#!/usr/bin/env bash
# Installs what the arm64 build and its emulated test run need: Debian's
# aarch64 cross compiler, qemu-user, clang/lld (the phone-style plugin build)
# and the arm64 (multiarch) libraries the project links. Runs only the steps
# that are missing, so repeated `make test-arm64` runs stay offline.
set -euo pipefail
cd "$(dirname "$0")/.."

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive

host_packages=(g++-aarch64-linux-gnu qemu-user clang lld)
arm64_packages=(libc6:arm64 libstdc++6:arm64 libgtest-dev:arm64 libgmock-dev:arm64 libhwy-dev:arm64 libyuv-dev:arm64
                libjpeg-dev:arm64 libpng-dev:arm64 libopencolorio2.1:arm64)

missing=()
for p in "${host_packages[@]}" "${arm64_packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}" >&2
  if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    $sudo dpkg --add-architecture arm64
  fi
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# OpenColorIO's arm64 -dev package cannot sit beside the amd64 one (both own
# the same CMake config file), so its headers and pkg-config file are unpacked
# into the build tree instead; the library itself comes from the runtime
# package installed above.
deps=build/arm64-deps
if [ ! -f "$deps/.complete" ]; then
  rm -rf "$deps"
  mkdir -p "$deps/download"
  (cd "$deps/download" && apt-get download -qq libopencolorio-dev:arm64)
  dpkg-deb -x "$deps"/download/libopencolorio-dev_*_arm64.deb "$deps/root"
  lib="$deps/root/usr/lib/aarch64-linux-gnu"
  so=$(basename /usr/lib/aarch64-linux-gnu/libOpenColorIO.so.2.*)
  ln -sf "/usr/lib/aarch64-linux-gnu/$so" "$lib/libOpenColorIO.so"
  sed -i "s|^prefix=.*|prefix=$(pwd)/$deps/root/usr|" "$lib/pkgconfig/OpenColorIO.pc"
  touch "$deps/.complete"
fi
