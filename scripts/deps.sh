#!/usr/bin/env bash
# Installs what Kestrine needs to build and test on Debian 12, with apt-get.
# Packages already present are not asked for again.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  googletest libgtest-dev libbenchmark-dev nlohmann-json3-dev
  clang-format
  libudev-dev libblkid-dev libsystemd-dev libdevmapper-dev udisks2 dbus udev e2fsprogs
  qt6-base-dev xvfb xauth xdotool imagemagick
)

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
