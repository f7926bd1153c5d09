#!/usr/bin/env bash
# geotool calib detect end to end: a map made by "map blank" (its graticule dashed silver, JPEG at
# quality 60) is calibrated from its own graticule and two given values, and the result agrees with the
# generator's own calibration; a picture without a grid gives "no graticule found" and exit code 1, and
# values that give no spacing a usage error; neither writes a calibration.
# Usage: calib_detect.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
if ! "$G" calib detect --help >/dev/null 2>&1; then
  echo "SKIP: geotool built without the graticule finder (QVGEO_WITH_OPENCV)"
  exit 0
fi
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
export QT_QPA_PLATFORM=offscreen

# 46..49 N, 14..18 E, parallels every 0.5 deg, meridians every 1 deg, 300 px a degree both ways.
"$G" map blank 46 14 49 18 --grat 0.5 1 --size 1260x960 --quality 60 --out "$TMP/scan.jpg" >/dev/null || fail "map blank"

# Without values: the lattice, and exit code 0.
"$G" calib detect "$TMP/scan.jpg" > "$TMP/grid.txt" || fail "detect without values: exit $?"
grep -q '^graticule ' "$TMP/grid.txt" || fail "no graticule line in: $(head -3 "$TMP/grid.txt")"
# The crossing nearest pixel (630, 480) is 47.5 N 16 E; its lattice numbers come from the listing.
read -r row col < <(awk '/^ +[0-9-]+ +[0-9-]+:/ { sub(":", "", $2); d = ($3 - 630)^2 + ($4 - 480)^2;
                                                  if (best == "" || d < best) { best = d; r = $1; c = $2 } }
                         END { print r, c }' "$TMP/grid.txt")
[ -n "$row" ] || fail "no crossing listed"

"$G" calib detect "$TMP/scan.jpg" --parallel "$row=47.5" --lat-step -0.5 --meridian "$col=16" --long-step 1 \
  --out "$TMP/scan.xml" > "$TMP/report.txt"
rc=$?
[ $rc -eq 0 ] || fail "detect with values: exit $rc: $(cat "$TMP/report.txt")"
grep -q '^model ' "$TMP/report.txt" || fail "no model in the report"
grep -q 'map="scan.jpg"' "$TMP/scan.xml" || fail "the calibration does not name the image by its bare name"

# The calibration found against the generator's: pixels of a few places agree to a pixel.
printf '%s\n' "46.25 14.5" "47.75 16.25" "48.9 17.9" "46.1 17.5" > "$TMP/places"
"$G" calib geo2pix "$TMP/scan.xml" < "$TMP/places" > "$TMP/found" || fail "geo2pix found"
"$G" map blank 46 14 49 18 --grat 0.5 1 --size 1260x960 --out "$TMP/truth.bmp" >/dev/null
"$G" calib geo2pix "$TMP/truth.xml" < "$TMP/places" > "$TMP/truth" || fail "geo2pix truth"
worst=$(paste -d' ' "$TMP/found" "$TMP/truth" |
        awk '{ n = NF / 2; d = sqrt(($1 - $(n + 1))^2 + ($2 - $(n + 2))^2); if (d > m) m = d } END { printf "%.3f", m }')
awk -v d="$worst" 'BEGIN { exit !(d <= 1.5) }' || fail "found and true calibrations differ by $worst px"

# Values that do not make a spacing: a usage error (exit 2), nothing written.
"$G" calib detect "$TMP/scan.jpg" --parallel "$row=47.5" --meridian "$col=16" --long-step 1 --out "$TMP/bad.xml" \
  >/dev/null 2>&1
rc=$?
[ $rc -eq 2 ] || fail "a parallel without spacing: exit $rc, not 2"
[ ! -e "$TMP/bad.xml" ] || fail "a calibration was written from incomplete values"

# No grid: the bundled world picture. No guess, exit code 1.
"$G" calib detect "$2/data/samples/world.jpg" --parallel 0=0 --lat-step -30 --meridian 0=0 --long-step 30 \
  --out "$TMP/world.xml" > /dev/null 2> "$TMP/world.err"
rc=$?
[ $rc -eq 1 ] || fail "world picture: exit $rc, not 1"
grep -q 'no graticule found' "$TMP/world.err" || fail "world picture: $(cat "$TMP/world.err")"
[ ! -e "$TMP/world.xml" ] || fail "a calibration was written for a picture without a grid"

if [ $fails -gt 0 ]; then
  exit 1
fi
echo "calib detect: the found calibration is within $worst px of the generator's"
