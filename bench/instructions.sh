#!/usr/bin/env bash
# Instructions executed by one-file commands and by their peers on the same
# file, counted by valgrind (callgrind): unlike times, the counts do not move
# with the machine's load, so a change's effect on start-up shows even on a
# busy machine. Kernel work (exec, page faults, writing files) is not counted.
# Usage: bench/instructions.sh [path/to/quillhaven]   (corpus: $QH_CORPUS or ../shared/corpus)
set -euo pipefail
source "$(dirname "$0")/common.sh"
command -v valgrind >/dev/null || { echo "valgrind is not installed" >&2; exit 2; }
qh="$(realpath "$qh")"
msg="$corpus/msg/hh-Simple.msg"
tnef="$corpus/tnef/mk-two-files.tnef"
eml="$corpus/eml/mk-simple-multipart.eml"

count() {  # instructions of "$@" run in $work/out, a fresh folder
  rm -rf "$work/out" && mkdir "$work/out"
  (cd "$work/out" && valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null) |
    awk '/refs:/ { gsub(",", "", $NF); print $NF }'
}
row() {  # label, then the command
  local label="$1"; shift
  printf "  %-38s %12s\n" "$label" "$(count "$@")"
}
echo "instructions per process (valgrind callgrind; $(basename "$qh") at $qh)"
row "quillhaven preview (.msg)" "$qh" preview "$msg"
row "cat (same file)" cat "$msg"
row "quillhaven convert (.msg)" "$qh" convert "$msg"
row "quillhaven convert --classic (.msg)" "$qh" convert --classic "$msg"
row "quillhaven read (.msg)" "$qh" read "$msg"
row "quillhaven attachments (TNEF)" "$qh" attachments -d . "$tnef"
command -v tnef >/dev/null && row "tnef -f (same file)" tnef -f "$tnef"
row "quillhaven read (.eml)" "$qh" read "$eml"
