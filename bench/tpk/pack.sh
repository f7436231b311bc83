#!/usr/bin/env bash
# Packs the same trees with tpk and with zip, in alternating rounds at the same level, and prints the
# medians, their ratio to "zip -6", what came out and the memory it took.
#   bench/tpk/pack.sh [BIN] [ROUNDS]
# BIN is the directory of the built programs (build/release/bin), ROUNDS the rounds of each (5).
# About 3 GB of disk are used below TMPDIR and given back at the end.
set -euo pipefail

# shellcheck source=bench/rounds.sh
. "$(dirname "$0")/../rounds.sh"

# Each packs tree $1 into file $2.
run_zip() { (cd "$1" && measured zip -q -6 -r "$2" .); }
run_tpk() { measured "$bin/tpk" pack "$1" -o "$2" --level 6 -q; }

# Prints wall time in microseconds and peak memory in KiB, which is never less than that of Python.
measured() {
  python3 - "$@" <<'PYTHON'
import resource, subprocess, sys, time
start = time.perf_counter()
subprocess.run(sys.argv[1:], check=True, stderr=subprocess.DEVNULL)
print(int((time.perf_counter() - start) * 1e6),
      resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)
PYTHON
}

compare() {
  local name=$1 tree=$2 peer round time memory
  # Both find the tree in memory.
  find -L "$tree" -type f -exec cat {} + >/dev/null
  for ((round = 0; round < rounds; ++round)); do
    for peer in zip tpk; do
      rm -f "$work/out.$peer"
      sync
      read -r time memory < <("run_$peer" "$tree" "$work/out.$peer")
      echo "$time" >>"$name-$peer.times"
      echo "$memory" >>"$name-$peer.memory"
    done
  done
  printf '%-10s%12s%10s%12s%12s   (%s, %d rounds, medians)\n' "$name" "ms" "ratio" "MB packed" \
    "MB memory" "$(du -shL --apparent-size "$tree" | cut -f1), $(find -L "$tree" -type f | wc -l) files" \
    "$rounds"
  local base
  base=$(median "$name-zip.times")
  for peer in zip tpk; do
    paste -d' ' <(median "$name-$peer.times") <(stat -c %s "$work/out.$peer") \
      <(sort -n "$name-$peer.memory" | tail -n 1) |
      awk -v peer="$peer" -v base="$base" \
        '{ printf "%-10s%12.1f%10.3f%12.1f%12.1f\n", peer, $1 / 1e3, $1 / base, $2 / 1e6, $3 / 1024 }'
  done
}

for payload in large small; do
  mkdir "$payload"
  "$bin/install_driver" payload "$payload" "$payload"
  compare "$payload" "$work/$payload"
done
# A gigabyte, for the memory: the large payload three times over.
mkdir gigabyte
for copy in 1 2 3; do ln -s "$work/large" "gigabyte/$copy"; done
rounds=1 compare gigabyte "$work/gigabyte"
for tree in /usr/include /usr/share/zoneinfo; do
  [ ! -d "$tree" ] || compare "$(basename "$tree")" "$tree"
done
