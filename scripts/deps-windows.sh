#!/usr/bin/env bash
# Installs what the Windows build and its tests under Wine need on Debian 12:
# the MinGW-w64 cross compilers, Wine, a virtual X server and the tools the
# smoke run uses. Packages already present are not asked for again.
set -euo pipefail

packages=(
  cmake ninja-build googletest
  g++-mingw-w64-x86-64 wine wine64 xvfb xauth fonts-wine xdotool imagemagick
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "deps-windows: installing ${missing[*]} needs root (or sudo)." >&2; exit 1; }
  SUDO=sudo
fi
echo "deps-windows: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
