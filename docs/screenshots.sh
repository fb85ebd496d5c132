#!/usr/bin/env bash
# Remakes the view screenshots in docs/ from corpus messages with headless
# chromium, offline: ./docs/screenshots.sh [path/to/quillhaven]
set -euo pipefail
cd "$(dirname "$0")/.."
command="${1:-build/quillhaven}"
corpus="${QH_CORPUS_DIR:-../shared/corpus}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
offline=""
if unshare -n true 2>/dev/null; then offline="unshare -n"; fi
shoot() {  # corpus file, picture name, height
  "$command" view -o "$work/$2.html" "$corpus/$1"
  $offline chromium --headless --no-sandbox --disable-gpu --hide-scrollbars --no-first-run \
    --user-data-dir="$work/profile" --proxy-server=127.0.0.1:9 --host-resolver-rules='MAP * ~NOTFOUND' \
    --window-size=1000,"$3" --screenshot="docs/$2.png" "file://$work/$2.html" 2>/dev/null
}
shoot msg/omp-embedded_image.msg view-msg-inline-image 720
shoot eml/msgr-TestWithAttachments.eml view-eml-forward 720
shoot tnef/poi-quick-winmail.dat view-tnef-attachments 720
