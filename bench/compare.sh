#!/usr/bin/env bash
# Builds Kestrine for release into build/bench and puts it beside the
# system's own tools in one run (bench/compare.py: listing beside lsblk, the
# reaction to a mount beside findmnt --poll, idle wake-ups, the close wait's
# CPU time). Needs root for its loop drives. For information: the figures
# depend on the machine and its load, and nothing here passes or fails.
#   bench/compare.sh [--runs N] [--cycles N] [--idle SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DKESTRINE_TESTS=OFF >/dev/null
cmake --build build/bench --target kestrinectl kestrine kestrine_wait_bench
exec python3 bench/compare.py --build build/bench "$@"
