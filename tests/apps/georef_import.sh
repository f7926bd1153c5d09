#!/usr/bin/env bash
# geotool calib import of georeferencing read through GDAL, end to end: GeoTIFFs made by gdal_create and
# gdal_translate (geographic, UTM, a projection that needs a fit, control points), a world file with a
# .prj, and calib export to .map and .points and back. gdaltransform is the independent judge of places.
# Usage: georef_import.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
ROOT=$2
for tool in gdaltransform gdal_create gdal_translate gdalinfo; do
  if ! command -v $tool >/dev/null; then
    echo "SKIP: $tool not installed (Debian package gdal-bin); georeferencing import not checked"
    exit 0
  fi
done
if ! "$G" calib import --help 2>&1 | grep -q geotiff; then
  echo "SKIP: this geotool is built without GDAL"
  exit 0
fi
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
within() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a <= b) }'; }
measured=""
printf '%s\n' "0 0" "200 150" "399 299" "17 250" "333 41" "123 177" > "$TMP/pix"
# Largest distance in metres between our "lat lon valid" and GDAL's "lon lat ..." line by line.
maxdist() {
  paste -d' ' "$1" "$2" | awk '{ k = 111320; dy = ($1 - $5) * k; dx = ($2 - $4) * k * cos($1 * 3.14159265 / 180);
                                 d = sqrt(dx * dx + dy * dy); if (d > m) m = d } END { printf "%.6f\n", m }'
}
# Ours (through the written calibration file) against GDAL's places of the pixel centres of RASTER.
compare() {  # NAME CAL RASTER [gdaltransform options...]
  local name=$1 cal=$2 raster=$3
  shift 3
  "$G" calib pix2geo "$cal" --size 400x300 < "$TMP/pix" > "$TMP/ours" || { fail "$name: pix2geo"; return; }
  awk '{ print $1 + 0.5, $2 + 0.5 }' "$TMP/pix" | gdaltransform "$@" -t_srs EPSG:4326 "$raster" > "$TMP/gdal" 2>/dev/null ||
    { fail "$name: gdaltransform"; return; }
  maxdist "$TMP/ours" "$TMP/gdal"
}

# Geotransforms on a geographic and a UTM coordinate system: equirect and utm, GDAL's places within a
# metre (the calibration file keeps degrees to 5 decimals, about a metre).
gdal_create -q -of GTiff -outsize 400 300 -bands 1 -a_srs EPSG:4326 -a_ullr 16.2 48.3 16.5 48.1 "$TMP/geo.tif"
gdal_create -q -of GTiff -outsize 400 300 -bands 1 -a_srs EPSG:32733 -a_ullr 300000 6200000 310000 6192500 "$TMP/utm.tif"
for t in geo:equirect utm:utm; do
  n=${t%%:*} model=${t#*:}
  "$G" calib import "$TMP/$n.tif" --format geotiff --out "$TMP/$n.xml" > "$TMP/$n.report" || fail "import $n"
  grep -q "^model *$model " "$TMP/$n.report" || fail "$n: model is not $model: $(head -1 "$TMP/$n.report")"
  d=$(compare "$n" "$TMP/$n.xml" "$TMP/$n.tif")
  measured+=" $n $d m;"
  within "$d" 1 || fail "$n: GDAL and the imported calibration differ by $d m"
done
grep -q '<utmzone>33</utmzone>' "$TMP/utm.xml" && grep -q '<utmsouth>TRUE</utmsouth>' "$TMP/utm.xml" ||
  fail "utm: zone 33 south not written"

# A projection that is neither: the report names the candidates and a check between the sampled pixels;
# GDAL's places lie within that check's largest error (plus the calibration file's rounding).
gdal_create -q -of GTiff -outsize 400 300 -bands 1 -a_srs EPSG:3035 -a_ullr 4700000 2900000 4740000 2870000 "$TMP/laea.tif"
"$G" calib import "$TMP/laea.tif" --format geotiff --out "$TMP/laea.xml" > "$TMP/laea.report" || fail "import laea"
grep -q '^candidate' "$TMP/laea.report" || fail "laea: no candidates reported"
check=$(sed -n 's/^check *max \([0-9.]*\) m.*/\1/p' "$TMP/laea.report")
[ -n "$check" ] || fail "laea: no check figure: $(cat "$TMP/laea.report")"
d=$(compare laea "$TMP/laea.xml" "$TMP/laea.tif")
measured+=" laea $d m (check max $check m);"
within "$d" "$(awk -v c="${check:-0}" 'BEGIN { print c + 1 }')" || fail "laea: GDAL and the calibration differ by $d m"

# Control points (gdal_translate -gcp: pixel line lon lat), a second-order surface: biquadratic.
gcps=()
for p in 0 100 200 300 400; do for l in 0 75 150 225 300; do
  gcps+=(-gcp $p $l $(awk -v p=$p -v l=$l 'BEGIN { printf "%.10f %.10f", 16.2 + 0.00075 * p + 1e-9 * l * l, 48.3 - 0.00066 * l + 3e-9 * p * l }'))
done; done
gdal_translate -q -a_srs EPSG:4326 "${gcps[@]}" "$TMP/geo.tif" "$TMP/gcp.tif" || fail "gdal_translate -gcp"
"$G" calib import "$TMP/gcp.tif" --format geotiff --out "$TMP/gcp.xml" > "$TMP/gcp.report" || fail "import gcp raster"
grep -q '^model *biquadraticpn' "$TMP/gcp.report" || fail "gcp: $(head -1 "$TMP/gcp.report")"
grep -q 'point(s) outside' "$TMP/gcp.report" || fail "gcp: the points on the far edges are not reported as outside"
# The file keeps degrees to 5 decimals (up to 0.55 m); a second-order fit through 16 points so rounded
# can double that at the image's corners, which lie outside the points.
d=$(compare gcp "$TMP/gcp.xml" "$TMP/gcp.tif" -order 2)
measured+=" gcp $d m;"
within "$d" 1.5 || fail "gcp: GDAL and the calibration differ by $d m"

# A world file with a .prj beside an image; without the .prj its metres are refused with a hint.
gdal_create -q -of GTiff -outsize 400 300 -bands 1 "$TMP/scan.tif"
printf '%s\n' 25 0 0 -25 300012.5 6199987.5 > "$TMP/scan.wld"
cp "$TMP/utm.tif" "$TMP/ref.tif"
gdalsrsinfo -o wkt1 EPSG:32733 > "$TMP/scan.prj"
"$G" calib import "$TMP/scan.wld" --format worldfile --out "$TMP/scan.xml" > "$TMP/scan.report" || fail "import world file"
grep -q '^model *utm' "$TMP/scan.report" || fail "world file + .prj: $(head -1 "$TMP/scan.report")"
cmp -s <(sed 's/scan.tif/utm.tif/' "$TMP/scan.xml") "$TMP/utm.xml" || fail "world file + .prj: not the GeoTIFF's calibration"
rm "$TMP/scan.prj"
"$G" calib import "$TMP/scan.wld" --format worldfile --out "$TMP/x.xml" 2>"$TMP/err" && fail "metres without .prj accepted"
grep -q -- '--zone' "$TMP/err" || fail "world file without .prj: $(cat "$TMP/err")"
"$G" calib import "$TMP/scan.wld" --format worldfile --zone 33 --south --out "$TMP/x.xml" >/dev/null || fail "world file --zone"
cmp -s <(sed 's/scan.tif/utm.tif/' "$TMP/x.xml") "$TMP/utm.xml" || fail "world file --zone 33 --south: not the GeoTIFF's calibration"

# Export to .map: GDAL reads its points and gives the calibration's places; imported back, the same.
for n in geo utm gcp; do
  cp "$TMP/geo.tif" "$TMP/img-$n.tif"
  "$G" calib export "$TMP/$n.xml" --image "$TMP/img-$n.tif" --format map --out "$TMP/$n.map" || fail "export map $n"
  gdalinfo "$TMP/$n.map" 2>/dev/null | grep -q 'Size is 400, 300' || fail "gdalinfo $n.map"
  "$G" calib pix2geo "$TMP/$n.xml" --size 400x300 < "$TMP/pix" > "$TMP/ours"
  # GDAL replaces points that an affine transform fits within a quarter pixel by that transform; with
  # that approximation held to a thousandth of a pixel it gives the calibration's places, and by
  # default within a quarter pixel (55 m by 74 m pixels here).
  for threshold in 0.001 0.25; do
    awk '{ print $1 + 0.5, $2 + 0.5 }' "$TMP/pix" |
      gdaltransform --config GDAL_GCPS_TO_GEOTRANSFORM_APPROX_THRESHOLD $threshold -t_srs EPSG:4326 "$TMP/$n.map" \
      > "$TMP/gdal" 2>/dev/null
    d=$(maxdist "$TMP/ours" "$TMP/gdal")
    measured+=" $n.map ($threshold px) $d m;"
    within "$d" "$([ $threshold = 0.001 ] && echo 0.05 || echo 19)" || fail "$n.map: GDAL and the calibration differ by $d m"
  done
  "$G" calib import "$TMP/$n.map" --format map --out "$TMP/$n.map.xml" >/dev/null || fail "import $n.map"
  "$G" calib pix2geo "$TMP/$n.map.xml" --size 400x300 < "$TMP/pix" | awk '{ print $2, $1 }' > "$TMP/back"
  d=$(maxdist "$TMP/ours" "$TMP/back")
  measured+=" $n.map imported $d m;"
  within "$d" 1 || fail "$n.map imported back: places differ by $d m"
done
gdalinfo --config GDAL_GCPS_TO_GEOTRANSFORM_APPROX_THRESHOLD 0.001 "$TMP/gcp.map" 2>/dev/null | grep -q 'GCP\[ 24\]' ||
  fail "gcp.map: GDAL does not list 25 control points"

# Export to .points and back: the reference points come back unchanged.
"$G" calib export "$TMP/gcp.xml" --size 400x300 --format points --out "$TMP/gcp.points" || fail "export points"
head -2 "$TMP/gcp.points" | tail -1 | grep -qx 'mapX,mapY,pixelX,pixelY,enable,dX,dY,residual' || fail "points header"
"$G" calib import "$TMP/gcp.points" --format points --image "$TMP/geo.tif" --out "$TMP/gcp.points.xml" >/dev/null ||
  fail "import points"
diff <(grep -A1 calquads "$TMP/gcp.xml") <(grep -A1 calquads "$TMP/gcp.points.xml") >/dev/null || fail "points round trip"

# Hostile input: a clear message with the line, exit 1, never a crash.
printf '%s\n' 'mapX,mapY,pixelX,pixelY,enable,dX,dY,residual' '16.2,48.3,0.5,-0.5,1,0,0,0' '16.3,nan,1,1,1,0,0,0' > "$TMP/bad.points"
"$G" calib import "$TMP/bad.points" --format points --image "$TMP/geo.tif" 2>"$TMP/err" >/dev/null
[ $? -eq 1 ] || fail "bad .points: exit code"
grep -q 'line 3: field 2 "nan" is not a finite number' "$TMP/err" || fail "bad .points message: $(cat "$TMP/err")"
printf 'not a calibration\n' > "$TMP/bad.map"
"$G" calib import "$TMP/bad.map" --format map 2>"$TMP/err" >/dev/null
[ $? -eq 1 ] || fail "bad .map: exit code"
grep -q 'bad.map' "$TMP/err" || fail "bad .map message: $(cat "$TMP/err")"
"$G" calib import "$TMP/geo.tif" --format png 2>/dev/null >/dev/null
[ $? -eq 2 ] || fail "an unknown --format should be a usage error"

echo "GDAL against the imported calibrations, largest distance over the sample pixels:$measured"
[ $fails -eq 0 ] && echo "georef_import: all checks passed"
exit $((fails > 0))
