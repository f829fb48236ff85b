#!/usr/bin/env bash
# Screenshots of the Linux program's window under Xvfb: on the demonstration
# machine of the simulated backend and on the real Linux backend (with a
# loop-device drive when run as root). Checks the window's outer size in
# pixels and that its caption and rows are the ones the logic set, and keeps
# the pictures as PNGs.
#   scripts/qt-screens.sh <kestrine program> <folder for the PNGs>
# Exits 77 (skipped) when Xvfb or the screenshot tools are missing.
set -euo pipefail
program=$(realpath "$1")
out=$(mkdir -p "$2" && realpath "$2")
here=$(cd "$(dirname "$0")/.." && pwd)
for tool in xvfb-run xdotool import; do
  command -v "$tool" >/dev/null || { echo "qt-screens: $tool is missing, skipped"; exit 77; }
done
work=$(mktemp -d)
cleanup() {
  [ -n "${mnt:-}" ] && umount "$mnt" 2>/dev/null || true
  [ -n "${loop:-}" ] && losetup -d "$loop" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
export XDG_RUNTIME_DIR="$work/runtime"
mkdir -m 700 "$XDG_RUNTIME_DIR"

# The expected size: the outer size of 10935 x 7515 twips at 96 dots per
# inch is 729 x 501 pixels; there is no window manager under Xvfb, so the
# outer size is the window's own.
check_shot() { # name, then arguments for kestrine
  local name=$1; shift
  local log="$work/$name.txt"
  xvfb-run -a -s "-screen 0 1280x1024x24 -dpi 96" bash -c '
    "$0" --print-rows "$@" >"'"$log"'" 2>&1 &
    pid=$!
    id=""
    for i in $(seq 100); do
      id=$(xdotool search --onlyvisible --name "^Kestrine" 2>/dev/null | head -n 1 || true)
      [ -n "$id" ] && grep -q "^caption:" "'"$log"'" && break
      sleep 0.1
    done
    [ -n "$id" ] || { echo "no window"; kill $pid; exit 1; }
    sleep 0.5
    eval "$(xdotool getwindowgeometry --shell "$id")"
    echo "geometry: ${WIDTH}x${HEIGHT}+${X}+${Y}" >>"'"$log"'"
    import -window root -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage "'"$out/$name.png"'"
    kill $pid; wait $pid 2>/dev/null || true
  ' "$program" "$@"
  local geometry width height
  geometry=$(sed -n 's/^geometry: \([0-9]*x[0-9]*\).*/\1/p' "$log")
  width=${geometry%x*}; height=${geometry#*x}
  if [ "$width" != 729 ] || [ "$height" != 501 ]; then
    echo "qt-screens: $name: the window is ${geometry:-missing}, not 729 x 501" >&2
    cat "$log" >&2
    return 1
  fi
  echo "qt-screens: $name: ${geometry} -> $out/$name.png"
}

expect_line() { # name, text
  grep -qxF -- "$2" "$work/$1.txt" || {
    echo "qt-screens: $1: expected the line '$2' in:" >&2
    cat "$work/$1.txt" >&2
    return 1
  }
}

# A simulated machine with a USB stick: the rows and caption the logic sets there.
check_shot stick --machine "$here/tests/qt/machine-stick.json"
expect_line stick "row: C:\\ | System | Fixed"
grep -q '^row: E:\\ | STICK | ' "$work/stick.txt" || { cat "$work/stick.txt" >&2; exit 1; }
grep -q '^caption: Kestrine' "$work/stick.txt"

# The real Linux backend; as root, with a drive on a loop device of its own.
label=""
if [ "$(id -u)" = 0 ] && command -v losetup >/dev/null && command -v mkfs.ext4 >/dev/null; then
  truncate -s 32M "$work/stick.img"
  mkfs.ext4 -q -L KESTRINEQT "$work/stick.img"
  if loop=$(losetup --find --show "$work/stick.img" 2>/dev/null); then
    mnt="$work/stick"; mkdir "$mnt"
    mount "$loop" "$mnt" && label=KESTRINEQT || { losetup -d "$loop"; loop=""; mnt=""; }
  fi
fi
check_shot linux
grep -q '^caption: Kestrine' "$work/linux.txt" && grep -q '^row: C:\\ | ' "$work/linux.txt" || {
  echo "qt-screens: linux: no caption or no C: row:" >&2
  cat "$work/linux.txt" >&2
  exit 1
}
if [ -n "$label" ]; then
  grep -q "^row: [D-Z]:\\\\ | $label | " "$work/linux.txt" || {
    echo "qt-screens: linux: no row for the loop-device drive $label:" >&2
    cat "$work/linux.txt" >&2
    exit 1
  }
  echo "qt-screens: linux: the loop-device drive shows as $(grep "| $label |" "$work/linux.txt")"
else
  echo "qt-screens: linux: not root or no loop devices, shown without a drive of its own"
fi
