#!/usr/bin/env bash
# Builds Kestrine and starts its window on this computer's drives. Without a
# display ($DISPLAY or $WAYLAND_DISPLAY) it says so in one line and prints the
# drive list the window would show. The build shows its progress and errors.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh run
echo "run: building Kestrine in build/release (the first build takes a few minutes)"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTRINE_TESTS=OFF -DKESTRINE_BENCH=OFF >/dev/null
cmake --build build/release --target kestrine kestrinectl kestrine-sim
exec build/release/tools/kestrine "$@"
