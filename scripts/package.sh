#!/usr/bin/env bash
# Builds the Debian package of kestrine and kestrinectl into build/package,
# after checking its desktop entry and manual pages. With --check it then
# installs the package with dpkg (its dependencies through apt-get), runs the
# installed programs and pages, and removes the package again.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh run dpkg-dev desktop-file-utils man-db groff-base file

echo "package: the desktop entry and the manual pages"
desktop-file-validate res/linux/kestrine.desktop
for page in docs/man/*.1; do
  warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
  if [ -n "$warnings" ]; then echo "$page:"; echo "$warnings"; exit 1; fi
done
bash -n res/linux/kestrinectl.bash

build=${KESTRINE_PACKAGE_BUILD:-build/package}
echo "package: building in $build"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DKESTRINE_TESTS=OFF \
  -DKESTRINE_BENCH=OFF >/dev/null
cmake --build "$build" --target kestrine kestrinectl kestrine_man_pages
rm -f "$build"/kestrine_*.deb
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls "$build"/kestrine_*.deb)
echo "package: $deb"
dpkg-deb --field "$deb"
dpkg-deb --contents "$deb"

[ "${1:-}" = --check ] || exit 0
echo "package: installing it and running what it installed"
SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
if ! $SUDO dpkg -i "$deb" >/dev/null 2>&1; then
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq -f --no-install-recommends >/dev/null
fi
trap '$SUDO dpkg -r kestrine >/dev/null' EXIT
dpkg-query -W -f='${Package} ${Version} ${Status}\n' kestrine
kestrinectl --version
kestrine --version
env -u DISPLAY -u WAYLAND_DISPLAY kestrine --list
kestrinectl list -o ROOT,LABEL,KIND
man -l /usr/share/man/man1/kestrine.1.gz | sed -n 1,5p
man -l /usr/share/man/man1/kestrinectl.1.gz | sed -n 1,5p
test -L /usr/bin/kestrine && test -x /usr/lib/kestrine/kestrine && test -f /usr/lib/kestrine/Connect.ico
test -f /usr/share/icons/hicolor/48x48/apps/kestrine.png
test -f /usr/share/bash-completion/completions/kestrinectl && test -f /usr/share/zsh/vendor-completions/_kestrinectl
echo "package: installed, ran and will be removed"
