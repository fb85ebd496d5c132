#!/usr/bin/env bash
# `quillhaven read` of many files in one process: the largest corpus .msg
# copied 200 times, JSON to /dev/null; reports GB/s of input (the least wall and CPU time of 5 runs),
# with every core, with one thread, and with one thread in the classic reading;
# also the CPU time (user + system), which
# stays meaningful on a machine that other work keeps busy.
# Usage: bench/read_many.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
copies="${QH_COPIES:-200}"
largest="$(find "$corpus/msg" -maxdepth 1 -type f -name '*.msg' -printf '%s\t%p\n' | sort -n | tail -n 1 | cut -f2)"
[ -n "$largest" ] || { echo "no .msg files under $corpus/msg" >&2; exit 2; }
for i in $(seq 1 "$copies"); do cp "$largest" "$work/copy$i.msg"; done
size=$(stat -c %s "$largest")
total=$((size * copies))

runs="${QH_RUNS:-5}"
best_of_runs() {  # prints "<wall> <cpu>": the least of each over $runs runs of "$qh" read "$@" <files>
  local best="" cpu_best="" start cpu_start t c
  for _ in $(seq 1 "$runs"); do
    children_cpu; cpu_start=$cpu start=$EPOCHREALTIME
    "$qh" read "$@" "$work"/copy*.msg >/dev/null
    t=$(awk -v a="$start" -v b="$EPOCHREALTIME" 'BEGIN { print b - a }')
    children_cpu; c=$(awk -v a="$cpu_start" -v b="$cpu" 'BEGIN { print b - a }')
    if [ -z "$best" ] || awk -v a="$t" -v b="$best" 'BEGIN { exit !(a < b) }'; then best=$t; fi
    if [ -z "$cpu_best" ] || awk -v a="$c" -v b="$cpu_best" 'BEGIN { exit !(a < b) }'; then cpu_best=$c; fi
  done
  echo "$best $cpu_best"
}
read -r all all_cpu < <(best_of_runs)
read -r one one_cpu < <(best_of_runs -j 1)
read -r classic classic_cpu < <(best_of_runs -j 1 --classic)
awk -v name="$(basename "$largest")" -v n="$copies" -v total="$total" -v all="$all" -v one="$one" \
    -v allc="$all_cpu" -v onec="$one_cpu" -v classic="$classic" -v classicc="$classic_cpu" -v cores="$(nproc)" -v load="$(cut -d' ' -f1 /proc/loadavg)" 'BEGIN {
  printf "read of many files in one process: %s x %d = %.1f MB (load average %s on %d cores)\n", name, n, total / 1e6, load, cores
  printf "  every core   %6.3f s wall  %6.2f GB/s   (aim: > 1 GB/s)   CPU %6.3f s: %5.2f GB/s per CPU second\n", all, total / all / 1e9, allc, total / allc / 1e9
  printf "  one thread   %6.3f s wall  %6.2f GB/s   (aim: > 1.5 GB/s) CPU %6.3f s: %5.2f GB/s per CPU second\n", one, total / one / 1e9, onec, total / onec / 1e9
  printf "  --classic    %6.3f s wall  %6.2f GB/s   one thread         CPU %6.3f s: %5.2f GB/s per CPU second\n", classic, total / classic / 1e9, classicc, total / classicc / 1e9
  printf "  default / --classic on one thread: %.2fx the wall time, %.2fx the CPU time (aim: within 1.10x)\n", one / classic, onec / classicc
}'
