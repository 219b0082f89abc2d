#!/usr/bin/env bash
# Sets up, builds, and runs the main job: the velorum command measures its
# built-in default programme and prints the text summary.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh release
build/bin/velorum demo
