#!/usr/bin/env bash
# Batches of short files: "velorum analyze --json" with -j 1 and -j 2 on 50
# one-second files, against a shell loop of a minimal libebur128 file tool
# (bench/cli/ebur128_file.cpp: integrated, loudness range, true peak) over the
# same files, measured in the same run. Prints wall and CPU times (median of
# `runs`) and the CPU ratios; the target is velorum at 0.5x the loop or less.
# Usage: bench/cli/bench_short_files.sh [build dir] [files]   (runs=N, default 5)
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$here/build}
nfiles=${2:-50}
runs=${runs:-5}
velorum=$build/bin/velorum
peer=$build/bench/cli/ebur128_file
[ -x "$peer" ] || peer=$build/bin/ebur128_file
[ -x "$velorum" ] || { echo "no velorum at $velorum" >&2; exit 1; }
[ -x "$peer" ] || { echo "no ebur128_file: build the target ebur128_file" >&2; exit 1; }
work=$(mktemp -d /tmp/velorum-short-XXXXXX)
trap 'rm -rf "$work"' EXIT

for i in $(seq -w 1 "$nfiles"); do
  ffmpeg -nostdin -loglevel error -y -f lavfi -i "anoisesrc=d=1:c=pink:r=48000:a=0.2:s=$i" -ac 2 \
    -c:a pcm_s24le "$work/f$i.wav"
done

# Median over `runs` of "wall cpu" seconds (cpu: user + system of the
# command and its children). The machine may be shared, so the ratios use
# CPU time, which other load hardly changes; wall time is shown beside it.
median() {
  local rows=()
  for _ in $(seq "$runs"); do
    local out
    out=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null 2>&1; } 2>&1 )
    rows+=("$(echo "$out" | awk '{printf "%.3f %.3f", $1, $2 + $3}')")
  done
  printf '%s\n' "${rows[@]}" | sort -k2 -g | awk '{w[NR]=$1; c[NR]=$2} END {m=int((NR+1)/2); print w[m], c[m]}'
}

loop() { for f in "$work"/*.wav; do "$peer" "$f"; done; }
read -r peer_wall peer_cpu <<<"$(median loop)"
read -r j1_wall j1_cpu <<<"$(median "$velorum" analyze --json -q -j 1 "$work")"
read -r j2_wall j2_cpu <<<"$(median "$velorum" analyze --json -q -j 2 "$work")"
printf '%d one-second stereo files, median of %d runs (load average %s)\n' "$nfiles" "$runs" \
  "$(cut -d' ' -f1 /proc/loadavg)"
printf '  %-36s %8s %8s %s\n' "" "wall s" "cpu s" "cpu ratio to the loop"
printf '  %-36s %8.3f %8.3f\n' "libebur128 file tool, shell loop" "$peer_wall" "$peer_cpu"
printf '  %-36s %8.3f %8.3f %.2fx\n' "velorum analyze --json -j 1" "$j1_wall" "$j1_cpu" "$(echo "$j1_cpu / $peer_cpu" | bc -l)"
printf '  %-36s %8.3f %8.3f %.2fx\n' "velorum analyze --json -j 2" "$j2_wall" "$j2_cpu" "$(echo "$j2_cpu / $peer_cpu" | bc -l)"
