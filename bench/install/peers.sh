#!/usr/bin/env bash
# Installs the same payloads with the engine and with the archivers that are there, in alternating
# rounds, and prints the medians and their ratios to "unzip -o".
#   bench/install/peers.sh [BIN] [ROUNDS]
# BIN is the directory of the built programs (build/release/bin), ROUNDS the rounds of each (5).
# About 20 GB of disk are used below TMPDIR and given back at the end.
#
# So that figures mean something:
# - targets are new in every round and only truncated after it, because ext4 steps over inodes
#   that were freed in the last minute, which slows runs of small files 15 times;
# - memory is touched and freed before each run, because a virtual machine that gave it back makes
#   the next one wait for it;
# - what is still to be written is written before each run.
set -euo pipefail

# shellcheck source=bench/rounds.sh
. "$(dirname "$0")/../rounds.sh"

have() { command -v "$1" >/dev/null; }

# Each peer is a function: it unpacks payload $1 into the new directory $2.
run_unzip() { unzip -q -o "$1.zip" -d "$2"; }
run_bsdtar() { bsdtar -xf "$1.zip" -C "$2"; }
run_7z() { 7z x -y -bd "-o$2" "$1.zip" >/dev/null; }
run_makeself() { "./$1.run" --quiet --noexec --nodiskspace --target "$2" >/dev/null; }
run_tpk() { "$bin/tpk" install "$1.tpk" --to "$2" >/dev/null; }
run_direct() { "$bin/install_driver" direct "$1.tpk" "$2"; }
run_ordinary() { "$bin/install_driver" ordinary "$1.tpk" "$2"; }

prepare() {
  mkdir "$1"
  "$bin/install_driver" payload "$1" "$1"
  "$bin/install_driver" pack "$1" "$1.tpk"
  (cd "$1" && zip -q -6 -r "../$1.zip" .)
  if have makeself; then
    makeself --quiet --gzip --complevel 6 "$1" "$1.run" payload true
  fi
  du -sb "$1" "$1.tpk" "$1.zip" | sed 's/^/  /'
}

# compare PAYLOAD PEER...
compare() {
  local payload=$1 peer round start end
  shift
  for ((round = 0; round < rounds; ++round)); do
    for peer in "$@"; do
      local target=$work/$payload-$peer-$round
      mkdir "$target"
      sync
      "$bin/install_driver" warm 1600000000
      start=$EPOCHREALTIME
      "run_$peer" "$payload" "$target"
      end=$EPOCHREALTIME
      echo $((${end/./} - ${start/./})) >>"$payload-$peer.times"
      ((round > 0)) || diff -r "$payload" "$target"
      find "$target" "$TMPDIR" -type f -exec truncate -s 0 {} +
    done
  done
  local base
  base=$(median "$payload-unzip.times")
  printf '%-10s%12s%10s   (%s, %d rounds, medians)\n' "$payload" "ms" "ratio" "1 = unzip -o" "$rounds"
  for peer in "$@"; do
    median "$payload-$peer.times" |
      awk -v peer="$peer" -v base="$base" '{ printf "%-10s%12.1f%10.3f\n", peer, $1 / 1000, $1 / base }'
  done
}

peers=(unzip)
for peer in bsdtar 7z makeself; do
  if have "$peer"; then peers+=("$peer"); fi
done
engine=(direct)
if [ -x "$bin/tpk" ]; then engine+=(tpk); fi

prepare large
compare large "${peers[@]}" "${engine[@]}" ordinary
prepare small
compare small "${peers[@]}" "${engine[@]}"
