#!/usr/bin/env bash
# Whole-process time of `quillhaven preview` over every corpus .msg (one
# process per file, output to /dev/null), beside `cat` reading the same files
# the same way, measured in the same run; best of 3 for each. Reports both
# times and their ratio.
# Usage: bench/preview_vs_cat.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
mapfile -t files < <(find "$corpus/msg" -maxdepth 1 -type f -name '*.msg' | sort)
[ "${#files[@]}" -gt 0 ] || { echo "no .msg files under $corpus/msg" >&2; exit 2; }
bytes=$(cat "${files[@]}" | wc -c)

best_of_three() {  # prints the best wall time of three passes of "$@" FILE over every file
  local best="" start t
  for _ in 1 2 3; do
    start=$EPOCHREALTIME
    for f in "${files[@]}"; do "$@" "$f" >/dev/null; done
    t=$(awk -v a="$start" -v b="$EPOCHREALTIME" 'BEGIN { print b - a }')
    best=$(awk -v a="${best:-$t}" -v b="$t" 'BEGIN { print (b < a ? b : a) }')
  done
  echo "$best"
}
cat "${files[@]}" >/dev/null  # warm the page cache for both
preview=$(best_of_three "$qh" preview)
plain=$(best_of_three cat)
awk -v n="${#files[@]}" -v bytes="$bytes" -v p="$preview" -v c="$plain" 'BEGIN {
  printf "preview vs cat, one process per file: %d files, %.1f MB\n", n, bytes / 1e6
  printf "  quillhaven preview  %7.3f s  (%.2f ms per file)\n", p, p * 1000 / n
  printf "  cat                 %7.3f s  (%.2f ms per file)\n", c, c * 1000 / n
  printf "  ratio preview/cat   %7.2f\n", p / c
}'
