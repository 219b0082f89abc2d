#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite: the release build, the
# sanitizer builds and the Windows build with its tests under wine.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
jobs=${VELORUM_JOBS:-$(nproc)}

# Every C and C++ file keeps the project's .clang-format.
scripts/check-format.sh

scripts/build.sh release
ctest --test-dir build --output-on-failure -j "$jobs"

scripts/build.sh asan
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan -L unit --output-on-failure -j "$jobs"

# Only the programs labelled "tsan" are built with ThreadSanitizer.
tsan_targets="velorum_engine_thread_tests plugin_concurrency_tests analysis_worker_test update_check_tests"
VELORUM_TARGETS="${VELORUM_TSAN_TARGETS:-$tsan_targets}" scripts/build.sh tsan
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  ctest --test-dir build-tsan -L tsan --output-on-failure -j "$jobs"

scripts/build.sh win
scripts/wine-run.sh --init
ctest --test-dir build-win --output-on-failure -j "$jobs"
