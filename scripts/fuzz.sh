#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) and runs each for a fixed
# time on its seeds in fuzz/corpus/<target>/; what it learns is kept in the
# build folder, never in the repository. Fails when any target finds a crash,
# a leak, undefined behaviour or an input slower than 10 s; the input is kept
# in <build>/findings/.
#   scripts/fuzz.sh [SECONDS per target, default 60] [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
./scripts/deps.sh all clang libclang-rt-14-dev

build=${KESTRINE_FUZZ_BUILD:-build/fuzz}
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKESTRINE_FUZZ=ON \
  -DKESTRINE_TESTS=OFF -DKESTRINE_BENCH=OFF -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON >/dev/null
cmake --build "$build" --target fuzz_targets

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in fuzz/fuzz_*.cpp; do
    t=$(basename "$f" .cpp)
    [ -x "$build/fuzz/$t" ] && targets+=("$t")
  done
fi

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
mkdir -p "$build/findings" "$build/logs"
failed=0
report=()
for t in "${targets[@]}"; do
  corpus="$build/corpus/$t"
  mkdir -p "$corpus"
  log="$build/logs/$t.log"
  rc=0
  "$build/fuzz/$t" "$corpus" "fuzz/corpus/$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$build/findings/$t-" >"$log" 2>&1 || rc=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n1)
  if [ "$rc" -eq 0 ]; then
    report+=("$(printf '%-20s %12s runs   no findings' "$t" "${runs:-?}")")
  else
    failed=1
    report+=("$(printf '%-20s %12s runs   FINDING (exit %s): see %s' "$t" "${runs:-?}" "$rc" "$log")")
    grep -E "ERROR|runtime error|SUMMARY|Test unit written" "$log" | head -n 8 || true
  fi
done
echo "fuzz: ${seconds} s per target"
printf 'fuzz: %s\n' "${report[@]}"
exit $failed
