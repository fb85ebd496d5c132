#!/usr/bin/env bash
# Installs what is missing, builds, and previews FILE (or the bundled sample).
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target quillhaven_cli >&2
file="${1:-samples/sample.msg}"
if [ ! -f "$file" ]; then
  ./build/quillhaven --help
  exit 0
fi
./build/quillhaven preview "$file"
