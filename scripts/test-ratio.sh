#!/usr/bin/env bash
# Size of the tests against the rest of the code: non-blank lines of tracked
# C/C++, Python and shell files. Test lines are those under a tests/, test/ or
# fuzz/ folder; benchmarks count as code. Prints both counts and the percent.
#   scripts/test-ratio.sh [git revision]   (default: the working tree)
set -euo pipefail
cd "$(git rev-parse --show-toplevel)"
rev="${1:-}"
pattern='\.(c|cc|cpp|cxx|h|hh|hpp|py|sh)$'
if [[ -n "$rev" ]]; then
  files=$(git ls-tree -r --name-only "$rev" | grep -E "$pattern" || true)
  show() { git show "$rev:$1"; }
else
  files=$(git ls-files | grep -E "$pattern" || true)
  show() { cat -- "$1"; }
fi
test=0
other=0
while IFS= read -r f; do
  [[ -z "$f" ]] && continue
  [[ -n "$rev" || -f "$f" ]] || continue
  n=$(show "$f" | grep -c '[^[:space:]]' || true)
  if [[ "$f" =~ (^|/)(tests?|fuzz)/ ]]; then
    test=$((test + n))
  else
    other=$((other + n))
  fi
done <<<"$files"
awk -v t="$test" -v o="$other" 'BEGIN { printf "test %d  other %d  ratio %.1f%%\n", t, o, (o ? 100 * t / o : 0) }'
