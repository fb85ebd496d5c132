#!/usr/bin/env bash
# Installs what is missing, builds twice (plain, and with AddressSanitizer +
# UndefinedBehaviorSanitizer) and runs every test in both builds.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-test-deps.sh
jobs=$(nproc)

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
# Runs the tests of one build: on success the summary, on failure the whole
# log, with every failing test's own output in full.
run_tests() {
    local log="$1/ctest.log"
    if (cd "$1" && ctest --output-on-failure -j"$jobs") >"$log" 2>&1; then
        tail -n 40 "$log"
    else
        cat "$log"
        echo "tests failed in $1 (log: $log)" >&2
        return 1
    fi
}
status=0
run_tests build || status=1

export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
cmake -S . -B build-san -DCMAKE_BUILD_TYPE=Debug -DQH_SANITIZE=ON -DQH_BUILD_BENCH=OFF >/dev/null
cmake --build build-san -j"$jobs"
run_tests build-san || status=1
# CTest's summary lines of both builds, last, so that the run ends with them.
grep -h -E '^[0-9]+% tests passed' build/ctest.log build-san/ctest.log || true
exit $status
