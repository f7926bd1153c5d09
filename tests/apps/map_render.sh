#!/usr/bin/env bash
# geotool map render draws without a widget and gives the README's pictures byte for byte (they were
# drawn by the map control's output): the UTM grid with calibration points and landmarks, and a graticule
# at a chosen spacing. Usage: map_render.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
R=$2
S=$R/data/samples
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}

"$G" map render "$S/calib-vienna.xml" --id utm --grat utm+points --landmarks "$S/landmarks-vienna.xml" \
  --size 800x600 --out "$TMP/utm.png" >/dev/null || fail "render utm exited $?"
cmp -s "$TMP/utm.png" "$R/docs/map-utm-grid.png" || fail "the UTM picture differs from docs/map-utm-grid.png"
out=$("$G" map render "$S/calib-vienna.xml" --id geo --grat lines --grat-dist 0.02 \
  --landmarks "$S/landmarks-vienna.xml" --size 800x600 --out "$TMP/geo.png") || fail "render geo exited $?"
cmp -s "$TMP/geo.png" "$R/docs/map-graticule.png" || fail "the graticule picture differs from docs/map-graticule.png"
grep -q "^$TMP/geo.png (800 x 600 px, scale 1.0000, [1-9][0-9]* landmarks)$" <<<"$out" || fail "summary '$out'"

[ $fails -eq 0 ] && echo "map_render: all checks passed"
exit $((fails > 0))
