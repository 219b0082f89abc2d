#!/usr/bin/env bash
# Builds the speech / music / effects corpus that trains and evaluates the
# speech classifier, from recordings that Debian packages carry.
#
#   prepare-data.sh [cache-dir]      (default: $VELORUM_SPEECH_DATA or
#                                     $HOME/.cache/velorum/speech-data)
#
# Steps: apt-get download of the packages below into <cache>/debs, dpkg -x into
# <cache>/x, and every usable sound decoded by the ffmpeg command-line tool to
# 16 kHz mono signed 16-bit raw files under <cache>/pcm. The result is listed in
# <cache>/manifest.txt, one line per file:  <class> <group> <pcm path>
# with class speech, music or effects. The group names the speaker set (source
# and language, and for the dialogue recordings also the level), so that the
# training program can keep whole groups on one side of the train/evaluation
# split. Nothing here is needed by the unit tests. Safe to run again: decoded
# files are kept and only missing ones are made.
set -euo pipefail

cache=${1:-${VELORUM_SPEECH_DATA:-$HOME/.cache/velorum/speech-data}}
mkdir -p "$cache/debs" "$cache/x" "$cache/pcm"

packages=(
  # recorded human speech
  fillets-ng-data fillets-ng-data-cs fillets-ng-data-nl ktuberling-data klettres-data
  # music and sound effects of games
  wesnoth-1.16-music wesnoth-1.16-data extremetuxracer-data frozen-bubble-data
  pingus-data tuxtype-data supertux-data
)

for p in "${packages[@]}"; do
  if ! ls "$cache/debs/${p}"_*.deb >/dev/null 2>&1; then
    (cd "$cache/debs" && apt-get download "$p" >/dev/null 2>&1) || {
      echo "prepare-data: cannot download $p" >&2; exit 1; }
  fi
  if [ ! -d "$cache/x/$p" ]; then
    mkdir -p "$cache/x/$p.tmp"
    dpkg -x "$cache/debs/${p}"_*.deb "$cache/x/$p.tmp"
    mv "$cache/x/$p.tmp" "$cache/x/$p"
  fi
done

list="$cache/list.tmp"
: > "$list"
add() { # class group file
  printf '%s\t%s\t%s\n' "$1" "$2" "$3" >> "$list"
}

x="$cache/x"
# --- speech -----------------------------------------------------------------
# Fish Fillets dialogues: acted sentences in English, Czech and Dutch; grouped by
# level and language (a level's lines are never split between train and test).
for lang in en cs nl; do
  while IFS= read -r f; do
    d=${f%/*}; d=${d%/*}; level=${d##*/}
    add speech "fillets-$lang-$level" "$f"
  done < <(find "$x"/fillets-ng-data* -path "*/sound/*/$lang/*.ogg" | sort)
done
# KTuberling: single spoken words, one speaker per language.
while IFS= read -r f; do
  d=${f%/*}; lang=${d##*/}
  add speech "ktuberling-$lang" "$f"
done < <(find "$x/ktuberling-data" -path '*/sounds/*' \( -name '*.ogg' -o -name '*.wav' -o -name '*.opus' \) | sort)
# KLettres: spoken letters and syllables, one speaker set per language.
while IFS= read -r f; do
  d=${f%/*}; d=${d%/*}; lang=${d##*/}
  add speech "klettres-$lang" "$f"
done < <(find "$x/klettres-data" -name '*.ogg' | sort)

# --- music ------------------------------------------------------------------
while IFS= read -r f; do add music "music-${f##*/}" "$f"; done < <(
  { find "$x/wesnoth-1.16-music" -name '*.ogg'
    find "$x/fillets-ng-data" -path '*/music/*.ogg'
    find "$x/extremetuxracer-data" -path '*/music/*.ogg'
    find "$x/frozen-bubble-data" -name '*zik*.ogg'
    find "$x/tuxtype-data" \( -name '*.mod' -o -name 'amidst_the_raindrops.ogg' -o -name 'chiptune2.ogg' \)
    find "$x/pingus-data" -path '*/music/*' \( -name '*.it' -o -name '*.ogg' -o -name '*.s3m' -o -name '*.xm' \)
    find "$x/supertux-data" -path '*/music/*' -name '*.ogg'
  } | sort)

# --- effects ----------------------------------------------------------------
# Sound effects and ambiences; the few sounds that are spoken words or
# vocalisations (pingus' shouts, tuxtype's "excuse me", wesnoth's unit voices
# and death cries) are left out.
while IFS= read -r f; do
  src=${f#"$x/"}; src=${src%%/*}; base=${f##*/}
  add effects "effects-$src-${base:0:3}" "$f"
done < <(
  { find "$x/extremetuxracer-data" -path '*/sounds/*.wav'
    find "$x/frozen-bubble-data" -path '*/snd/*.ogg' ! -name '*zik*'
    find "$x/tuxtype-data" -path '*/sounds/*' -name '*.wav' ! -name 'excuseme.wav' ! -name 'cheer.wav'
    find "$x/pingus-data" -path '*/sounds/*.wav' ! -name 'letsgo.wav' ! -name 'yipee.wav' \
      ! -name 'ohno.wav' ! -name 'goodidea.wav'
    find "$x/fillets-ng-data" -path '*/sound/share/*.ogg'
    find "$x/wesnoth-1.16-data" -path '*/sounds/*' \( -name '*.ogg' -o -name '*.wav' \) \
      ! -path '*/sounds/voice*' ! -name '*die*' ! -name '*hit*' ! -name '*human*' ! -name '*elf*' \
      ! -name '*orc*' ! -name '*dwarf*' ! -name '*troll*' ! -name '*goblin*' ! -name '*ugg*' \
      ! -name '*mermen*' ! -name '*naga*' ! -name '*lizard*' ! -name '*wose*' ! -name '*ogre*' \
      ! -name '*giant*' ! -name '*drake*' ! -name '*yell*' ! -name '*grunt*' ! -name '*scream*' \
      ! -name '*laugh*' ! -name '*cry*' ! -name '*ghost*' ! -name '*wail*' ! -name '*groan*' \
      ! -name '*female*' ! -name '*male*'
    find "$x/supertux-data" -path '*/sounds/*' \( -name '*.ogg' -o -name '*.wav' \)
  } | sort)

# --- decode -----------------------------------------------------------------
manifest="$cache/manifest.txt"
: > "$manifest.tmp"
todo="$cache/todo.tmp"
: > "$todo"
declare -A seen=()
while IFS=$'\t' read -r class group f; do
  rel=${f#"$x/"}
  out="$cache/pcm/${rel%.*}.raw"
  # The same sound shipped in two formats (name.ogg and name.wav): keep one.
  [ -n "${seen[$out]:-}" ] && continue
  seen[$out]=1
  printf '%s %s %s\n' "$class" "$group" "$out" >> "$manifest.tmp"
  [ -s "$out" ] || printf '%s\t%s\n' "$f" "$out" >> "$todo"
done < "$list"

# ffmpeg decodes a batch of files per run (many inputs, one output each): far
# cheaper than one process per short clip. A batch that fails as a whole is
# retried file by file; a file that cannot be decoded is left empty.
decode_batch() {
  local batch=$1 args=() outs=() i=0 in out
  while IFS=$'\t' read -r in out; do
    mkdir -p "${out%/*}"
    args+=(-i "$in")
    outs+=(-map "$i:a:0" -ac 1 -ar 16000 -f s16le "$out.part")
    i=$((i + 1))
  done < "$batch"
  if ffmpeg -nostdin -v error -y "${args[@]}" "${outs[@]}" 2>/dev/null; then
    while IFS=$'\t' read -r in out; do mv "$out.part" "$out"; done < "$batch"
  else
    while IFS=$'\t' read -r in out; do
      ffmpeg -nostdin -v error -y -i "$in" -vn -ac 1 -ar 16000 -f s16le "$out.part" 2>/dev/null \
        && mv "$out.part" "$out" || { rm -f "$out.part"; : > "$out"; }
    done < "$batch"
  fi
  rm -f "$batch"
}
export -f decode_batch
if [ -s "$todo" ]; then
  echo "prepare-data: decoding $(wc -l < "$todo") files" >&2
  rm -rf "$cache/batches" && mkdir -p "$cache/batches"
  split -l 40 -d -a 4 "$todo" "$cache/batches/b"
  find "$cache/batches" -type f -print0 | xargs -0 -P 2 -n 1 bash -c 'decode_batch "$1"' _
  rmdir "$cache/batches"
fi
# Files that failed to decode (empty) are dropped from the manifest.
while read -r class group out; do
  [ -s "$out" ] && printf '%s %s %s\n' "$class" "$group" "$out"
done < "$manifest.tmp" > "$manifest"
rm -f "$manifest.tmp" "$todo" "$list"
echo "prepare-data: $(grep -c '^speech' "$manifest") speech, $(grep -c '^music' "$manifest") music," \
  "$(grep -c '^effects' "$manifest") effects files in $manifest" >&2
