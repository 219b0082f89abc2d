#!/usr/bin/env bash
# Fails when a tracked C or C++ file differs from what the project's
# .clang-format makes of it; with --fix, formats those files in place.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.c' '*.cpp' '*.h' '*.hpp')
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
if ! report=$(clang-format --dry-run --Werror "${files[@]}" 2>&1); then
  echo "check-format: these files differ from .clang-format (scripts/check-format.sh --fix formats them):" >&2
  printf '%s\n' "$report" | grep -o '^[^:]*:[0-9]*:[0-9]*: error' | cut -d: -f1 | sort -u | sed 's/^/  /' >&2
  exit 1
fi
echo "check-format: ${#files[@]} files follow .clang-format"
