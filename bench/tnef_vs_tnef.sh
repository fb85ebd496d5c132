#!/usr/bin/env bash
# `quillhaven attachments` over the corpus TNEF files beside the `tnef`
# program (package tnef) extracting the same files, one process per file for
# both, each file ROUNDS times, in one run; reports whole-process times and
# their ratio.
# Usage: bench/tnef_vs_tnef.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
rounds="${QH_ROUNDS:-10}"
command -v tnef >/dev/null || { echo "tnef is not installed (package tnef)" >&2; exit 2; }
mapfile -t files < <(find "$corpus/tnef" -maxdepth 1 -type f \( -name '*.tnef' -o -name '*.dat' \) | sort)
[ "${#files[@]}" -gt 0 ] || { echo "no TNEF files under $corpus/tnef" >&2; exit 2; }
bytes=$(cat "${files[@]}" | wc -c)
# A fresh folder per run, made before the clocks start, so that only the extractors are timed.
for r in $(seq 1 "$rounds"); do
  for i in "${!files[@]}"; do mkdir -p "$work/q/$r-$i" "$work/t/$r-$i" "$work/f/$r-$i"; done
done
# The floor: a static C program that parses nothing and only reads each file
# and creates the files quillhaven writes for it (their sizes and names, taken
# from one untimed run), to show what process start and file creation cost here.
cc -O2 -static -o "$work/extract_floor" "$root/bench/extract_floor.c" 2>/dev/null ||
  cc -O2 -o "$work/extract_floor" "$root/bench/extract_floor.c"
for i in "${!files[@]}"; do
  mkdir -p "$work/plan/$i"
  "$qh" attachments -d "$work/plan/$i" "${files[$i]}" >"$work/plan/$i.txt" 2>/dev/null || true
done

# The three extractors take turns, a round of every file each, so that a
# change in the machine's load during the run falls on all three alike.
# EXTRACT FOLDER FILE INDEX runs one process; NAME_time, NAME_cpu and
# NAME_fail add up over the rounds.
ours() { "$qh" attachments -d "$1" "$2"; }
theirs() { tnef --overwrite -C "$1" -f "$2"; }
floor() { "$work/extract_floor" "$1" "$2" "$work/plan/$3.txt"; }
extractors=(qh:ours:q tn:theirs:t fl:floor:f)
for entry in "${extractors[@]}"; do
  name=${entry%%:*}
  printf -v "${name}_time" 0; printf -v "${name}_cpu" 0; printf -v "${name}_fail" 0
done
for r in $(seq 1 "$rounds"); do
  for entry in "${extractors[@]}"; do
    IFS=: read -r name extract folder <<<"$entry"
    fail=0
    children_cpu; cpu_start=$cpu start=$EPOCHREALTIME
    for i in "${!files[@]}"; do
      "$extract" "$work/$folder/$r-$i" "${files[$i]}" "$i" >/dev/null 2>&1 || fail=$((fail + 1))
    done
    end=$EPOCHREALTIME
    children_cpu
    time_var=${name}_time cpu_var=${name}_cpu fail_var=${name}_fail
    printf -v "$time_var" '%s' "$(awk -v t="${!time_var}" -v a="$start" -v b="$end" 'BEGIN { print t + b - a }')"
    printf -v "$cpu_var" '%s' "$(awk -v t="${!cpu_var}" -v a="$cpu_start" -v b="$cpu" 'BEGIN { print t + b - a }')"
    printf -v "$fail_var" '%s' "$((${!fail_var} + fail))"
  done
done

awk -v n="${#files[@]}" -v r="$rounds" -v bytes="$bytes" -v qt="$qh_time" -v tt="$tn_time" -v qc="$qh_cpu" -v tc="$tn_cpu" \
    -v qf="$qh_fail" -v tf="$tn_fail" -v ft="$fl_time" -v fc="$fl_cpu" -v ff="$fl_fail" \
    -v load="$(cut -d' ' -f1 /proc/loadavg)" 'BEGIN {
  runs = n * r
  printf "attachments vs tnef: %d TNEF files, %.2f MB, each extracted %d times, one process per file (load average %s)\n", n, bytes / 1e6, r, load
  printf "  quillhaven attachments  %7.3f s wall  %6.2f ms/file   CPU %7.3f s  (%d failed runs)\n", qt, qt * 1000 / runs, qc, qf
  printf "  tnef                    %7.3f s wall  %6.2f ms/file   CPU %7.3f s  (%d failed runs)\n", tt, tt * 1000 / runs, tc, tf
  printf "  floor (no parsing)      %7.3f s wall  %6.2f ms/file   CPU %7.3f s  (%d failed runs)\n", ft, ft * 1000 / runs, fc, ff
  printf "  ratio (tnef / quillhaven): %.2fx wall, %.2fx CPU (aim: 2x)\n", tt / qt, (qc > 0 ? tc / qc : 0)
  printf "  ratio (tnef / floor):      %.2fx wall, %.2fx CPU: no extractor can be faster than the floor here\n", tt / ft, (fc > 0 ? tc / fc : 0)
}'
