#!/usr/bin/env bash
# Trains the speech classifier from Debian-packaged recordings and rewrites
# engine/speech/SpeechModelWeights.cpp:
#
#   engine/speech/train/train.sh <build-dir> [minutes | steps=N]
#
# 1. prepare-data.sh: downloads and decodes the recordings into the cache
#    ($VELORUM_SPEECH_DATA or ~/.cache/velorum/speech-data);
# 2. make-mixtures.py: the training and evaluation streams;
# 3. velorum_speech_frames: the model inputs of every training stream, by the
#    product's own code (built in <build-dir>);
# 4. train.py: torch on one thread, for the given time budget (default 25 min)
#    or an exact number of steps (steps=N: repeatable; the committed table came
#    from a 22-minute budget, 10 883 steps).
# Everything runs at low priority; only the weight table lands in the tree.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
"$here/../../../scripts/setup.sh" --training
build=${1:?usage: train.sh <build-dir> [minutes]}
budget=${2:-25}
cache=${VELORUM_SPEECH_DATA:-$HOME/.cache/velorum/speech-data}
export VELORUM_SPEECH_DATA=$cache
nice -n 15 "$here/prepare-data.sh" "$cache"
nice -n 15 /usr/bin/python3 "$here/make-mixtures.py" "$cache"
cmake --build "$build" --target velorum_speech_frames >/dev/null
nice -n 15 "$build/bin/velorum_speech_frames" train "$cache"
case "$budget" in
  steps=*) args=(--steps "${budget#steps=}") ;;
  *) args=(--minutes "$budget") ;;
esac
nice -n 15 /usr/bin/python3 "$here/train.py" --cache "$cache" "${args[@]}"
