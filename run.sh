#!/usr/bin/env bash
# Shows FILE (or the bundled sample) as a person reads it. Installs only what
# building and running need (the test tools come with ./test.sh) and builds
# only the command, in build-run/.
#  - On a terminal: a short header block and the message's text, and the path
#    of the HTML page of the message (quillhaven view) written beside it.
#  - Piped: the preview's bytes (RTF or text), as `quillhaven preview` gives them.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-deps.sh
build=build-run
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
    -DQH_BUILD_TESTS=OFF -DQH_BUILD_BENCH=OFF >/dev/null
fi
command="$build/quillhaven"
if [ ! -x "$command" ]; then
  echo "Building quillhaven in $build/ (the first time takes a minute or two)..." >&2
fi
if ! cmake --build "$build" -j"$(nproc)" --target quillhaven_cli >"$build/build.log" 2>&1; then
  cat "$build/build.log" >&2
  exit 1
fi

file="${1:-samples/sample.msg}"
if [ ! -f "$file" ]; then
  "$command" --help
  exit 0
fi
if [ ! -t 1 ]; then
  exec "$command" preview "$file"
fi
"$command" view --text "$file"
mkdir -p "$build/pages"
page="$build/pages/$(basename "$file").html"
"$command" view -o "$page" "$file"
printf '\nThe whole message as a page: %s\n' "$(realpath "$page")"
