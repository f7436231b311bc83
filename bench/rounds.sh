# shellcheck shell=bash disable=SC2034
# What the scripts here share. Called with [BIN] [ROUNDS], they work in a new directory below TMPDIR,
# which is removed at the end.
set -euo pipefail
bin=$(cd "${1:-build/release/bin}" && pwd)
rounds=${2:-5}
work=$(mktemp -d "${TMPDIR:-/tmp}/quarn-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work/tmp
mkdir "$TMPDIR"
cd "$work"

# The median of a file with one number for each round.
median() { sort -n "$1" | sed -n "$(((rounds + 1) / 2))p"; }
