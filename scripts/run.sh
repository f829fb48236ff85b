#!/usr/bin/env bash
# Builds Kestrine and runs it. Until the desktop window lands, this runs the
# program on the built-in demonstration machine and shows what its window shows.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTRINE_TESTS=OFF -DKESTRINE_BENCH=OFF >/dev/null
cmake --build build/release --target kestrine-sim >/dev/null
exec build/release/tools/kestrine-sim --show "$@"
