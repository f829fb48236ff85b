#!/usr/bin/env bash
# Builds Kestrine with AddressSanitizer and UndefinedBehaviorSanitizer and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
build=${KESTRINE_TEST_BUILD:-build/asan}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKESTRINE_SANITIZE=ON >/dev/null
cmake --build "$build"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
