#!/usr/bin/env bash
# The kestrine program's command line: help, version, a simulated machine
# listed without a display, and one clear sentence with a non-zero exit for a
# missing or broken machine description and for an unknown option.
#   kestrine_cli_test.sh KESTRINE SOURCE_DIR
set -u
program=$1
source=$2
failed=0
check() { # what, expected exit code, command...
  local what=$1 want=$2
  shift 2
  out=$("$@" 2>&1)
  got=$?
  if [ "$got" -ne "$want" ]; then
    echo "FAIL: $what: exit $got, expected $want"; echo "$out"; failed=1
  fi
}
has() { # what, text expected in the last output
  if ! grep -qF -- "$2" <<<"$out"; then echo "FAIL: $1: no \"$2\" in:"; echo "$out"; failed=1; fi
}
lines() { # what, expected number of lines of the last output
  if [ "$(wc -l <<<"$out")" -ne "$2" ]; then echo "FAIL: $1: expected $2 line(s):"; echo "$out"; failed=1; fi
}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

check "--version" 0 "$program" --version
has "--version" "kestrine "
check "--help" 0 "$program" --help
has "--help" "--machine FILE"
check "a machine without a display" 0 env -u DISPLAY -u WAYLAND_DISPLAY "$program" --machine "$source/tests/qt/machine-stick.json"
has "a machine without a display" "E:\\ | STICK | Removable"
check "a machine with --list" 0 "$program" --list --machine "$source/tests/qt/machine-stick.json"
has "a machine with --list" "Kestrine  [ USB device(s) found on this computer ]"
check "a missing machine" 2 env -u DISPLAY "$program" --machine "$tmp/missing.json"
has "a missing machine" "kestrine: The machine description $tmp/missing.json cannot be read."
lines "a missing machine" 1
echo '{"drives": [' >"$tmp/broken.json"
check "a broken machine" 2 env -u DISPLAY "$program" --machine "$tmp/broken.json"
has "a broken machine" "is not valid"
lines "a broken machine" 1
check "an unknown option" 2 "$program" --frobnicate
has "an unknown option" "kestrine: Unknown option --frobnicate. See kestrine --help."
check "--machine without a file" 2 "$program" --machine
exit $failed
