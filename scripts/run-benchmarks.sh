#!/usr/bin/env bash
# Runs every benchmark binary of a build (build/<preset>/bin/*_bench, one run
# each, JSON kept beside the console output), then times ffmpeg's lut3d on
# the renderer benchmark's own 4000x3000 NV21 frame and LUT (written by
# render_fixture), and prints the ratios side by side.
#
#   scripts/run-benchmarks.sh [build-dir] [out-dir]
#
# FFMPEG_FRAMES (default 5) sets how many frames each ffmpeg route renders;
# RUNS (default 5) how many times the renderer benchmark and each ffmpeg
# route run. Both sides report their best run: on a shared machine the
# fastest of several runs is the one least disturbed by the neighbours.
set -euo pipefail

build=${1:-build/dev}
out=${2:-$build/bench-results}
frames=${FFMPEG_FRAMES:-5}
runs=${RUNS:-5}
mkdir -p "$out"
status=0

shopt -s nullglob
benches=("$build"/bin/*_bench)
if [ ${#benches[@]} -eq 0 ]; then
  echo "no benchmark binaries in $build/bin (build the preset first)" >&2
  exit 1
fi

for bench in "${benches[@]}"; do
  name=$(basename "$bench")
  echo "== $name" >&2
  repetitions=1
  [ "$name" = render_bench ] && repetitions=$runs
  if ! "$bench" --benchmark_repetitions="$repetitions" --benchmark_out="$out/$name.json" \
    --benchmark_out_format=json; then
    echo "$name failed" >&2
    status=1
  fi
done

render_fixture="$build/bin/render_fixture"
if [ ! -x "$render_fixture" ] || [ ! -f "$out/render_bench.json" ] || ! command -v ffmpeg >/dev/null; then
  echo "render_fixture, render_bench results or ffmpeg missing: no ffmpeg comparison" >&2
  exit $status
fi

fixture=$(mktemp -d)
trap 'rm -rf "$fixture"' EXIT
"$render_fixture" "$fixture"

# Wall and CPU (user + system, all threads) milliseconds per frame for one
# ffmpeg route, from -benchmark over `frames` renders of the same frame.
# Start-up and file reading are included: they are what a user waits for,
# and small next to `frames` renders.
ffmpeg_once() {
  local threads=$1 chain=$2
  local log
  log=$(ffmpeg -hide_banner -nostdin -benchmark -threads "$threads" -filter_threads "$threads" \
    -f rawvideo -pix_fmt nv21 -s 4000x3000 -color_range pc -stream_loop $((frames - 1)) \
    -i "$fixture/frame_4000x3000.nv21" \
    -vf "$chain" -f rawvideo -y /dev/null 2>&1)
  echo "$log" | sed -n 's/.*utime=\([0-9.]*\)s stime=\([0-9.]*\)s rtime=\([0-9.]*\)s.*/\3 \1 \2/p' |
    tail -1 | awk -v n="$frames" '{ printf "%.1f %.1f", 1000 * $1 / n, 1000 * ($2 + $3) / n }'
}

# The best of `runs` runs (the lowest wall time, with its CPU time).
ffmpeg_route() {
  local best="" result
  for _ in $(seq "$runs"); do
    result=$(ffmpeg_once "$@")
    if [ -z "$best" ] || awk -v a="${result%% *}" -v b="${best%% *}" 'BEGIN { exit !(a < b) }'; then
      best=$result
    fi
  done
  echo "$best"
}

lut="lut3d=file=$fixture/look.cube:interp=tetrahedral"
declare -A ffmpeg_ms
for threads in 1 2; do
  for route in planar_float rgb24; do
    if [ "$route" = planar_float ]; then
      chain="format=gbrpf32le,$lut,format=nv21"
    else
      chain="format=rgb24,$lut,format=nv21"
    fi
    ffmpeg_ms[$route/$threads]=$(ffmpeg_route "$threads" "$chain")
    echo "ffmpeg $route threads=$threads: wall, cpu ms/frame: ${ffmpeg_ms[$route/$threads]}" >&2
  done
done

python3 - "$out/render_bench.json" \
  "${ffmpeg_ms[planar_float/1]}" "${ffmpeg_ms[planar_float/2]}" \
  "${ffmpeg_ms[rgb24/1]}" "${ffmpeg_ms[rgb24/2]}" <<'PY'
import json, sys

# With repetitions each benchmark appears once per run (and as aggregates):
# keep each one's fastest run.
runs = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("run_type", "iteration") != "iteration":
        continue
    name = b.get("run_name", b["name"])
    if name not in runs or b["real_time"] < runs[name]["real_time"]:
        runs[name] = b

def times(name):
    """Wall and process CPU milliseconds per iteration."""
    b = runs[name]
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b["time_unit"]]
    return b["real_time"] * scale, b["process_cpu_ms"]

ff = {}
for i, key in enumerate([("planar_float", 1), ("planar_float", 2), ("rgb24", 1), ("rgb24", 2)]):
    wall, cpu = sys.argv[2 + i].split()
    ff[key] = (float(wall), float(cpu))

print()
print("Renderer against memcpy of the same input and output bytes (same run, best of each;"
      " wall | all-thread CPU):")
for size, fmt in (("4000x3000", "nv21"), ("1920x1080", "nv12")):
    fw, fc = times(f"BM_Memcpy/{fmt}_{size}/real_time")
    print(f"  memcpy {fmt} {size}: {fw:.2f} ms | {fc:.2f} ms")
    for chain in ("lut", "lut_style"):
        for threads in (1, 2):
            w, c = times(f"BM_Render/{fmt}_{size}_{chain}/{threads}/real_time")
            print(f"  {fmt} {size} {chain:9s} {threads} thread(s): {w:7.2f} ms = {w / fw:5.2f} x memcpy"
                  f" | {c:7.2f} ms = {c / fc:5.2f} x memcpy")
print()
print("Fixed-point kernel against the float kernels alone (nv21 4000x3000, 1 thread, CPU):")
for chain in ("lut", "lut_style"):
    name = f"BM_Render/nv21_4000x3000_{chain}_float/1/real_time"
    if name in runs:
        c = times(f"BM_Render/nv21_4000x3000_{chain}/1/real_time")[1]
        f = times(name)[1]
        print(f"  {chain:9s}: float {f:7.2f} ms, fixed-point {c:7.2f} ms: {f / c:4.2f} x")
avx2 = "BM_Render/nv21_4000x3000_lut_style_avx2/1/real_time"
if avx2 in runs and "error_occurred" not in runs[avx2]:
    c = times(avx2)[1]
    f = times("BM_Render/nv21_4000x3000_lut_style_avx2_float/1/real_time")[1]
    print(f"  lut_style on AVX2: float {f:7.2f} ms, fixed-point {c:7.2f} ms: {f / c:4.2f} x")
print()
print("Renderer against ffmpeg lut3d (tetrahedral) on the same 4000x3000 NV21 frame and LUT"
      " (wall | all-thread CPU):")
for threads in (1, 2):
    for chain in ("lut", "lut_style"):
        w, c = times(f"BM_Render/nv21_4000x3000_{chain}/{threads}/real_time")
        for route in ("planar_float", "rgb24"):
            fw, fc = ff[(route, threads)]
            print(f"  {threads} thread(s): ffmpeg {route:12s} {fw:7.1f} | {fc:7.1f} ms;"
                  f" renderer {chain:9s} {w:6.2f} | {c:6.2f} ms: {fw / w:5.1f} x | {fc / c:5.1f} x faster")
PY
exit $status
