#!/usr/bin/env bash
# Remakes data/samples/world.jpg and world.xml, the viewer's world map, from NASA's Visible Earth
# picture of the whole earth that Debian ships in the package xplanet-images (licence "not copyrighted",
# see data/README.md): a 2048 x 1024 equirectangular JPEG whose left edge is 180° W and top edge 90° N.
# It is reduced to 1440 x 720, a quarter degree a pixel, with geotool's averaging filter.
#   scripts/make-world-map.sh [GEOTOOL]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
G=${1:-$here/build/apps/geotool/geotool}
out=$here/data/samples
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
(cd "$tmp" && apt-get download xplanet-images >/dev/null 2>&1) || { echo "apt-get download xplanet-images failed" >&2; exit 1; }
dpkg-deb -x "$tmp"/xplanet-images_*.deb "$tmp/x"
W=1440 H=720
"$G" map resample "$tmp/x/usr/share/xplanet/images/earth.jpg" --size ${W}x${H} --quality 88 --out "$out/world.jpg"

# The calibration: nine points on pixel centres (a pixel's centre is a quarter degree from its
# neighbour's, an eighth of a degree from the picture's edge), fitted by the equirectangular model.
awk -v W=$W -v H=$H 'BEGIN {
  printf "<?xml version=\"1.0\"?>\n\n<!-- TGeoMap Calibration / Quorvanta -->\n"
  printf "<geomap sig=\"Quorvanta\" vers=\"1.0\" id=\"XEL_geomap_caldata\" model=\"equirect\" map=\"world.jpg\" caption=\"World (NASA Visible Earth)\">\n"
  printf "<corners>\n[90.00000,-180.00000] [-90.00000,-180.00000] [-90.00000,180.00000] [90.00000,180.00000] \n</corners>\n"
  # metres a pixel along the equator, on the sphere of the earth'"'"'s mean radius
  printf "<resolution>%.3f</resolution>\n", 360 / W * 6371008.8 * 3.14159265358979 / 180
  printf "<ellipsoid>gelWGS84</ellipsoid>\n<calquads npoints=\"9\">\n"
  split("0 " H / 2 " " H - 1, ys, " "); split("0 " W / 2 " " W - 1, xs, " ")
  for (j = 1; j <= 3; j++) for (i = 1; i <= 3; i++)
    printf "[%.5f,%.5f,%d,%d] ", 90 - (ys[j] + 0.5) * 180 / H, -180 + (xs[i] + 0.5) * 360 / W, xs[i], ys[j]
  printf "\n</calquads>\n</geomap>\n"
}' > "$out/world.xml"
echo "wrote $out/world.jpg and $out/world.xml"
