#!/usr/bin/env bash
# `quillhaven read` of many files in one process: the largest corpus .msg
# copied 200 times, JSON to /dev/null; reports GB/s of input (best of 3 runs),
# with every core and with one thread.
# Usage: bench/read_many.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
qh="${1:-$root/build/quillhaven}"
corpus="${QH_CORPUS:-$root/../shared/corpus}"
copies="${QH_COPIES:-200}"
[ -x "$qh" ] || { echo "no quillhaven at $qh: build it, or pass its path" >&2; exit 2; }
largest="$(find "$corpus/msg" -maxdepth 1 -type f -name '*.msg' -printf '%s\t%p\n' | sort -n | tail -n 1 | cut -f2)"
[ -n "$largest" ] || { echo "no .msg files under $corpus/msg" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
for i in $(seq 1 "$copies"); do cp "$largest" "$work/copy$i.msg"; done
size=$(stat -c %s "$largest")
total=$((size * copies))

best_of_three() {  # prints the best wall time of three runs of "$qh" read "$@" <files>
  local best="" start t
  for _ in 1 2 3; do
    start=$EPOCHREALTIME
    "$qh" read "$@" "$work"/copy*.msg >/dev/null
    t=$(awk -v a="$start" -v b="$EPOCHREALTIME" 'BEGIN { print b - a }')
    best=$(awk -v a="${best:-$t}" -v b="$t" 'BEGIN { print (b < a ? b : a) }')
  done
  echo "$best"
}
all=$(best_of_three)
one=$(best_of_three -j 1)
awk -v name="$(basename "$largest")" -v n="$copies" -v total="$total" -v all="$all" -v one="$one" -v cores="$(nproc)" 'BEGIN {
  printf "read of many files in one process: %s x %d = %.1f MB\n", name, n, total / 1e6
  printf "  every core (%d)  %7.3f s  %6.2f GB/s   (aim: > 1 GB/s)\n", cores, all, total / all / 1e9
  printf "  one thread     %7.3f s  %6.2f GB/s\n", one, total / one / 1e9
}'
