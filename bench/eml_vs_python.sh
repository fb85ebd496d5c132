#!/usr/bin/env bash
# `quillhaven read` over the corpus .eml files, and over the .eml files that
# `quillhaven convert` makes of the corpus .msg files, beside Python's email
# parser on the same files in the same run (each file list read ROUNDS times
# in one process for both; Python walks every part and decodes its payload).
# Each of the three is run QH_RUNS times (default 5), taking turns, and the
# medians are reported, so that one hiccup of the machine moves no figure.
# Usage: bench/eml_vs_python.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
rounds="${QH_ROUNDS:-20}"
runs="${QH_RUNS:-5}"

mapfile -t corpus_eml < <(find "$corpus/eml" -maxdepth 1 -type f -name '*.eml' | sort)
mapfile -t corpus_msg < <(find "$corpus/msg" -maxdepth 1 -type f -name '*.msg' | sort)
"$qh" convert -d "$work/converted" "${corpus_msg[@]}" >/dev/null || true
mapfile -t converted < <(find "$work/converted" -maxdepth 1 -type f -name '*.eml' | sort)

seconds_since() { awk -v a="$1" -v b="$EPOCHREALTIME" 'BEGIN { print b - a }'; }

python_parse() {  # files...
  python3 - "$rounds" "$@" <<'PY'
import email, sys
rounds, files = int(sys.argv[1]), sys.argv[2:]
for _ in range(rounds):
    for name in files:
        with open(name, 'rb') as f:
            message = email.message_from_binary_file(f)
        for part in message.walk():
            part.get_payload(decode=True)
PY
}

timed() {  # runs "$@"; sets took (wall seconds) and took_cpu (CPU seconds, user + system)
  local start cpu_start
  children_cpu; cpu_start=$cpu start=$EPOCHREALTIME
  "$@"
  took=$(seconds_since "$start")
  children_cpu; took_cpu=$(awk -v a="$cpu_start" -v b="$cpu" 'BEGIN { print b - a }')
}

median() {  # numbers...: the middle one (the mean of the two middle ones for an even count)
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2) }'
}

report() {  # label files...
  local label="$1" bytes all one py all_cpu one_cpu py_cpu list=()
  shift
  [ "$#" -gt 0 ] || { echo "$label: no files"; return; }
  for _ in $(seq 1 "$rounds"); do list+=("$@"); done
  bytes=$(cat "$@" | wc -c)
  local alls=() all_cpus=() ones=() one_cpus=() pys=() py_cpus=()
  for _ in $(seq 1 "$runs"); do
    timed "$qh" read "${list[@]}" >/dev/null || true; alls+=("$took") all_cpus+=("$took_cpu")
    timed "$qh" read -j 1 "${list[@]}" >/dev/null || true; ones+=("$took") one_cpus+=("$took_cpu")
    timed python_parse "$@"; pys+=("$took") py_cpus+=("$took_cpu")
  done
  all=$(median "${alls[@]}") all_cpu=$(median "${all_cpus[@]}")
  one=$(median "${ones[@]}") one_cpu=$(median "${one_cpus[@]}")
  py=$(median "${pys[@]}") py_cpu=$(median "${py_cpus[@]}")
  awk -v label="$label" -v n="$#" -v r="$rounds" -v runs="$runs" -v b="$bytes" -v all="$all" -v one="$one" -v py="$py" \
      -v allc="$all_cpu" -v onec="$one_cpu" -v pyc="$py_cpu" -v load="$(cut -d' ' -f1 /proc/loadavg)" 'BEGIN {
    mb = b * r / 1e6
    printf "%s: %d files, %.2f MB, read %d times; medians of %d runs (load average %s)\n", label, n, b / 1e6, r, runs, load
    printf "  quillhaven read (every core)  %7.3f s wall %8.1f MB/s   CPU %7.3f s\n", all, mb / all, allc
    printf "  quillhaven read -j 1          %7.3f s wall %8.1f MB/s   CPU %7.3f s\n", one, mb / one, onec
    printf "  python3 email (one process)   %7.3f s wall %8.1f MB/s   CPU %7.3f s\n", py, mb / py, pyc
    printf "  quillhaven -j 1 is %.1fx faster in wall time, %.1fx in CPU time (aim: 20x)\n", py / one, (onec > 0 ? pyc / onec : 0)
  }'
}

report "corpus .eml" "${corpus_eml[@]}"
report ".eml converted from the corpus .msg" "${converted[@]}"
