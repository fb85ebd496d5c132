#!/usr/bin/env bash
# `quillhaven convert` beside msgconvert (libemail-outlook-message-perl) over
# every corpus .msg, one process per file for all, in one run: the default
# writer (standards-conformant MIME of the complete reading) and the classic
# one (`--classic`), each against msgconvert; reports whole-process times and
# the ratios. Each quillhaven variant runs QH_RUNS times (default 3, taking
# turns, after one untimed pass that brings the binary and files into memory)
# and its medians are reported; msgconvert, a hundred times slower, once.
# Usage: bench/convert_vs_msgconvert.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
command -v msgconvert >/dev/null || { echo "msgconvert is not installed (libemail-outlook-message-perl)" >&2; exit 2; }
mapfile -t files < <(find "$corpus/msg" -maxdepth 1 -type f -name '*.msg' | sort)
[ "${#files[@]}" -gt 0 ] || { echo "no .msg files under $corpus/msg" >&2; exit 2; }

bytes=$(cat "${files[@]}" | wc -c)

# time_run NAME COMMAND...: runs COMMAND FILE for every file; sets NAME_time, NAME_cpu, NAME_fail.
time_run() {
  local name=$1 fail=0 start end cpu_start
  shift
  children_cpu; cpu_start=$cpu start=$EPOCHREALTIME
  for f in "${files[@]}"; do
    "$@" "$f" >/dev/null 2>&1 || fail=$((fail + 1))
  done
  end=$EPOCHREALTIME
  children_cpu
  printf -v "${name}_time" '%s' "$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')"
  printf -v "${name}_cpu" '%s' "$(awk -v a="$cpu_start" -v b="$cpu" 'BEGIN { print b - a }')"
  printf -v "${name}_fail" '%s' "$fail"
}

median() {  # numbers...: the middle one (the mean of the two middle ones for an even count)
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2) }'
}

runs="${QH_RUNS:-3}"
time_run warm "$qh" convert -o "$work/q.eml"
mime_times=() mime_cpus=() classic_times=() classic_cpus=()
for _ in $(seq 1 "$runs"); do
  time_run mime "$qh" convert -o "$work/q.eml"
  mime_times+=("$mime_time") mime_cpus+=("$mime_cpu")
  time_run classic "$qh" convert --classic -o "$work/c.eml"
  classic_times+=("$classic_time") classic_cpus+=("$classic_cpu")
done
mime_time=$(median "${mime_times[@]}") mime_cpu=$(median "${mime_cpus[@]}")
classic_time=$(median "${classic_times[@]}") classic_cpu=$(median "${classic_cpus[@]}")
time_run mc msgconvert --outfile "$work/m.eml"

awk -v n="${#files[@]}" -v bytes="$bytes" -v runs="$runs" -v load="$(cut -d' ' -f1 /proc/loadavg)" \
    -v qt="$mime_time" -v qc="$mime_cpu" -v qf="$mime_fail" \
    -v ct="$classic_time" -v cc="$classic_cpu" -v cf="$classic_fail" \
    -v mt="$mc_time" -v mc="$mc_cpu" -v mf="$mc_fail" 'BEGIN {
  printf "convert vs msgconvert: %d .msg files, %.1f MB, one process per file; quillhaven: medians of %d runs (load average %s)\n", n, bytes / 1e6, runs, load
  printf "  quillhaven convert            %8.3f s wall  %7.2f ms/file   CPU %8.3f s  (%d without a message)\n", qt, qt * 1000 / n, qc, qf
  printf "  quillhaven convert --classic  %8.3f s wall  %7.2f ms/file   CPU %8.3f s  (%d without a message)\n", ct, ct * 1000 / n, cc, cf
  printf "  msgconvert                    %8.3f s wall  %7.2f ms/file   CPU %8.3f s  (%d failed)\n", mt, mt * 1000 / n, mc, mf
  printf "  ratio (msgconvert / quillhaven), default writer: %.1fx wall, %.1fx CPU\n", mt / qt, (qc > 0 ? mc / qc : 0)
  printf "  ratio (msgconvert / quillhaven), --classic:      %.1fx wall, %.1fx CPU   (aim: > 50x)\n", mt / ct, (cc > 0 ? mc / cc : 0)
}'
