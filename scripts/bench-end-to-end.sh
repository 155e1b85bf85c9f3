#!/usr/bin/env bash
# End to end: `lumo` on 12 MP captures against ffmpeg on the same files, in
# the same run, best of RUNS (default 3) for each side.
#
#   scripts/bench-end-to-end.sh [build-dir] [work-dir]
#
# It makes eight textured 4000x3000 JPEG frames (testsrc2 with noise, about
# 5 MB each, like phone photos), one smooth one and one 4000x3000 PNG, finds
# the LUT the plugin picks for the session's light (all four blend corners
# on one block, so that block is exactly the LUT it renders), exports it as
# .cube, and prints:
#   1. lumo replay, eight textured JPEGs to JPEG / ffmpeg decode + encode
#      (the codec floor; target at most 1.25x);
#   2. ffmpeg decode + lut3d tetrahedral + encode / lumo replay (target at
#      least 1.8x);
#   3. both figures again for the smooth frame repeated eight times;
#   after each set, lumo against libjpeg-turbo's in-process floor: tjbench's
#   decompress to YUV plus compress from YUV (quality 92, 4:2:0) of each
#   frame, summed and spread over the cores (target at most 1.3x); and
#   lumo against an equal-quality floor: libjpeg-turbo's
#   djpeg | cjpeg -quality 92 (lumo's own quality), one process per frame,
#   as many at once as there are cores, with each side's output size, since
#   ffmpeg's -q:v 2 writes several times the bytes and so is no like-for-like
#   floor on its own;
#   4. lumo run raw NV21 to raw NV21 / cp, and PNG in, PNG out / ffmpeg's
#      PNG decode + encode.
# Ratios only: on a shared machine absolute times say little.
set -euo pipefail
. "$(cd "$(dirname "$0")" && pwd)/bench-lib.sh"

bench_setup bench-e2e "$@"
[ -x "$lumo" ] || { echo "no $lumo (build the preset first)" >&2; exit 1; }
for tool in cjpeg tjbench; do
  command -v "$tool" >/dev/null || {
    echo "no $tool (scripts/install-deps.sh installs libjpeg-turbo-progs)" >&2
    exit 1
  }
done
mkdir -p "$work"
cd "$work"

echo "== making 4000x3000 inputs in $work" >&2
if [ ! -f tex_8.jpg ]; then
  ffmpeg -v error -y -f lavfi -i "testsrc2=size=4000x3000:rate=8,noise=alls=20:allf=t+u" \
    -frames:v 8 -q:v 2 -start_number 1 tex_%d.jpg
fi
if [ ! -f smooth_8.jpg ]; then
  ffmpeg -v error -y -f lavfi -i "testsrc2=size=4000x3000:rate=1" -frames:v 1 -q:v 2 smooth_1.jpg
  for i in 2 3 4 5 6 7 8; do cp smooth_1.jpg "smooth_$i.jpg"; done
fi
[ -f picture.png ] || ffmpeg -v error -y -i tex_1.jpg picture.png
if [ ! -f raw_4000x3000_4000.nv21 ]; then
  ffmpeg -v error -y -i tex_1.jpg -pix_fmt nv21 -f rawvideo raw_4000x3000_4000.nv21
fi

mkdir -p dev/odm/etc/camera dev/data/vendor/camera
cp "$build/share/lumo/lumo_filter_param.bin" dev/odm/etc/camera/
meta='"meta": {"stylization": 1, "scene": "food", "lux": 300, "cct": 4000}'
for set in tex smooth; do
  : >"$set.jsonl"
  for i in 1 2 3 4 5 6 7 8; do
    echo "{\"instance\": \"snapshot\", \"input\": \"${set}_$i.jpg\", \"output\": \"out_$i.jpg\", $meta}" \
      >>"$set.jsonl"
  done
done

# The block the plugin renders for that light, as .cube.
corners=$("$lumo" run smooth_1.jpg --device-root dev --scene food --lux 300 --cct 4000 \
  -o probe.jpg --json | tr -d ' \n' | sed -n 's/.*"lut":{"index":\[\([0-9,]*\)\].*/\1/p')
index=${corners%%,*}
if [ -z "$corners" ] || [ "$corners" != "$index,$index,$index,$index" ]; then
  echo "the plugin's four LUT corners differ or were not reported: [$corners]" >&2
  exit 1
fi
rm -rf cubes && "$lumo" calib export dev/odm/etc/camera/lumo_filter_param.bin --json cubes/d.json \
  --cube-dir cubes >/dev/null
cube=$(printf 'cubes/lut_%03d.cube' "$index")
[ -f "$cube" ] || { echo "no $cube after export" >&2; exit 1; }

# mean size in MB of the files given
mean_mb() { stat -c %s "$@" | awk '{ s += $1 } END { printf "%.2f", s / NR / 1e6 }'; }

# The equal-quality floor: eight frames of SET decoded and encoded again at
# quality 92 (what lumo writes) by libjpeg-turbo's tools, into DIR.
turbo_floor() {
  local set=$1 dir=$2
  seq 8 | xargs -P "$threads" -I{} sh -c \
    "djpeg '${set}_{}.jpg' | cjpeg -quality 92 -outfile '$dir/tj_{}.jpg'"
}

# libjpeg-turbo's in-process floor for the eight frames of SET, in seconds:
# tjbench decompresses each frame to planar YUV and compresses it again from
# YUV at quality 92, 4:2:0; the per-frame times (from its megapixels per
# second) are summed and spread over the cores, with as many frames measured
# at once as there are cores.
tj_floor() {
  local set=$1 i
  for i in 1 2 3 4 5 6 7 8; do
    [ -f "${set}_$i.ppm" ] || djpeg -pnm "${set}_$i.jpg" >"${set}_$i.ppm"
  done
  local tj="-yuv -quiet -nowrite -benchtime ${TJ_SECONDS:-2} -warmup 0.5"
  # The last table line: width and height are fields 5 and 6; the decompress
  # to YUV rate is the second last field, the compress from YUV one the
  # third last (megapixels per second).
  seq 8 | xargs -P "$threads" -I{} sh -c "
    tjbench '${set}_{}.jpg' $tj | awk 'NF { l = \$0 } END { n = split(l, f); print f[5] * f[6] / 1e6 / f[n - 1] }'
    tjbench '${set}_{}.ppm' 92 -subsamp 420 -componly $tj |
      awk 'NF { l = \$0 } END { n = split(l, f); print f[5] * f[6] / 1e6 / f[n - 2] }'" |
    awk -v n="$threads" '{ s += $1 } END { printf "%.4f", s / n }'
}

ff() { ffmpeg -v error -y -threads "$threads" "$@"; }
report_set() {
  local set=$1
  rm -rf "out_$set" && mkdir -p "out_$set"
  local lumo_t floor_t lut_t turbo_t tj_t
  lumo_t=$(best "$lumo" replay "$set.jsonl" --device-root dev --out "out_$set" --jobs "$threads")
  floor_t=$(best ff -i "${set}_%d.jpg" -q:v 2 -start_number 1 "out_$set/ff_%d.jpg")
  lut_t=$(best ff -i "${set}_%d.jpg" -filter_threads "$threads" \
    -vf "lut3d=file=$cube:interp=tetrahedral" -q:v 2 "out_$set/ff_lut_%d.jpg")
  turbo_t=$(best turbo_floor "$set" "out_$set")
  tj_t=$(tj_floor "$set")
  printf '%-8s lumo replay %.2f s | codec floor %.2f s | ffmpeg lut3d %.2f s\n' "$set" \
    "$lumo_t" "$floor_t" "$lut_t"
  printf '%-8s lumo / floor: %sx (target <= 1.25)   ffmpeg lut3d / lumo: %sx (target >= 1.8)\n' \
    "$set" "$(ratio "$lumo_t" "$floor_t")" "$(ratio "$lut_t" "$lumo_t")"
  printf '%-8s lumo / tjbench in-process floor (%.2f s): %sx (target <= 1.3)\n' "$set" "$tj_t" \
    "$(ratio "$lumo_t" "$tj_t")"
  printf '%-8s equal quality: lumo / djpeg | cjpeg -quality 92 (%.2f s): %sx;' "$set" "$turbo_t" \
    "$(ratio "$lumo_t" "$turbo_t")"
  printf ' MB a frame: lumo %s, cjpeg %s, ffmpeg -q:v 2 %s\n' \
    "$(mean_mb out_"$set"/out_*.jpg)" "$(mean_mb out_"$set"/tj_*.jpg)" \
    "$(mean_mb out_"$set"/ff_[0-9]*.jpg)"
}

echo "== eight 4000x3000 frames, JPEG in, JPEG out; $threads threads each side, best of $runs" >&2
report_set tex
report_set smooth

raw_t=$(best "$lumo" run raw_4000x3000_4000.nv21 --device-root dev --stylization 0 -o copy_4000x3000_4000.nv21)
cp_t=$(best cp raw_4000x3000_4000.nv21 copy_cp.nv21)
png_t=$(best "$lumo" run picture.png --device-root dev --scene food --lux 300 --cct 4000 -o out.png)
ffpng_t=$(best ff -i picture.png ff.png)
printf 'raw NV21 copy: lumo run %.3f s | cp %.3f s | %sx\n' "$raw_t" "$cp_t" "$(ratio "$raw_t" "$cp_t")"
printf 'PNG in, PNG out: lumo run %.2f s | ffmpeg decode + encode %.2f s | %sx\n' "$png_t" \
  "$ffpng_t" "$(ratio "$png_t" "$ffpng_t")"
