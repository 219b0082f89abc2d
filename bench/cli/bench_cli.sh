#!/usr/bin/env bash
# Speed of "velorum analyze" against FFmpeg's ebur128 filter (true peak on)
# on the same material, measured in the same run:
#   1. one long 24-bit stereo 48 kHz WAV (default 30 minutes of pink noise);
#   2. a folder of files (default 8 files of 3 minutes), velorum with -j 1
#      and with -j <cores>, FFmpeg one file after another;
#   3. peak memory of velorum on a 1-minute and on the long file, to show
#      that memory stays flat with length apart from the history.
# Usage: bench/cli/bench_cli.sh [path/to/velorum] [long minutes] [files] [file minutes]
# (runs=N in the environment repeats each case N times, default 2)
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
velorum=${1:-$here/build/bin/velorum}
long_min=${2:-30}
nfiles=${3:-8}
file_min=${4:-3}
cores=$(nproc)
work=$(mktemp -d /tmp/velorum-bench-XXXXXX)
trap 'rm -rf "$work"' EXIT

command -v ffmpeg >/dev/null || { echo "ffmpeg is not installed" >&2; exit 1; }
[ -x "$velorum" ] || { echo "no velorum binary at $velorum" >&2; exit 1; }

make_wav() { # seconds output
  ffmpeg -nostdin -loglevel error -y -f lavfi -i "anoisesrc=d=$1:c=pink:r=48000:a=0.25:s=$RANDOM" \
    -af "volume='if(lt(mod(t,20),12),1,0.3)':eval=frame" -ac 2 -c:a pcm_s24le "$2"
}

# The machine may be shared: both wall time and CPU time (user + system,
# children included) are taken; the ratios use CPU time, which other load
# disturbs least. Output: "wall cpu".
# Each case runs ${runs:-2} times; the best wall and the best CPU time count.
seconds() { # command... -> "wall cpu"
  : > "$work/times.txt"
  for _ in $(seq 1 "${runs:-2}"); do
    /usr/bin/time -o "$work/time.txt" -f '%e %U %S' "$@" >/dev/null 2>&1 || true
    tail -1 "$work/time.txt" >> "$work/times.txt"
  done
  awk 'NR == 1 || $1 < w { w = $1 } NR == 1 || $2 + $3 < c { c = $2 + $3 } END { printf "%.3f %.3f\n", w, c }' \
    "$work/times.txt"
}
wall() { echo "$1" | cut -d' ' -f1; }
cpu() { echo "$1" | cut -d' ' -f2; }

# framelog=verbose keeps FFmpeg from printing a line per 100 ms at the
# default log level, so it is not charged for formatting text.
ffmpeg_one() { ffmpeg -nostdin -hide_banner -nostats -i "$1" -af ebur128=peak=true:framelog=verbose -f null - ; }
export -f ffmpeg_one
ffmpeg_all() { for f in "$1"/*.wav; do ffmpeg_one "$f"; done; }
export -f ffmpeg_all

echo "Preparing ${long_min} min long file and ${nfiles} x ${file_min} min files in $work ..."
make_wav $((long_min * 60)) "$work/long.wav"
make_wav 60 "$work/short.wav"
mkdir "$work/folder"
for i in $(seq 1 "$nfiles"); do make_wav $((file_min * 60)) "$work/folder/take$i.wav"; done

row() { # label velorum ffmpeg
  printf '%-30s %9.2f %9.2f %9.2f %9.2f %7.1fx %7.1fx\n' "$1" "$(wall "$2")" "$(cpu "$2")" "$(wall "$3")" \
    "$(cpu "$3")" "$(echo "$(wall "$3") / $(wall "$2")" | bc -l)" "$(echo "$(cpu "$3") / $(cpu "$2")" | bc -l)"
}
cat "$work"/long.wav "$work"/folder/*.wav > /dev/null   # into the page cache for both meters
printf '\n%-30s %9s %9s %9s %9s %8s %8s\n' "Case" "vel wall" "vel cpu" "ff wall" "ff cpu" "wall x" "cpu x"
v=$(seconds "$velorum" analyze "$work/long.wav")
f=$(seconds bash -c 'ffmpeg_one "$0"' "$work/long.wav")
row "one ${long_min}-min file" "$v" "$f"

v1=$(seconds "$velorum" analyze -j 1 "$work/folder")
vn=$(seconds "$velorum" analyze -j "$cores" "$work/folder")
f=$(seconds bash -c 'ffmpeg_all "$0"' "$work/folder")
row "folder, velorum -j 1" "$v1" "$f"
row "folder, velorum -j $cores" "$vn" "$f"
printf '%-30s %9.2fx wall (ideal %dx)\n' "scaling -j $cores over -j 1" "$(echo "$(wall "$v1") / $(wall "$vn")" | bc -l)" "$cores"

audio=$(echo "$long_min * 60" | bc)
printf '%-30s %9.0fx real time (cpu)\n' "velorum on the long file" "$(echo "$audio / $(cpu "$v")" | bc -l)"

if [ -x /usr/bin/time ]; then
  rss_short=$(/usr/bin/time -f %M "$velorum" analyze "$work/short.wav" 2>&1 >/dev/null | tail -1)
  rss_long=$(/usr/bin/time -f %M "$velorum" analyze "$work/long.wav" 2>&1 >/dev/null | tail -1)
  printf '%-30s %9s KiB\n' "peak memory, 1-min file" "$rss_short"
  printf '%-30s %9s KiB (the history grows ~10 MB per hour)\n' "peak memory, ${long_min}-min file" "$rss_long"
fi

# The two meters agree on the long file.
echo
echo "Readings on the long file:"
"$velorum" analyze --json "$work/long.wav"
ffmpeg_one "$work/long.wav" 2>&1 | grep -E '^\s+(I|LRA|Peak):' | tr -s ' ' | paste -sd' '
