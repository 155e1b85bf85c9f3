#!/usr/bin/env bash
# Instructions executed per pixel by the fused renderer, counted under
# qemu-user: qemu logs every translated block with its instructions
# (-d in_asm) and every block it executes (-d exec, nochain so that each
# execution is logged), and the counts are summed. Rendering one frame more
# and taking the difference leaves exactly one frame's work (set-up, row
# tails and the per-block code included, start-up excluded). Timings under an
# emulator mean nothing; instruction counts are what it can measure.
#
#   scripts/count-instructions.sh [build-dir]
#
# The build's bin/render_instructions decides the architecture: arm64 counts
# the float kernels on NEON and SVE at 128, 256 and 512 bits and the
# fixed-point kernel on the 128-bit targets that have it (NEON, SVE2_128);
# x86-64 counts SSE4 and AVX2 (qemu 7.2 emulates AVX2 but not AVX-512).
# Prints one line per configuration.
set -euo pipefail

build=${1:-build/arm64}
probe=$build/bin/render_instructions
if [ ! -x "$probe" ]; then
  echo "no $probe (build the preset first)" >&2
  exit 1
fi

# Instructions executed by the probe with arguments `$@` under the emulator
# command `emulator`, start-up included.
count() {
  "${emulator[@]}" -d in_asm,exec,nochain "$probe" "$@" 2>&1 >/dev/null | awk '
    /^IN:/ { inBlock = 1; pc = ""; n = 0; next }
    inBlock && /^0x[0-9a-f]+:/ {
      if (pc == "") { pc = substr($1, 3, length($1) - 3); sub(/^0+/, "", pc) }
      ++n; next
    }
    inBlock { if (pc != "") size[pc] = n; inBlock = 0 }
    /^Trace/ {
      split($4, f, "/"); pc = f[2]; sub(/^0+/, "", pc)
      if (!(pc in size)) { print "untranslated block " pc > "/dev/stderr"; exit 1 }
      total += size[pc]
    }
    END { printf "%.0f\n", total }'
}

# One configuration: emulator command, target, kernel, chain.
measure() {
  local -a emulator=($1)
  local target=$2 kernel=$3 chain=$4
  local label one two
  label=$("${emulator[@]}" "$probe" 1 "$target" "$kernel" "$chain")
  one=$(count 1 "$target" "$kernel" "$chain")
  two=$(count 2 "$target" "$kernel" "$chain")
  read -r used path pixels <<<"$label"
  awk -v d=$((two - one)) -v p="$pixels" -v what="$used $path $chain" -v cpu="${emulator[*]}" \
    'BEGIN { printf "%-32s %7.2f instructions/pixel  (%s)\n", what, d / p, cpu }'
}

case $(readelf -h "$probe" | awk '/Machine:/ { print $2 }') in
  AArch64)
    for chain in lut lut+style; do
      measure "qemu-aarch64 -cpu max,sve=off" NEON float "$chain"
      measure "qemu-aarch64 -cpu max,sve=off" NEON fixed "$chain"
      measure "qemu-aarch64 -cpu max,sve-default-vector-length=16" SVE2_128 float "$chain"
      measure "qemu-aarch64 -cpu max,sve-default-vector-length=16" SVE2_128 fixed "$chain"
      measure "qemu-aarch64 -cpu max,sve-default-vector-length=32" SVE_256 float "$chain"
      measure "qemu-aarch64 -cpu max,sve-default-vector-length=64" SVE2 float "$chain"
    done
    ;;
  Advanced)  # "Advanced Micro Devices X86-64"
    for chain in lut lut+style; do
      measure "qemu-x86_64 -cpu max" SSE4 float "$chain"
      measure "qemu-x86_64 -cpu max" AVX2 float "$chain"
      measure "qemu-x86_64 -cpu max" AVX2 fixed "$chain"
    done
    ;;
  *)
    echo "unknown architecture of $probe" >&2
    exit 1
    ;;
esac
