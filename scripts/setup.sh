#!/usr/bin/env bash
# Installs, with apt-get and only when missing, every Debian package that the
# build, the tests, the benchmarks and the Windows cross-build need.
# Safe to run again: it does nothing when everything is present.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config git clang-format
  # product libraries
  zlib1g-dev libpng-dev libfreetype-dev libcairo2-dev libx11-dev
  libsndfile1-dev libmpg123-dev libvorbis-dev libogg-dev libflac-dev
  fonts-roboto-unhinted fonts-open-sans libxtst-dev poppler-utils
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev
  # command-line options and JSON
  libcli11-dev nlohmann-json3-dev
  # the update check: curl's header (libcurl itself is opened at run time;
  # a machine without it only has no update check)
  libcurl4-openssl-dev
  # the graphs' OpenGL path (GLX through libepoxy) and Mesa's software GL for its tests
  libepoxy-dev libgl-dev libgl1-mesa-dri mesa-utils
  # tests, cross-checks and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev libebur128-dev ffmpeg espeak-ng sox
  xvfb xauth x11-utils
  # the local fuzz run (scripts/fuzz-reader.sh): clang with libFuzzer
  clang libclang-rt-14-dev
  # a debugger that reads the crash reports back
  lldb-14
  # Windows cross-build and its tests
  mingw-w64 g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64
  # Media Foundation under wine decodes through GStreamer (WAV, FLAC, MP3,
  # Opus, MP4 demuxing; AAC through the libav plug-in)
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-libav
)
# The speech classifier's training (engine/speech/train/train.sh) asks for
# its own tools with --training; the build and the tests never need them.
if [ "${1:-}" = "--training" ]; then
  packages+=(python3-numpy python3-torch)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
