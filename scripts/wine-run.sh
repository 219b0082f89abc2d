#!/usr/bin/env bash
# Runs a Windows program under wine, headless and quiet, in the project's own
# wine prefix. "--init" only creates the prefix (done once before parallel runs).
set -euo pipefail
export WINEPREFIX=${VELORUM_WINEPREFIX:-$HOME/.cache/velorum/wine}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
wine=$(command -v wine64 || command -v wine || echo /usr/lib/wine/wine64)
mkdir -p "$(dirname "$WINEPREFIX")"
if [ "${1:-}" = "--init" ]; then
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    "$wine" wineboot -i >/dev/null 2>&1 || true
    wineserver -w 2>/dev/null || true
  fi
  exit 0
fi
exec "$wine" "$@"
