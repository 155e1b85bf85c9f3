# Helpers shared by the whole-command benchmark scripts (sourced, not run).

# best SECONDS of `runs` runs of the command (its output discarded); a failed
# run ends the script.
best() {
  local best_time=""
  for _ in $(seq "$runs"); do
    local start end t
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; exit 1; }
    end=$(date +%s.%N)
    t=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.4f", b - a }')
    if [ -z "$best_time" ] || awk -v t="$t" -v b="$best_time" 'BEGIN { exit !(t < b) }'; then
      best_time=$t
    fi
  done
  echo "$best_time"
}

# A / B to two decimals.
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

# bench_setup NAME [BUILD [WORK]]: the scripts' common arguments, the build
# folder (default build/dev) and the work folder (default BUILD/NAME); sets
# build, work, runs (RUNS, default 3), lumo and threads.
bench_setup() {
  build=$(realpath "${2:-build/dev}")
  work=${3:-$build/$1}
  runs=${RUNS:-3}
  lumo="$build/bin/lumo"
  threads=$(nproc)
}
