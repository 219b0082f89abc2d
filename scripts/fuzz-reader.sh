#!/usr/bin/env bash
# A longer fuzz run of the file reader than the suite's: ROUNDS corpora of
# COUNT mutations per seed file (see tests/analysis/FuzzCorpusMaker.cpp), each
# with a seed of its own, read by the sanitizer build's reader fuzz test.
# Stops at the first failure and keeps that corpus for a look.
#   scripts/fuzz-reader.sh [ROUNDS=20] [COUNT=200] [FIRST_SEED=1000]
set -euo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-20}
count=${2:-200}
first=${3:-1000}
VELORUM_TARGETS="velorum_fuzz_corpus analysis_fuzz_test" nice -n 10 scripts/build.sh asan
work=$(mktemp -d "${TMPDIR:-/tmp}/velorum-fuzz.XXXXXX")
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
for ((seed = first; seed < first + rounds; ++seed)); do
  corpus="$work/seed-$seed"
  build-asan/bin/velorum_fuzz_corpus "$corpus" "$seed" "$count" >/dev/null
  if ! VELORUM_FUZZ_CORPUS="$corpus" nice -n 10 build-asan/bin/analysis_fuzz_test >"$corpus.log" 2>&1; then
    echo "fuzz-reader: seed $seed failed; corpus kept in $corpus, log in $corpus.log" >&2
    exit 1
  fi
  echo "fuzz-reader: seed $seed: $(ls "$corpus" | wc -l) files read"
  rm -rf "$corpus" "$corpus.log"
done
rmdir "$work"
echo "fuzz-reader: $rounds rounds passed"
