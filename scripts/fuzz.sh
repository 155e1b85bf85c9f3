#!/usr/bin/env bash
# Builds the fuzz preset and runs every libFuzzer target, two at a time.
#
#   scripts/fuzz.sh smoke [SECONDS]  each target SECONDS (default 30) from the
#                                    seeds, in a throw-away corpus, with the
#                                    libFuzzer seed FUZZ_SEED (default 1) (CI)
#   scripts/fuzz.sh long [SECONDS]   each target SECONDS (default 600), growing
#                                    the kept corpus in fuzz/corpus/<target>/
#   scripts/fuzz.sh regress          replays fuzz/regressions/<target>/ inputs
#
# Crashes land in build/fuzz/artifacts/; logs in build/fuzz/logs/<target>.log;
# a summary line per target (runs, coverage, corpus) is printed at the end.
set -euo pipefail

mode=${1:-smoke}
case "$mode" in
  smoke) seconds=${2:-30} ;;
  long) seconds=${2:-600} ;;
  regress) seconds=0 ;;
  *)
    echo "usage: $0 smoke|long|regress [SECONDS]" >&2
    exit 2
    ;;
esac

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
build=build/fuzz
targets=(calib_loader calib_reader calib_agreement cube session_line dump_name effect_script metadata)
parallel=${FUZZ_PARALLEL:-2}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "${JOBS:-2}"

mkdir -p "$build/logs" "$build/artifacts"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/fuzz/third_party_leaks.supp:print_suppressions=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

if [ "$mode" = regress ]; then
  status=0
  for t in "${targets[@]}"; do
    dir=fuzz/regressions/$t
    [ -d "$dir" ] && [ -n "$(ls -A "$dir")" ] || continue
    "$build/bin/fuzz_$t" "$dir"/* >"$build/logs/$t-regress.log" 2>&1 || {
      echo "fuzz_$t: a regression input fails again, see $build/logs/$t-regress.log" >&2
      status=1
    }
  done
  exit $status
fi

run_one() {
  local t=$1 corpus
  if [ "$mode" = long ]; then
    corpus=fuzz/corpus/$t
  else
    corpus=$build/smoke-corpus/$t
    rm -rf "$corpus"
  fi
  mkdir -p "$corpus"
  local dict=()
  [ -f "fuzz/dicts/$t.dict" ] && dict=(-dict="fuzz/dicts/$t.dict")
  # The smoke run is a check, not a search: a fixed seed makes it walk the
  # same inputs on every machine, so a slower machine walks a prefix of what
  # a longer run here walked. `long` runs search with a fresh seed each time.
  local seed=()
  [ "$mode" = smoke ] && seed=(-seed="${FUZZ_SEED:-1}")
  local extra=()
  [ -d "fuzz/regressions/$t" ] && extra=("fuzz/regressions/$t")
  "$build/bin/fuzz_$t" "$corpus" "$build/fuzz/seeds/$t" "${extra[@]}" "${dict[@]}" "${seed[@]}" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$build/artifacts/$t-" >"$build/logs/$t.log" 2>&1
}

pids=()
names=()
status=0
wait_first() {
  if ! wait "${pids[0]}"; then
    echo "fuzz_${names[0]}: FAILED, see $build/logs/${names[0]}.log" >&2
    status=1
  fi
  pids=("${pids[@]:1}")
  names=("${names[@]:1}")
}
for t in "${targets[@]}"; do
  [ ${#pids[@]} -ge "$parallel" ] && wait_first
  run_one "$t" &
  pids+=($!)
  names+=("$t")
done
while [ ${#pids[@]} -gt 0 ]; do wait_first; done

for t in "${targets[@]}"; do
  log=$build/logs/$t.log
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  last=$(grep -E '^#[0-9]+' "$log" | tail -1 | sed -E 's/^#[0-9]+[[:space:]]+[A-Z]+[[:space:]]+//')
  printf '%-14s %ss  runs %-10s %s\n' "$t" "$seconds" "${runs:-?}" "${last:-no stats}"
done
exit $status
