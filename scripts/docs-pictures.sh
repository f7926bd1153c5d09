#!/usr/bin/env bash
# Renders the README's pictures into docs/ with the built geotool (offscreen, no display needed):
#   scripts/docs-pictures.sh [GEOTOOL]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
G=${1:-$here/build/apps/geotool/geotool}
S=$here/data/samples
out=$here/docs
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"
"$G" map render "$S/calib-vienna.xml" --id utm --grat utm+points --landmarks "$S/landmarks-vienna.xml" \
  --size 800x600 --out "$out/map-utm-grid.png"
"$G" map render "$S/calib-vienna.xml" --id geo --grat lines --grat-dist 0.02 \
  --landmarks "$S/landmarks-vienna.xml" --size 800x600 --out "$out/map-graticule.png"
"$G" map blank 46.3 9.4 49.1 17.2 --grat 0.5 1 --size 800x500 --out "$tmp/austria.png" >/dev/null
cp "$tmp/austria.png" "$out/map-blank.png"
"$here/build/apps/docshots/qvgeo-docshots" "$S" "$out/atlas.png"
# The viewer's tour: its window at the world map, Austria with the database, the Vienna region with
# landmarks, the UTM map with its grid.
"$here/build/apps/viewer/qvgeo-viewer" --data "$tmp/viewer-data" --tour "$tmp/tour" >/dev/null
for f in "$tmp"/tour/tour-*.png; do
  cp "$f" "$out/viewer-$(basename "$f" .png | sed 's/^tour-//').png"
done
# The same places with the readable map off (as the map view draws by default): the README's "before".
"$here/build/apps/viewer/qvgeo-viewer" --data "$tmp/viewer-data" --tour "$tmp/plain" --plain >/dev/null
for n in 1-world 3-vienna-region 6-europe; do
  cp "$tmp/plain/tour-$n.png" "$out/plain-$n.png"
done
# A GeoTIFF opened in the viewer: the Vienna sample exported with its control points, warped by GDAL to
# UTM zone 33 (a GeoTIFF with a geotransform), then opened as a user would (its georeferencing shown in
# the calibration editor). The viewer's settings and cache go to the scratch folder.
"$G" calib export "$S/calib-vienna.xml" --format vrt --out "$tmp/vienna.vrt" >/dev/null
gdalwarp -q -overwrite -t_srs EPSG:32633 -r bilinear -co TILED=YES -co COMPRESS=DEFLATE "$tmp/vienna.vrt" "$tmp/vienna-utm.tif"
HOME="$tmp/home" XDG_CONFIG_HOME="$tmp/home/config" XDG_CACHE_HOME="$tmp/home/cache" QT_QPA_PLATFORM=offscreen \
  "$here/build/apps/viewer/qvgeo-viewer" --data "$tmp/viewer-data" --screenshot "$out/viewer-7-geotiff.png" "$tmp/vienna-utm.tif"
