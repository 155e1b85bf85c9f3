#!/usr/bin/env bash
# Line and branch coverage of the suite, per source folder. Builds the
# `coverage` preset (gcov instrumentation, no benchmarks), runs every test in
# it, then summarises with gcovr. A failing test is reported but the summary is
# still written, so a red test does not hide the figures.
#   scripts/coverage.sh            build, run, summarise
#   scripts/coverage.sh --report   summarise the last run only
# Output: a table on stdout and build/coverage/coverage.json (gcovr's summary).
set -euo pipefail
cd "$(git rev-parse --show-toplevel)"
jobs="${JOBS:-$(nproc)}"
dir=build/coverage
folders=(lumo_filter calib render hostsim imageio session report host tools/lumo)

status=0
if [[ "${1:-}" != "--report" ]]; then
  cmake --preset coverage >/dev/null
  cmake --build --preset coverage -j "$jobs"
  find "$dir" -name '*.gcda' -delete
  ctest --preset coverage -j "$jobs" || status=$?
fi

gcovr --root . --object-directory "$dir" -j "$jobs" \
  --exclude '(^|.*/)(tests|fuzz|bench|build)/' --exclude-throw-branches \
  --gcov-ignore-parse-errors --json-summary "$dir/coverage.json" >/dev/null

python3 - "$dir/coverage.json" "${folders[@]}" <<'PY'
import json, sys
summary = json.load(open(sys.argv[1]))
print(f"{'folder':<14}{'lines':>16}{'line %':>9}{'branches':>16}{'branch %':>10}")
for folder in sys.argv[2:]:
    lc = lt = bc = bt = 0
    for f in summary["files"]:
        if f["filename"].startswith(folder + "/"):
            lc += f["line_covered"]; lt += f["line_total"]
            bc += f["branch_covered"]; bt += f["branch_total"]
    pct = lambda c, t: f"{100 * c / t:.1f}" if t else "-"
    print(f"{folder:<14}{f'{lc}/{lt}':>16}{pct(lc, lt):>9}{f'{bc}/{bt}':>16}{pct(bc, bt):>10}")
PY
exit "$status"
