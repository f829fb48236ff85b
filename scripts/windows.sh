#!/usr/bin/env bash
# Cross-builds Kestrine.exe and its backend tests with MinGW-w64 into
# build/win, then, under Wine on a virtual X display, runs the tests and a
# smoke run of the program (its window, size, a screenshot, a second start,
# Escape and the settings file). A fresh Wine prefix is made in the build
# folder for each run and deleted afterwards.
#   scripts/windows.sh            build, test, smoke run
#   scripts/windows.sh --build    build only
set -euo pipefail
cd "$(dirname "$0")/.."
build=${KESTRINE_WIN_BUILD:-build/win}

if [ "${1:-}" != "--inner" ]; then
  ./scripts/deps-windows.sh
  cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
    -DCMAKE_BUILD_TYPE=Release -DKESTRINE_BENCH=OFF >/dev/null
  cmake --build "$build"
  [ "${1:-}" = "--build" ] && exit 0
  exec xvfb-run -a -s "-screen 0 1280x1024x24" "$0" --inner
fi

# --- inside the virtual display ---
root=$(pwd)
export WINEPREFIX="$root/$build/wineprefix" WINEARCH=win64 WINEDEBUG=-all
# No Mono or Gecko prompts; a crash ends the program with a failure instead of
# a debugger that exits 0.
export WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d"
rm -rf "$WINEPREFIX"
cleanup() {
  wineserver -k 2>/dev/null || true
  rm -rf "$WINEPREFIX"
}
trap cleanup EXIT

echo "== Wine prefix"
wineboot --init >/dev/null 2>&1
wineserver -w
mkdir -p "$WINEPREFIX/drive_c/windows/Fonts"
cp /usr/share/wine/fonts/*.ttf "$WINEPREFIX/drive_c/windows/Fonts/"
# One server for every Wine process of the run (each start costs seconds
# without it), and the prefix's own services started with their output away
# from the test runner's pipes.
wineserver -p
wine cmd.exe /c exit >/dev/null 2>&1 </dev/null

echo "== Windows tests under Wine"
ctest --test-dir "$build" --output-on-failure --timeout 120

echo "== kestrinectl.exe under Wine: each command, its output and exit code"
ctl="$root/$build/tools/kestrinectl.exe"
# Runs kestrinectl.exe; its output (without carriage returns, and without Wine's
# own "wine: ..." notes about its Z: drive) goes to the log,
# and the exit code must be the one expected.
expect_ctl() {
  local want=$1 code
  shift
  echo "  \$ kestrinectl $* (expecting exit code $want)"
  set +e
  wine "$ctl" "$@" >"$root/$build/ctl.out" 2>"$root/$build/ctl.err"
  code=$?
  set -e
  tr -d '\r' <"$root/$build/ctl.out" | sed 's/^/    /'
  tr -d '\r' <"$root/$build/ctl.err" | grep -v '^wine: ' | sed 's/^/    (stderr) /' || true
  [ "$code" -eq "$want" ] || { echo "kestrinectl $*: exit code $code, expected $want" >&2; exit 1; }
}
expect_ctl 0 list
grep -q '^C:\\' "$root/$build/ctl.out" || { echo "kestrinectl list: no C:\\ row" >&2; exit 1; }
expect_ctl 0 list --json
tr -d '\r' <"$root/$build/ctl.out" | python3 -c 'import json,sys; d=json.load(sys.stdin); assert d["version"]==1 and any(x["root"]=="C:\\" for x in d["drives"]), d'
expect_ctl 0 list --usb
expect_ctl 0 serial C:
expect_ctl 0 who C: --json
expect_ctl 5 release C:
grep -q 'C:\\ is the system drive' "$root/$build/ctl.err" || { echo "release C: did not name the system drive" >&2; exit 1; }
expect_ctl 3 release Q:
expect_ctl 4 release Z:
expect_ctl 3 release --all-usb --json
expect_ctl 2 frob
expect_ctl 0 watch --help

echo "== smoke run of Kestrine.exe"
caption="Kestrine  [ no USB device found on this computer ]"
smoke="$root/$build/smoke"
rm -rf "$smoke"
mkdir -p "$smoke"
cp "$build/tools/kestrine-win/Kestrine.exe" "$smoke/"
probe="$root/$build/tests/win32/kestrine-probe.exe"
shot="$root/$build/kestrine-smoke.png"

fail() {
  echo "smoke: $*" >&2
  exit 1
}

(cd "$smoke" && exec wine Kestrine.exe) >"$smoke/run.log" 2>&1 &
first=$!

window=""
for _ in $(seq 1 120); do
  window=$(xdotool search --name "^Kestrine  \\[ no USB device found on this computer \\]\$" 2>/dev/null | head -n1 || true)
  [ -n "$window" ] && break
  kill -0 "$first" 2>/dev/null || fail "Kestrine.exe ended before its window appeared"
  sleep 0.25
done
[ -n "$window" ] || fail "no window captioned \"$caption\""
sleep 1

report=$(wine "$probe" "$caption" | tr -d '\r') || fail "FindWindowA does not find \"$caption\""
echo "$report" | sed 's/^/  /'
outer=$(echo "$report" | sed -n 's/^outer=//p')
dpi=$(echo "$report" | sed -n 's/^dpi=//p')
want="$(( (10935 * dpi + 720) / 1440 ))x$(( (7515 * dpi + 720) / 1440 ))"
[ "$outer" = "$want" ] || fail "outer size $outer, expected $want (10935 x 7515 twips at $dpi dpi)"

eval "$(xdotool getwindowgeometry --shell "$window")"
import -window root -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage "$shot"
echo "  screenshot: $shot"

# A second start hands over to the first and ends, without a window of its own
# and without touching the settings.
wine "$probe" "$caption" minimize >/dev/null
wine "$probe" "$caption" | tr -d '\r' | grep -q '^iconic=1$' || fail "the window could not be minimized"
set +e
(cd "$smoke" && timeout 30 wine Kestrine.exe) >/dev/null 2>&1
second=$?
set -e
[ "$second" -eq 0 ] || fail "the second start ended with $second"
report=$(wine "$probe" "$caption" | tr -d '\r') || fail "the first window is gone after the second start"
echo "$report" | grep -q '^windows=1$' || fail "more than one window after the second start: $report"
echo "$report" | grep -q '^iconic=0$' || fail "the first window was not restored: $report"
echo "$report" | grep -q '^foreground=1$' || fail "the first window was not brought to the front: $report"
[ ! -e "$smoke/Kestrine.ini" ] || fail "the second start wrote the settings"
echo "  second start: restored and raised the first window, then ended"

# Escape in the drive list closes the program, which writes its settings.
xdotool windowfocus --sync "$window" 2>/dev/null || true
xdotool key --clearmodifiers Escape
for _ in $(seq 1 60); do
  kill -0 "$first" 2>/dev/null || break
  sleep 0.25
done
if kill -0 "$first" 2>/dev/null; then
  kill "$first" 2>/dev/null || true
  fail "Escape did not end Kestrine.exe"
fi
set +e
wait "$first"
code=$?
set -e
[ "$code" -eq 0 ] || fail "Kestrine.exe ended with $code"
[ -s "$smoke/Kestrine.ini" ] || fail "no settings file beside Kestrine.exe"
grep -q '^\[Kestrine\]' "$smoke/Kestrine.ini" || fail "the settings file has no [Kestrine] section"
echo "  Escape: ended with 0; settings written:"
tr -d '\r' <"$smoke/Kestrine.ini" | sed 's/^/    /'
echo "== Windows: all passed"
