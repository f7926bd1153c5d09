#!/usr/bin/env bash
# geotool landmarks import / export end to end: round trips through GPX, KML, GeoPackage and GeoJSON,
# files of the GDAL tools and of `landmarks --to-geojson`, ogrinfo's view of our files, bad input.
set -uo pipefail
geotool=$1
root=$2
samples=$root/data/samples
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
check() {  # check DESCRIPTION EXPECTED ACTUAL
  if [[ "$2" != "$3" ]]; then
    echo "FAIL: $1: expected [$2], got [$3]"
    fail=1
  fi
}
if ! "$geotool" landmarks import --help > /dev/null 2>&1; then
  echo "geotool has no landmarks import (a build without GDAL): nothing to check"
  exit 0
fi

lm=$samples/landmarks-vienna.xml
original=$("$geotool" landmarks "$lm")

# Every format gives the same landmarks back, field for field (the listing shows all of them).
for ext in gpx kml gpkg geojson; do
  "$geotool" landmarks export "$lm" --out "$tmp/v.$ext" 2> "$tmp/err.txt"; check "export $ext" 0 $?
  check "export $ext: report" "geotool landmarks export: 8 landmark(s) written to \"$tmp/v.$ext\"" "$(cat "$tmp/err.txt")"
  "$geotool" landmarks import "$tmp/v.$ext" --id back --out "$tmp/v-$ext.xml" 2> "$tmp/err.txt"; check "import $ext" 0 $?
  check "import $ext: report" "geotool landmarks import: 8 landmark(s) from 8 feature(s)" "$(cat "$tmp/err.txt")"
  check "round trip through $ext" "$original" "$("$geotool" landmarks "$tmp/v-$ext.xml" --id BACK)"
done
# --format wins over the extension; standard output without --out.
"$geotool" landmarks export "$lm" --format GPX --out "$tmp/v.dat" 2> /dev/null
check "GPX by --format" "$original" "$("$geotool" landmarks import "$tmp/v.dat" --format gpx 2> /dev/null | "$geotool" landmarks /dev/stdin)"
check "content sniffed without --format" "$original" \
  "$("$geotool" landmarks import "$tmp/v.dat" 2> /dev/null | "$geotool" landmarks /dev/stdin)"

# The GeoJSON of `landmarks --to-geojson` imports, and our GeoJSON reads with --from-geojson.
"$geotool" landmarks "$lm" --to-geojson > "$tmp/own.geojson"
check "--to-geojson file imports" "$original" \
  "$("$geotool" landmarks import "$tmp/own.geojson" 2> /dev/null | "$geotool" landmarks /dev/stdin)"
check "export reads with --from-geojson" "$original" \
  "$("$geotool" landmarks --from-geojson "$tmp/v.geojson" | "$geotool" landmarks /dev/stdin)"

# ogrinfo sees our files as the formats' own: 8 points in WGS 84, names and times where they belong.
info=$(ogrinfo -al -so "$tmp/v.kml" 2>&1)
check "KML feature count" 1 "$(grep -c '^Feature Count: 8$' <<<"$info")"
check "GPKG layer" 1 "$(ogrinfo -so "$tmp/v.gpkg" 2>&1 | grep -c '^1: landmarks (3D Point)$')"
check "GPKG in EPSG:4326" 1 "$(ogrinfo -al -so "$tmp/v.gpkg" landmarks 2>&1 | grep -c 'ID\["EPSG",4326\]')"
info=$(ogrinfo -al -q "$tmp/v.gpx" waypoints 2>&1)
check "GPX names" 8 "$(grep -c '^  name (String) = ' <<<"$info")"
check "GPX Schönbrunn" 1 "$(grep -c '^  name (String) = Schloss Schönbrunn$' <<<"$info")"
check "GPX times" 4 "$(grep -c '^  time (DateTime) = 2024/05/1[78] ' <<<"$info")"
check "GPX symbols" 1 "$(grep -c '^  sym (String) = ArrowTo$' <<<"$info")"
check "GPX elevations" 1 "$(grep -c '^  ele (Real) = 290$' <<<"$info")"
check "GPX extensions" 1 "$(grep -c '^  ogr_identifier (String) = VIEWPOINT$' <<<"$info")"
check "GPX positions" 1 "$(grep -c '^  POINT (16.3647 48.2375)$' <<<"$info")"

# A GPX that ogr2ogr writes from a foreign GeoJSON (no attributes of ours): defaults and the symbol
# catalogue fill in. (ogr2ogr writes no GPX ele from a point's Z: the altitude is 0.)
cat > "$tmp/foreign.geojson" <<'JSON'
{"type": "FeatureCollection", "features": [
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [16.5, 48.1, 300]}, "properties": {"name": "Well No. 1", "sym": "Well"}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [-179.5, -16.8]}, "properties": {"name": "Date line", "sym": "Summit"}}
]}
JSON
ogr2ogr -f GPX "$tmp/foreign.gpx" "$tmp/foreign.geojson" -nln waypoints 2> /dev/null
"$geotool" landmarks import "$tmp/foreign.gpx" --symbols "$samples/symbols-basic.xml" > "$tmp/foreign.xml" 2> /dev/null
check "foreign GPX with the catalogue" \
  $'1\t48.1\t16.5\t0\t3\t0\tCircle\t4\t00FF0000\t00FFC080\tTRUE\n2\t-16.8\t-179.5\t0\t3\t0\tTriangle\t6\t00004080\t0080C0FF\tFALSE' \
  "$("$geotool" landmarks "$tmp/foreign.xml" | cut -f1-11)"
"$geotool" landmarks import "$tmp/foreign.gpx" > /dev/null 2> "$tmp/err.txt"; check "unknown symbols are not errors" 0 $?
check "unknown symbols reported" 2 "$(grep -c 'is not known; the template' "$tmp/err.txt")"
# The catalogue names the symbols on export.
"$geotool" landmarks export "$tmp/foreign.xml" --symbols "$samples/symbols-basic.xml" --out "$tmp/named.gpx" 2> /dev/null
check "symbol names on export" $'  sym (String) = Well\n  sym (String) = Summit' \
  "$(ogrinfo -al -q "$tmp/named.gpx" waypoints | grep '^  sym ')"

# Landmarks the file cannot keep are reported; invalid coordinates give exit code 1.
cat > "$tmp/bad.geojson" <<'JSON'
{"type": "FeatureCollection", "features": [
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [1, 95]}, "properties": {"name": "north of north"}},
 {"type": "Feature", "geometry": {"type": "LineString", "coordinates": [[0, 0], [1, 1]]}, "properties": {}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [2, 3]}, "properties": {"name": "A > B", "symbol_kind": "plus"}}
]}
JSON
"$geotool" landmarks import "$tmp/bad.geojson" > "$tmp/bad.xml" 2> "$tmp/err.txt"; check "invalid coordinates" 1 $?
check "invalid coordinates: report" \
  "geotool landmarks import: layer bad, feature 1: latitude 95 is out of range; not imported
geotool landmarks import: layer bad: 1 feature(s) with geometry linestring skipped (only points become landmarks)
geotool landmarks import: landmark 1: caption_text stored as \"A _ B\"; symbol_kind reads back as cross
geotool landmarks import: 1 landmark(s) from 3 feature(s), 1 not points, 1 with invalid coordinates" "$(cat "$tmp/err.txt")"
check "the good one is kept" 1 "$("$geotool" landmarks "$tmp/bad.xml" | wc -l)"

# Bad input: a clear error and exit code 1, never a crash; a bad command line: exit code 2.
: > "$tmp/empty.gpx"
"$geotool" landmarks import "$tmp/empty.gpx" > /dev/null 2> "$tmp/err.txt"; check "empty file" 1 $?
check "empty file: message" 1 "$(grep -c 'ImportLandMarks: ".*empty.gpx" cannot be read as a GPX file' "$tmp/err.txt")"
# Nesting far deeper than GeoJSON needs.
{ printf '{"type":"FeatureCollection","features":[{"type":"Feature","properties":{"a":'
  head -c 100000 /dev/zero | tr '\0' '['; head -c 100000 /dev/zero | tr '\0' ']'
  printf '},"geometry":{"type":"Point","coordinates":[1,2]}}]}'; } > "$tmp/deep.geojson"
"$geotool" landmarks import "$tmp/deep.geojson" > /dev/null 2> "$tmp/err.txt"; check "deep nesting" 1 $?
check "deep nesting: message" 1 "$(grep -c 'ImportLandMarks: ' "$tmp/err.txt")"
"$geotool" landmarks export "$lm" --out "$tmp/nodir/x.gpx" 2> "$tmp/err.txt"; check "unwritable" 1 $?
check "unwritable: message" 1 "$(grep -c 'ExportLandMarks: cannot create' "$tmp/err.txt")"
"$geotool" landmarks import "$tmp/v.gpx" --format shp > /dev/null 2>&1; check "unknown format" 2 $?
"$geotool" landmarks export "$lm" --out "$tmp/x.txt" > /dev/null 2>&1; check "format unknown from extension" 2 $?
"$geotool" landmarks export "$lm" > /dev/null 2>&1; check "export without --out" 2 $?
"$geotool" landmarks import > /dev/null 2>&1; check "import without a file" 2 $?

exit $fail
