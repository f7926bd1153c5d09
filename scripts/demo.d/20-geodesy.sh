# title: geotool geodesy — UTM/UPS grids, geocentric coordinates, a datum shift and the tables
set -euo pipefail
echo "--- UTM zones and grid coordinates of a few places (a place outside the grid prints '* * * *' and is"
echo "    reported on standard error; geotool then exits 1)"
# Output line N answers input line N, so the places and their grid coordinates pair up line by line.
grep -v '^#' "$SAMPLES/geodesy-cities.txt" > "$DEMO_TMP/places.txt"
paste -d' ' "$DEMO_TMP/places.txt" <("$GEOTOOL" utm < "$DEMO_TMP/places.txt" 2>/dev/null || true)
echo "--- and back (zone N|S easting northing -> lat lon)"
{ "$GEOTOOL" utm < "$SAMPLES/geodesy-cities.txt" 2>/dev/null || true; } | awk '$1 > 0 { print $1, ($2 < "N" ? "S" : "N"), $3, $4 }' \
  | "$GEOTOOL" utm --inverse
echo "--- the north pole and 85°N 45°E on the UPS grid, and back"
printf '90 0\n85 45\n' | "$GEOTOOL" ups | tee "$DEMO_TMP/ups.txt"
awk '{ print "N", $1, $2 }' "$DEMO_TMP/ups.txt" | "$GEOTOOL" ups --inverse
echo "--- geocentric X Y Z of Vienna at 200 m and back"
"$GEOTOOL" geocentric 48.2085 16.3721 200 | tee "$DEMO_TMP/xyz.txt"
"$GEOTOOL" geocentric --inverse < "$DEMO_TMP/xyz.txt"
echo "--- OSGB 1936 (datum 183) to WGS 84 (datum 269): lat lon h status"
"$GEOTOOL" helmert 183 269 < "$SAMPLES/geodesy-osgb36.txt"
echo "--- a bad input line is reported with its number; the others are converted"
printf '48.2 16.3\n48.2 east\n' | "$GEOTOOL" utm || echo "(exit code $?)"
echo "--- datums 13 and 183, countries matching 'mm' and 'Vienna'"
"$GEOTOOL" datums | sed -n '13p;183p'
"$GEOTOOL" countries mm
"$GEOTOOL" countries Vienna
