#!/usr/bin/env bash
# `quillhaven convert` beside msgconvert (libemail-outlook-message-perl) over
# every corpus .msg, one process per file for both, in one run; reports the
# whole-process times and their ratio.
# Usage: bench/convert_vs_msgconvert.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
command -v msgconvert >/dev/null || { echo "msgconvert is not installed (libemail-outlook-message-perl)" >&2; exit 2; }
mapfile -t files < <(find "$corpus/msg" -maxdepth 1 -type f -name '*.msg' | sort)
[ "${#files[@]}" -gt 0 ] || { echo "no .msg files under $corpus/msg" >&2; exit 2; }

bytes=$(cat "${files[@]}" | wc -c)
qh_fail=0 mc_fail=0

children_cpu; cpu_start=$cpu start=$EPOCHREALTIME
for f in "${files[@]}"; do
  "$qh" convert -o "$work/q.eml" "$f" 2>/dev/null || qh_fail=$((qh_fail + 1))
done
end=$EPOCHREALTIME
children_cpu
qh_time=$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')
qh_cpu=$(awk -v a="$cpu_start" -v b="$cpu" 'BEGIN { print b - a }')

children_cpu; cpu_start=$cpu start=$EPOCHREALTIME
for f in "${files[@]}"; do
  msgconvert --outfile "$work/m.eml" "$f" >/dev/null 2>&1 || mc_fail=$((mc_fail + 1))
done
end=$EPOCHREALTIME
children_cpu
mc_time=$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')
mc_cpu=$(awk -v a="$cpu_start" -v b="$cpu" 'BEGIN { print b - a }')

awk -v n="${#files[@]}" -v bytes="$bytes" -v qt="$qh_time" -v mt="$mc_time" -v qc="$qh_cpu" -v mc="$mc_cpu" \
    -v qf="$qh_fail" -v mf="$mc_fail" -v load="$(cut -d' ' -f1 /proc/loadavg)" 'BEGIN {
  printf "convert vs msgconvert: %d .msg files, %.1f MB, one process per file (load average %s)\n", n, bytes / 1e6, load
  printf "  quillhaven convert  %8.3f s wall  %7.2f ms/file   CPU %8.3f s  (%d without a message)\n", qt, qt * 1000 / n, qc, qf
  printf "  msgconvert          %8.3f s wall  %7.2f ms/file   CPU %8.3f s  (%d failed)\n", mt, mt * 1000 / n, mc, mf
  printf "  ratio (msgconvert / quillhaven): %.1fx wall, %.1fx CPU   (aim: > 50x)\n", mt / qt, (qc > 0 ? mc / qc : 0)
}'
