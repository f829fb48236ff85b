#!/usr/bin/env bash
# Draws the Windows program's icons and pictures with ImageMagick into res/.
# The results are kept in the repository; run this only to change them.
set -euo pipefail
cd "$(dirname "$0")/../res"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# A USB stick on a 256-pixel canvas: body, connector and its two windows.
stick() { # $1 output, $2 body colour
  convert -size 256x256 xc:none \
    -fill "$2" -stroke '#1e2a44' -strokewidth 8 -draw "roundrectangle 70,96 230,190 22,22" \
    -fill '#c9ced8' -draw "rectangle 16,112 74,174" \
    -fill '#1e2a44' -stroke none -draw "rectangle 30,126 46,138" -draw "rectangle 30,148 46,160" \
    "$1"
}

# The program: a blue stick with a white kestrel-wing chevron.
stick "$tmp/app.png" '#2f6fd6'
convert "$tmp/app.png" -fill white -stroke none -draw "polygon 120,112 200,143 120,174 140,143" "$tmp/app.png"
for s in 16 32 48; do convert "$tmp/app.png" -resize ${s}x${s} "$tmp/app$s.png"; done
convert "$tmp/app16.png" "$tmp/app32.png" "$tmp/app48.png" kestrine.ico
# The same for the Linux desktop's icon theme (hicolor), at its usual sizes.
mkdir -p icons
for s in 16 24 32 48 64 128 256; do convert "$tmp/app.png" -resize ${s}x${s} -strip "icons/kestrine-$s.png"; done

# Release: a stick with a green eject arrow above it.
stick "$tmp/rel.png" '#3b7be0'
convert "$tmp/rel.png" -fill '#1f9d3a' -stroke '#0d5c20' -strokewidth 6 \
  -draw "polygon 128,12 190,70 66,70" -draw "rectangle 66,76 190,88" "$tmp/rel.png"
convert "$tmp/rel.png" -resize 48x48 release48.ico

# Quit: a red disc with a white cross.
convert -size 256x256 xc:none -fill '#d23b2e' -stroke '#7d1a12' -strokewidth 10 -draw "circle 128,128 128,14" \
  -stroke white -strokewidth 30 -draw "line 80,80 176,176" -draw "line 176,80 80,176" "$tmp/quit.png"
convert "$tmp/quit.png" -resize 32x32 quit32.ico

# Centre: a frame with a dot in its middle.
convert -size 64x64 xc:none -fill none -stroke '#1e2a44' -strokewidth 6 -draw "rectangle 6,10 58,54" \
  -fill '#2f6fd6' -stroke none -draw "circle 32,32 32,22" "$tmp/centre.png"
convert "$tmp/centre.png" -resize 16x16 centre16.ico

# Releasing notice (48): a stick with an amber hourglass.
stick "$tmp/busy.png" '#3b7be0'
convert "$tmp/busy.png" -fill '#f0a020' -stroke '#6b4506' -strokewidth 6 \
  -draw "polygon 150,10 230,10 190,50" -draw "polygon 190,50 150,90 230,90" "$tmp/busy.png"
convert "$tmp/busy.png" -resize 48x48 releasing48.ico

# Closing notice (32): an hourglass.
convert -size 128x128 xc:none -fill '#f0a020' -stroke '#6b4506' -strokewidth 6 \
  -draw "polygon 24,10 104,10 64,64" -draw "polygon 64,64 24,118 104,118" \
  -fill '#6b4506' -draw "rectangle 16,4 112,12" -draw "rectangle 16,116 112,124" "$tmp/glass.png"
convert "$tmp/glass.png" -resize 32x32 unloading32.ico

# Released notice (200 x 96): a stick leaving with a green tick, on the notice colour.
stick "$tmp/gone.png" '#8fb0e8'
convert -size 200x96 xc:'#ecedfd' \
  \( "$tmp/gone.png" -resize 96x96 \) -geometry +4+0 -composite \
  -fill none -stroke '#1f9d3a' -strokewidth 12 -draw "polyline 112,50 138,76 190,18" \
  -type TrueColor BMP3:released.bmp
