#!/usr/bin/env bash
# `lumo compare` against the two plain replays it stands for, side by side in
# the same run, best of RUNS (default 3) for each:
#
#   scripts/bench-compare.sh [build-dir] [work-dir]
#
# Eight textured 4000x3000 JPEG frames (as in bench-end-to-end.sh) in one
# session, the demo calibration against the demo's previous round of looks.
# Prints each replay's time, the compare's, and compare / the slower replay
# (target at most 1.3: the frame is decoded once for both calibrations, and
# no output is encoded). Ratios only: on a shared machine absolute times say little.
set -euo pipefail
. "$(cd "$(dirname "$0")" && pwd)/bench-lib.sh"

bench_setup bench-compare "$@"
examples=$(realpath "$(dirname "$0")/../examples")
[ -x "$lumo" ] || { echo "no $lumo (build the preset first)" >&2; exit 1; }
mkdir -p "$work"
cd "$work"

echo "== making 4000x3000 inputs in $work" >&2
if [ ! -f tex_8.jpg ]; then
  ffmpeg -v error -y -f lavfi -i "testsrc2=size=4000x3000:rate=8,noise=alls=20:allf=t+u" \
    -frames:v 8 -q:v 2 -start_number 1 tex_%d.jpg
fi
for side in new old; do mkdir -p "$side/odm/etc/camera" "$side/data/vendor/camera"; done
"$lumo" calib build "$examples/demo_looks.json" -o new/odm/etc/camera/lumo_filter_param.bin \
  >/dev/null 2>&1
"$lumo" calib build "$examples/demo_looks_previous.json" \
  -o old/odm/etc/camera/lumo_filter_param.bin >/dev/null 2>&1
meta='"meta": {"stylization": 1, "scene": "food", "lux": 300, "cct": 4000}'
: >tex.jsonl
for i in 1 2 3 4 5 6 7 8; do
  echo "{\"instance\": \"snapshot\", \"input\": \"tex_$i.jpg\", \"output\": \"out_$i.jpg\", $meta}" \
    >>tex.jsonl
done


echo "== eight 4000x3000 frames; $threads threads each, best of $runs" >&2
rm -rf out_new out_old
new_t=$(best "$lumo" replay tex.jsonl --device-root new --out out_new --jobs "$threads")
old_t=$(best "$lumo" replay tex.jsonl --device-root old --out out_old --jobs "$threads")
cmp_t=$(best "$lumo" compare --calib new/odm/etc/camera/lumo_filter_param.bin \
  --against old/odm/etc/camera/lumo_filter_param.bin tex.jsonl --jobs "$threads" \
  --html compare.html)
slower=$(awk -v a="$new_t" -v b="$old_t" 'BEGIN { print (a > b) ? a : b }')
printf 'replay new %.2f s | replay old %.2f s | compare (with its page) %.2f s\n' "$new_t" \
  "$old_t" "$cmp_t"
printf 'compare / slower replay: %sx (target <= 1.3)\n' \
  "$(awk -v a="$cmp_t" -v b="$slower" 'BEGIN { printf "%.2f", a / b }')"
