#!/usr/bin/env bash
# Times ImageMagick making the deck page's 92-point round badge (grey ring, image stretched
# and clipped to the inner circle) from the same two pictures as bench_images, once naively
# and once with the JPEG size hint, and prints the figures next to ours.
#
#   bench/images-vs-imagemagick.sh [BUILD_DIR]     (default: build)
#   RUNS=20 bench/images-vs-imagemagick.sh         (runs per command; the median is shown)
#
# ImageMagick is installed with apt-get when missing. Its times include starting a process,
# which the last column shows on its own; ours are in-process.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
runs=${RUNS:-10}
bench=$build/bench/bench_images
if [[ ! -x $bench ]]; then
  echo "no $bench: build it first (cmake --build $build --target bench_images)" >&2
  exit 1
fi

find_magick() {
  local candidate
  for candidate in magick /usr/bin/convert convert; do
    if command -v "$candidate" >/dev/null && "$candidate" -version 2>/dev/null | grep -q ImageMagick; then
      command -v "$candidate"
      return 0
    fi
  done
  return 1
}

if ! magick=$(find_magick); then
  echo "== installing imagemagick"
  sudo=()
  [[ $(id -u) -eq 0 ]] || sudo=(sudo)
  "${sudo[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends imagemagick \
    >"${TMPDIR:-/tmp}/vexo-imagemagick-install.log" 2>&1 ||
    { echo "apt-get failed; see ${TMPDIR:-/tmp}/vexo-imagemagick-install.log" >&2; exit 1; }
  magick=$(find_magick) || { echo "ImageMagick did not install" >&2; exit 1; }
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bench" --write-inputs "$work"

# badge OUTPUT [options before the input...] INPUT
badge() {
  local out=$1
  shift
  "$magick" -size 92x92 xc:none -fill 'rgb(37,37,37)' -draw 'circle 45.5,45.5 45.5,0' \
    \( "$@" -resize '92x92!' \
       \( -size 92x92 xc:none -fill white -draw 'circle 45.5,45.5 45.5,6' \) \
       -alpha set -compose DstIn -composite \) \
    -compose Over -composite "$out"
}

# median_ms COMMAND...: the median wall time of $runs runs, in milliseconds.
median_ms() {
  local times=() start end
  for ((i = 0; i < runs; i++)); do
    start=$(date +%s%N)
    "$@" >/dev/null
    end=$(date +%s%N)
    times+=($(((end - start) / 1000)))
  done
  printf '%s\n' "${times[@]}" | sort -n | awk '{ a[NR] = $1 } END { printf "%.1f", a[int((NR + 1) / 2)] / 1000 }'
}

echo "== ImageMagick: $("$magick" -version | head -1)"
startup=$(median_ms "$magick" -size 1x1 xc:none null:)
jpeg_naive=$(median_ms badge "$work/naive.png" "$work/input-3000.jpg")
jpeg_hint=$(median_ms badge "$work/hint.png" -define jpeg:size=92x92 "$work/input-3000.jpg")
png_plain=$(median_ms badge "$work/png.png" "$work/input-1000.png")

echo "== ours: $bench"
"$bench" --benchmark_filter='RoundArtwork92_(Jpeg|Png)1000|RoundArtwork92_Jpeg3000' \
  --benchmark_min_time=2 --benchmark_format=json >"$work/ours.json" 2>/dev/null

python3 - "$work/ours.json" "$startup" "$jpeg_naive" "$jpeg_hint" "$png_plain" <<'PY'
import json, sys
results = {b["name"].split("/")[0]: b for b in json.load(open(sys.argv[1]))["benchmarks"]}
startup, jpeg_naive, jpeg_hint, png_plain = map(float, sys.argv[2:])
rows = [
    ("3000x3000 JPEG", results["BM_RoundArtwork92_Jpeg3000"], jpeg_naive, jpeg_hint),
    ("1000x1000 PNG", results["BM_RoundArtwork92_Png1000"], png_plain, png_plain),
]
print(f"{'picture':<16}{'ours':>9}{'floor':>9}{'ratio':>7}{'IM naive':>10}{'IM hint':>9}"
      f"{'IM start':>10}{'IM hint / ours':>16}{'(less start)':>14}")
for name, ours, naive, hint in rows:
    o, f = ours["ours_ms"], ours["floor_ms"]
    print(f"{name:<16}{o:>9.1f}{f:>9.1f}{o / f:>7.2f}{naive:>10.1f}{hint:>9.1f}{startup:>10.1f}"
          f"{hint / o:>15.1f}x{(hint - startup) / o:>13.1f}x")
print("milliseconds per picture; ImageMagick figures are medians of whole runs of one command")
PY
