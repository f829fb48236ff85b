#!/usr/bin/env bash
# Installs what Kestrine needs on Debian 12, with apt-get. Packages already
# present are not asked for again.
#   scripts/deps.sh                 everything: building, running and testing
#   scripts/deps.sh run             only what building and running the program needs
#   scripts/deps.sh MODE PACKAGE... the packages of MODE (all or run) and these too
set -euo pipefail

run=(
  build-essential cmake ninja-build pkg-config
  nlohmann-json3-dev libudev-dev libblkid-dev libsystemd-dev libdevmapper-dev qt6-base-dev
  udisks2 dbus udev
)
tests=(
  git googletest libgtest-dev libbenchmark-dev libmount-dev clang-format e2fsprogs dosfstools
  xvfb xauth xdotool imagemagick python3
)
packages=("${run[@]}")
[ "${1:-all}" = run ] || packages+=("${tests[@]}")
packages+=("${@:2}")

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "deps: installing ${missing[*]} needs root (or sudo)." >&2; exit 1; }
  SUDO=sudo
fi
echo "deps: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
