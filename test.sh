#!/usr/bin/env bash
# Installs what is missing, builds twice (plain, and with AddressSanitizer +
# UndefinedBehaviorSanitizer) and runs every test in both builds.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-test-deps.sh
jobs=$(nproc)

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs") | tail -n 40

export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
cmake -S . -B build-san -DCMAKE_BUILD_TYPE=Debug -DQH_SANITIZE=ON -DQH_BUILD_BENCH=OFF >/dev/null
cmake --build build-san -j"$jobs"
cd build-san && ctest --output-on-failure -j"$jobs"
