#!/usr/bin/env bash
# Accuracy and speed of "velorum normalize" against FFmpeg's two-pass
# loudnorm (linear mode, measured values fed to the second pass) on the same
# inputs, in one run. Accuracy is what FFmpeg's ebur128 filter reads on each
# output (integrated error from the target, true peak against the ceiling);
# speed is CPU time (user + system, children included), printed as ratios.
# Inputs: a dynamic mix (the gain alone reaches the target), a loud master
# that needs the limiter, and a long programme.
# Usage: bench/normalize/bench_normalize.sh [path/to/velorum] [long minutes]
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
velorum=${1:-$here/build/bin/velorum}
long_min=${2:-10}
work=$(mktemp -d /tmp/velorum-normbench-XXXXXX)
trap 'rm -rf "$work"' EXIT
command -v ffmpeg >/dev/null || { echo "ffmpeg is not installed" >&2; exit 1; }
[ -x "$velorum" ] || { echo "no velorum binary at $velorum" >&2; exit 1; }

ff() { ffmpeg -nostdin -hide_banner -loglevel error -y "$@"; }
# Pink noise with a kick-like pulse and level changes; "loud" squashes it.
make() { # seconds output extra-filter
  ff -f lavfi -i "anoisesrc=d=$1:c=pink:r=48000:a=0.3:s=11" -f lavfi -i "sine=f=60:d=$1:r=48000" \
    -filter_complex "[0][1]amix=inputs=2:weights=1 0.8,volume='0.5+0.45*sin(2*PI*t/7)':eval=frame$3,aformat=channel_layouts=stereo" \
    -c:a pcm_s24le "$2"
}
echo "Preparing inputs in $work ..."
make 180 "$work/dynamic.wav" ""
make 180 "$work/loud.wav" ",acompressor=threshold=0.05:ratio=12:attack=1:release=40:makeup=10"
make $((long_min * 60)) "$work/long.wav" ""

cpu() { # command... -> CPU seconds
  /usr/bin/time -o "$work/t" -f '%U %S' "$@" >/dev/null 2>&1 || true
  awk '{ printf "%.3f", $1 + $2 }' "$work/t"
}
reading() { # file -> "integrated truepeak"
  ffmpeg -nostdin -hide_banner -i "$1" -af ebur128=peak=true:framelog=verbose -f null - 2>&1 |
    awk '/I:/ { i = $2 } /Peak:/ { p = $2 } END { print i, p }'
}
loudnorm() { # in out target ceiling
  local json
  json=$(ffmpeg -nostdin -hide_banner -i "$1" -af "loudnorm=I=$3:TP=$4:LRA=50:print_format=json" -f null - 2>&1 |
    sed -n '/^{/,/^}/p')
  local mi mtp mlra mth off
  mi=$(echo "$json" | awk -F'"' '/input_i/ { print $4 }')
  mtp=$(echo "$json" | awk -F'"' '/input_tp/ { print $4 }')
  mlra=$(echo "$json" | awk -F'"' '/input_lra/ { print $4 }')
  mth=$(echo "$json" | awk -F'"' '/input_thresh/ { print $4 }')
  off=$(echo "$json" | awk -F'"' '/target_offset/ { print $4 }')
  ffmpeg -nostdin -hide_banner -loglevel error -y -i "$1" -af "loudnorm=I=$3:TP=$4:LRA=50:linear=true:measured_I=$mi:measured_TP=$mtp:measured_LRA=$mlra:measured_thresh=$mth:offset=$off" \
    -ar 48000 -c:a pcm_s24le "$2"
}
export -f loudnorm

printf '%-30s %-8s %9s %9s %9s %9s %8s\n' "case" "tool" "I err LU" "TP dBTP" "ceiling" "CPU s" "speed"
row() { # label target ceiling input velorum-options
  local label=$1 target=$2 ceiling=$3 in=$4 opts=$5
  local tv tf
  tv=$(cpu "$velorum" normalize --target "$target" --true-peak "$ceiling" $opts -y "$in" "$work/v.wav")
  tf=$(cpu bash -c "loudnorm '$in' '$work/f.wav' $target $ceiling")
  read -r vi vp < <(reading "$work/v.wav")
  read -r fi fp < <(reading "$work/f.wav")
  printf '%-30s %-8s %+9.2f %9.1f %9.1f %9.2f %7.1fx\n' "$label" velorum "$(echo "$vi - $target" | bc -l)" "$vp" "$ceiling" "$tv" \
    "$(echo "$tf / $tv" | bc -l)"
  printf '%-30s %-8s %+9.2f %9.1f %9.1f %9.2f %8s\n' "" loudnorm "$(echo "$fi - $target" | bc -l)" "$fp" "$ceiling" "$tf" "1.0x"
}
row "dynamic 3 min to -23" -23 -1 "$work/dynamic.wav" ""
row "dynamic 3 min to -14" -14 -1 "$work/dynamic.wav" "--limit"
row "loud master 3 min to -9" -9 -1 "$work/loud.wav" "--limit"
row "long ${long_min} min to -16" -16 -1 "$work/long.wav" "--limit"
echo "speed: FFmpeg's CPU time / velorum's (higher is faster). loudnorm's linear mode falls back to"
echo "its dynamic mode when the gain would exceed the ceiling, so both use a limiter in those rows."
