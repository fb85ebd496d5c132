#!/usr/bin/env bash
# `quillhaven read` over the corpus .eml files, and over the .eml files that
# `quillhaven convert` makes of the corpus .msg files, beside Python's email
# parser on the same files in the same run (each file list read ROUNDS times
# in one process for both; Python walks every part and decodes its payload).
# Usage: bench/eml_vs_python.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
rounds="${QH_ROUNDS:-20}"

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

report() {  # label files...
  local label="$1" start bytes all one py list=()
  shift
  [ "$#" -gt 0 ] || { echo "$label: no files"; return; }
  for _ in $(seq 1 "$rounds"); do list+=("$@"); done
  bytes=$(cat "$@" | wc -c)
  start=$EPOCHREALTIME; "$qh" read "${list[@]}" >/dev/null || true; all=$(seconds_since "$start")
  start=$EPOCHREALTIME; "$qh" read -j 1 "${list[@]}" >/dev/null || true; one=$(seconds_since "$start")
  start=$EPOCHREALTIME; python_parse "$@"; py=$(seconds_since "$start")
  awk -v label="$label" -v n="$#" -v r="$rounds" -v b="$bytes" -v all="$all" -v one="$one" -v py="$py" 'BEGIN {
    mb = b * r / 1e6
    printf "%s: %d files, %.2f MB, read %d times\n", label, n, b / 1e6, r
    printf "  quillhaven read (every core)  %7.3f s  %8.1f MB/s\n", all, mb / all
    printf "  quillhaven read -j 1          %7.3f s  %8.1f MB/s\n", one, mb / one
    printf "  python3 email (one process)   %7.3f s  %8.1f MB/s   quillhaven -j 1 is %.1fx\n", py, mb / py, py / one
  }'
}

report "corpus .eml" "${corpus_eml[@]}"
report ".eml converted from the corpus .msg" "${converted[@]}"
