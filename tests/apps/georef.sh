#!/usr/bin/env bash
# geotool calib export/import end to end, with GDAL as the independent reader: gdaltransform on the
# exported VRT must give the calibration's own places (pix2geo), GDAL's reading of a world file beside
# the image must too, and world files and control-point lists must come back through import and export.
# Usage: georef.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
ROOT=$2
if ! command -v gdaltransform >/dev/null; then
  echo "SKIP: gdaltransform not installed (Debian package gdal-bin); georeferenced export not checked"
  exit 0
fi
CAL=$ROOT/data/samples/calib-vienna.xml
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
measured=""  # the distances found, printed at the end
cp "$ROOT/data/samples/calib-vienna.bmp" "$TMP/m.bmp"
printf '%s\n' "0 0" "400 300" "799 599" "123 456" "650 20" "1 598" > "$TMP/pix"

# GDAL's image coordinates put the centre of pixel (x, y) at (x + 0.5, y + 0.5).
centres() { awk '{ print $1 + 0.5, $2 + 0.5 }' "$TMP/pix"; }
# Largest distance in metres between "lat lon valid" (ours) and "lon lat ..." (GDAL's) line by line.
maxdist() {
  paste -d' ' "$1" "$2" | awk '{ k = 111320; dy = ($1 - $5) * k; dx = ($2 - $4) * k * cos($1 * 3.14159265 / 180);
                                 d = sqrt(dx * dx + dy * dy); if (d > m) m = d } END { printf "%.6f\n", m }'
}
within() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a <= b) }'; }

# Equirect and UTM calibrations of the sample: the VRT's control points, refitted by GDAL with a
# first-order polynomial, give the calibration's places to well within a metre.
for id in geo utm; do
  "$G" calib export "$CAL" --id $id --format vrt --out "$TMP/$id.vrt" || fail "export vrt $id"
  "$G" calib pix2geo "$CAL" --id $id < "$TMP/pix" > "$TMP/ours.$id"
  centres | gdaltransform -order 1 -t_srs EPSG:4326 "$TMP/$id.vrt" > "$TMP/gdal.$id" 2>"$TMP/err" || fail "gdaltransform $id: $(cat "$TMP/err")"
  d=$(maxdist "$TMP/ours.$id" "$TMP/gdal.$id")
  measured+=" vrt $id $d m;"
  within "$d" 0.01 || fail "vrt $id: GDAL and the calibration differ by $d m"
done
gdalinfo "$TMP/geo.vrt" 2>/dev/null | grep -q 'Size is 800, 600' || fail "gdalinfo: VRT size"
gdalinfo -checksum "$TMP/geo.vrt" 2>/dev/null | grep -q 'Checksum=' || fail "gdalinfo: the VRT's image does not read"

# A biquadratic fit of 25 points with two of them a pixel off: GDAL's second-order polynomial through
# the VRT's control points agrees with the calibration to within the fit's own rms residual.
awk 'BEGIN { for (x = 0; x < 800; x += 199) for (y = 0; y < 600; y += 149) {
               lat = 48.25 - 0.000112 * y - 4e-10 * x * x + 1.5e-10 * x * y; lon = 16.29 + 0.000168 * x + 2e-9 * y * y - 3e-6 * y
               printf "%.5f %.5f %d %d\n", lat, lon, x + (x == 199 && y == 149), y + (x == 597 && y == 447) } }' |
  "$G" calib fit --model biquadraticpn --size 800x600 --map m.bmp > "$TMP/bq.xml" 2>"$TMP/fit.err" || fail "fit biquadratic"
rms=$(sed -n 's/.*rms [0-9.]* px, \([0-9.]*\) m.*/\1/p' "$TMP/fit.err")
[ -n "$rms" ] && within 1 "$rms" || fail "biquadratic fit: expected a residual of some metres, got '$rms'"
"$G" calib export "$TMP/bq.xml" --format vrt --out "$TMP/bq.vrt" || fail "export vrt biquadratic"
grep -c '<GCP ' "$TMP/bq.vrt" | grep -qx 25 || fail "biquadratic vrt: the 25 reference points"
"$G" calib pix2geo "$TMP/bq.xml" < "$TMP/pix" > "$TMP/ours.bq"
centres | gdaltransform -order 2 "$TMP/bq.vrt" > "$TMP/gdal.bq"
d=$(maxdist "$TMP/ours.bq" "$TMP/gdal.bq")
measured+=" vrt biquadratic $d m (rms residual $rms m);"
within "$d" "$rms" || fail "vrt biquadratic: GDAL and the calibration differ by $d m (rms residual $rms m)"

# A world file beside the image: GDAL's geotransform gives the calibration's places (centre of the
# top-left pixel, rotation terms in the right places and signs).
"$G" calib export "$CAL" --id geo --format worldfile --out "$TMP/m.wld" || fail "export worldfile"
"$G" calib pix2geo "$CAL" --id geo < "$TMP/pix" > "$TMP/ours.geo"
centres | gdaltransform "$TMP/m.bmp" > "$TMP/gdal.wld"
d=$(maxdist "$TMP/ours.geo" "$TMP/gdal.wld")
measured+=" world file $d m"
within "$d" 0.001 || fail "world file: GDAL and the calibration differ by $d m"
"$G" calib export "$CAL" --id utm --format worldfile --out "$TMP/u.wld" || fail "export utm worldfile"
[ "$(gdalsrsinfo -o epsg "$TMP/u.prj" 2>/dev/null | grep EPSG)" = "EPSG:32633" ] || fail "utm world file: .prj is not EPSG:32633"

# World files round-trip through a calibration file exactly: metres under utm, and degrees whose corner
# places the calibration file's 5 decimals hold.
printf '%s\n' 12.5 0 0 -12.5 596006.25 5344000 > "$TMP/in1.wld"
printf '%s\n' 0.00025 0.00001 -0.00002 -0.0002 16.29 48.25 > "$TMP/in2.wld"
"$G" calib import --format worldfile "$TMP/in1.wld" --image "$TMP/m.bmp" --zone 33 --out "$TMP/w1.xml" || fail "import utm world file"
"$G" calib import --format worldfile "$TMP/in2.wld" --image "$TMP/m.bmp" --out "$TMP/w2.xml" || fail "import world file"
for i in 1 2; do
  "$G" calib export "$TMP/w$i.xml" --format worldfile --out "$TMP/out$i.wld" || fail "re-export world file $i"
  cmp -s "$TMP/in$i.wld" "$TMP/out$i.wld" || fail "world file $i round trip: $(paste -d' ' "$TMP/in$i.wld" "$TMP/out$i.wld" | tr '\n' '|')"
done

# A control-point list round-trips: export, import under the same model, export again.
for id in geo utm; do
  zone=(); [ $id = utm ] && zone=(--zone 33)
  "$G" calib export "$CAL" --id $id --format gcp --out "$TMP/$id.gcp" || fail "export gcp $id"
  "$G" calib import --format gcp "$TMP/$id.gcp" --image "$TMP/m.bmp" "${zone[@]}" --out "$TMP/$id.back.xml" 2>/dev/null ||
    fail "import gcp $id"
  "$G" calib export "$TMP/$id.back.xml" --format gcp --out "$TMP/$id.back.gcp" || fail "re-export gcp $id"
  diff <(grep -v '^#' "$TMP/$id.gcp") <(grep -v '^#' "$TMP/$id.back.gcp") >/dev/null || fail "gcp round trip $id"
done
grep -qx '100.5 100.5 16.3096 48.23051' "$TMP/geo.gcp" || fail "gcp: the first reference point as image coordinates"

# Refusals: a world file of a non-affine model, an unwritable output, an unreadable input, a bad format.
"$G" calib export "$TMP/bq.xml" --format worldfile --out "$TMP/x.wld" 2>"$TMP/err" && fail "biquadratic world file accepted"
grep -q 'not affine' "$TMP/err" || fail "world file refusal message: $(cat "$TMP/err")"
"$G" calib export "$CAL" --id geo --format gcp --out "$TMP/no/such/dir.gcp" 2>"$TMP/err" && fail "unwritable output accepted"
grep -q 'cannot create ".*no/such/dir.gcp": No such file or directory' "$TMP/err" || fail "unwritable output message: $(cat "$TMP/err")"
"$G" calib import --format gcp "$TMP/missing.gcp" --image "$TMP/m.bmp" --out "$TMP/x.xml" 2>"$TMP/err" && fail "missing input accepted"
grep -q 'cannot open ".*missing.gcp": No such file or directory' "$TMP/err" || fail "missing input message: $(cat "$TMP/err")"
"$G" calib export "$CAL" --format tiff --out "$TMP/x" 2>/dev/null
[ $? -eq 2 ] || fail "an unknown --format should be a usage error"

echo "GDAL against the calibration, largest distance over the sample pixels:$measured"
[ $fails -eq 0 ] && echo "georef: all checks passed"
exit $((fails > 0))
