#!/usr/bin/env bash
# Configures and builds one flavour of the project:
#   release  -> build/       (CLI, Linux VST2 plug-in, tests, benchmarks)
#   asan     -> build-asan/  (tests under AddressSanitizer + UBSan)
#   tsan     -> build-tsan/  (threading tests under ThreadSanitizer)
#   win      -> build-win/   (Windows VST2 DLL and its tests, mingw-w64)
set -euo pipefail
cd "$(dirname "$0")/.."
flavour=${1:-release}
jobs=${VELORUM_JOBS:-$(nproc)}
common=(-G Ninja -DCMAKE_BUILD_TYPE=Release)

case "$flavour" in
  release) dir=build; extra=() ;;
  asan)    dir=build-asan; extra=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELORUM_SANITIZE=address,undefined -DVELORUM_BENCH=OFF) ;;
  tsan)    dir=build-tsan; extra=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELORUM_SANITIZE=thread -DVELORUM_BENCH=OFF) ;;
  win)
    dir=build-win
    extra=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" -DVELORUM_BENCH=OFF)
    if [ -x scripts/build-mingw-deps.sh ]; then
      VELORUM_MINGW_PREFIX=$(scripts/build-mingw-deps.sh)
      export VELORUM_MINGW_PREFIX
      extra+=(-DVELORUM_MINGW_PREFIX="$VELORUM_MINGW_PREFIX")
    fi
    ;;
  *) echo "usage: $0 [release|asan|tsan|win]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" "${common[@]}" "${extra[@]}" >/dev/null
cmake --build "$dir" -j "$jobs" ${VELORUM_TARGETS:+--target $VELORUM_TARGETS}
