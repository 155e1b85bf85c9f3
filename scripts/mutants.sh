#!/usr/bin/env bash
# Mutation sample: applies each mutation of scripts/mutants.txt alone,
# rebuilds incrementally, runs the test programs that exercise the mutated
# folder, and records whether some test failed (killed) or all passed
# (survived). The source file is restored after every mutant, also on ^C.
#   scripts/mutants.sh [--check] [--only 1,5,9] [--build DIR] [--out FILE]
#     --check   only verify that every snippet still occurs exactly once
#     --only    run the listed mutants (numbered from 1 in list order)
#     --build   build folder (default build/mutants, configured from the
#               `mutants` preset when missing)
#     --out     results, one line per mutant (default BUILD/mutants.tsv)
# Exit: 0 when the run finished, 1 on a stale list or a broken baseline, 2 usage.
set -euo pipefail
cd "$(git rev-parse --show-toplevel)"

list=scripts/mutants.txt
build=build/mutants
out=""
only=""
check=0
timeout_s="${MUTANT_TIMEOUT:-300}"
while [[ $# -gt 0 ]]; do
  case "$1" in
    --check) check=1 ;;
    --only) only="${2:?--only needs a list}"; shift ;;
    --build) build="${2:?--build needs a folder}"; shift ;;
    --out) out="${2:?--out needs a file}"; shift ;;
    -h|--help) sed -n '2,12p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "mutants: unknown argument $1 (see --help)" >&2; exit 2 ;;
  esac
  shift
done
out="${out:-$build/mutants.tsv}"

# The unit-test programs that link or load each folder's code, cheapest
# first: the first failure ends a mutant's run. The tool's black-box suites
# are left out to keep a run short; they go through the same code.
tests_for() {
  case "$1" in
    # host/ holds the calibration layout the plugin reads through.
    lumo_filter|host) echo param_trigger_test param_store_test plugin_core_test plugin_library_test dump_faults_test ;;
    calib) echo calib_writer_test lumo_calib_tools_tests lumo_lut_source_tests param_store_test lumo_tool_unit_tests ;;
    render) echo render_core_tests render_pool_tests render_sdk_tests plugin_library_test ;;
    # imageio/geometry.h holds the simulator's buffer geometry.
    hostsim|imageio) echo hostsim_tests hostsim_concurrency_tests render_sdk_tests plugin_library_test ;;
    *) echo "mutants: no tests known for folder $1" >&2; return 1 ;;
  esac
}

# Prints the mutants as "path<TAB>from<TAB>to", numbered by line order.
entries() {
  grep -v -e '^#' -e '^[[:space:]]*$' "$list" | sed -E 's/^([^:]+): (.*) ==> (.*)$/\1\t\2\t\3/'
}

# mutate PATH FROM TO: replaces the only occurrence of FROM, or fails naming why.
mutate() {
  python3 - "$@" <<'PY'
import sys
path, old, new = sys.argv[1:4]
text = open(path, encoding="utf-8").read()
n = text.count(old)
if n != 1:
    sys.exit(f"{path}: snippet found {n} times, expected once: {old}")
open(path, "w", encoding="utf-8").write(text.replace(old, new))
PY
}

stale=0
while IFS=$'\t' read -r path from to; do
  if [[ ! -f "$path" ]]; then echo "$path: no such file" >&2; stale=1; continue; fi
  n=$(python3 -c 'import sys; print(open(sys.argv[1]).read().count(sys.argv[2]))' "$path" "$from")
  [[ "$n" == 1 ]] || { echo "$path: snippet found $n times, expected once: $from" >&2; stale=1; }
done < <(entries)
[[ $stale == 0 ]] || { echo "mutants: the list is stale; fix $list" >&2; exit 1; }
[[ $check == 0 ]] || { echo "mutants: $(entries | wc -l) snippets, each found once"; exit 0; }

if [[ ! -f "$build/build.ninja" ]]; then cmake --preset mutants >/dev/null; fi
jobs="${JOBS:-$(nproc)}"
logs="$build/mutant-logs"
mkdir -p "$logs"

# run_tests LOG PROGRAM...: 0 when every program passes within the timeout.
run_tests() {
  local log="$1"; shift
  for t in "$@"; do
    if ! timeout "$timeout_s" "$build/bin/$t" --gtest_brief=1 >>"$log" 2>&1; then
      echo "$t" ; return 1
    fi
  done
}

all_tests=$(for f in lumo_filter calib render hostsim; do tests_for $f; done | tr ' ' '\n' | sort -u)
echo "mutants: building and checking the unmutated baseline" >&2
cmake --build "$build" -j "$jobs" --target $all_tests >"$logs/baseline-build.log" 2>&1 ||
  { echo "mutants: baseline build failed, see $logs/baseline-build.log" >&2; exit 1; }
: >"$logs/baseline.log"
if failed=$(run_tests "$logs/baseline.log" $all_tests); then :; else
  echo "mutants: baseline test $failed fails unmutated; see $logs/baseline.log" >&2; exit 1
fi

backup=""
restore() { if [[ -n "$backup" ]]; then cp -p "$backup" "${backup%.mutant-orig}" && rm -f "$backup"; backup=""; fi; }
trap restore EXIT INT TERM

: >"$out"
i=0
killed=0 survived=0 invalid=0
while IFS=$'\t' read -r path from to; do
  i=$((i + 1))
  if [[ -n "$only" && ",$only," != *",$i,"* ]]; then continue; fi
  folder="${path%%/*}"
  tests=$(tests_for "$folder")
  backup="$path.mutant-orig"
  cp -p "$path" "$backup"
  mutate "$path" "$from" "$to"
  touch "$path"
  log="$logs/$i.log"
  if ! cmake --build "$build" -j "$jobs" --target $tests >"$log" 2>&1; then
    status=invalid; by="(does not build)"; invalid=$((invalid + 1))
  elif by=$(run_tests "$log" $tests); then
    status=survived; by="-"; survived=$((survived + 1))
  else
    status=killed; killed=$((killed + 1))
  fi
  restore
  touch "$path"
  printf '%d\t%s\t%s\t%s\t%s\n' "$i" "$status" "$by" "$path" "$from" | tee -a "$out"
done < <(entries)
# Leave the build matching the sources again.
cmake --build "$build" -j "$jobs" --target $all_tests >/dev/null 2>&1 || true
echo "mutants: $killed killed, $survived survived, $invalid did not build; results in $out"
