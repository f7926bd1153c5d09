#!/usr/bin/env bash
# geotool calib end to end: show, pix2geo/geo2pix round trips on the bundled calibrations, fitting a
# synthetic map from control points, and the error paths. Usage: calib.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
ROOT=$2
CAL=$ROOT/data/samples/calib-vienna.xml
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }

# show: model, size from the image header, zone.
out=$("$G" calib show "$CAL") || fail "show exited $?"
grep -q '^model *utm$' <<<"$out" || fail "show: model"
grep -q '^image size *800 x 600 px (header of ' <<<"$out" || fail "show: image size from the header"
grep -q '^UTM zone *33 north$' <<<"$out" || fail "show: zone"
grep -q '^quads 6 ' <<<"$out" || fail "show: quads"
# Residuals to 0.01 px and in metres (12.5 m per pixel here), the worst point and the leave-one-out figure.
grep -qx '    4   5337750.00000    604750.00000    701    500    700.70    500.00     0.30      3.75     0.70' <<<"$out" ||
  fail "show: residual row of point 4"
grep -qx 'residuals     rms 0.22 px, 2.80 m over 6 points; worst point 4 (0.30 px, 3.75 m); leave-one-out: point 4 moves 0.70 px when fitted without it' <<<"$out" ||
  fail "show: residual summary"
"$G" calib show "$CAL" --id GRAT | grep -q '^graticule lines 8$' || fail "show: graticule lines by id"

# pixels -> places -> pixels reproduces the pixels under every calibration in the file.
printf '%s\n' "0 0" "400 300" "799 599" "123 456" "650 20" > "$TMP/pix"
for id in utm geo grat; do
  "$G" calib pix2geo "$CAL" --id "$id" < "$TMP/pix" > "$TMP/geo.$id" || fail "pix2geo $id"
  awk '$3 != 1 { bad = 1 } END { exit bad }' "$TMP/geo.$id" || fail "pix2geo $id: invalid result"
  cut -d' ' -f1,2 "$TMP/geo.$id" | "$G" calib geo2pix "$CAL" --id "$id" | cut -d' ' -f1,2 > "$TMP/back.$id"
  diff -q "$TMP/pix" "$TMP/back.$id" >/dev/null || fail "round trip $id: $(paste -d'|' "$TMP/pix" "$TMP/back.$id" | tr '\n' ' ')"
done
# The three calibrations of one sheet agree on a place to a few metres (1e-4 degrees).
paste -d' ' "$TMP/geo.utm" "$TMP/geo.geo" "$TMP/geo.grat" |
  awk 'function a(x) { return x < 0 ? -x : x }
       { if (a($1-$4) > 1e-4 || a($1-$7) > 1e-4 || a($2-$5) > 1e-4 || a($2-$8) > 1e-4) bad = 1 } END { exit bad }' ||
  fail "the calibrations of the sample disagree"

# fit: an exact affine map, lat = 50 - 0.001 y, lon = 10 + 0.002 x, is recovered exactly.
printf '%s\n' "50 10 0 0" "50 12 1000 0" "49.2 10 0 800" "49.5 11 500 500" |
  "$G" calib fit --model equirect --size 1000x800 --id t --map sheet.bmp --caption "Test sheet" > "$TMP/fit.xml" 2>"$TMP/fit.err" ||
  fail "fit equirect"
grep -q 'residuals rms 0.00 px, 0.00 m over 4 points' "$TMP/fit.err" || fail "fit: exact residuals"
grep -q '^<geomap sig="Quorvanta" vers="1.0" id="t" model="equirect" map="sheet.bmp" caption="Test sheet">$' "$TMP/fit.xml" ||
  fail "fit: header line"
grep -qx '\[50.00000,10.00000\] \[49.20000,10.00000\] \[49.20000,12.00000\] \[50.00000,12.00000\] ' "$TMP/fit.xml" ||
  fail "fit: corners"
got=$("$G" calib pix2geo "$TMP/fit.xml" 250 100)
[ "$got" = "49.9000000000 10.5000000000 1" ] || fail "fit: pix2geo gave '$got'"
got=$("$G" calib geo2pix "$TMP/fit.xml" 49.5 11.5)
[ "$got" = "750 500 1" ] || fail "fit: geo2pix gave '$got'"

# fit under utm writes the zone and reads back; a missing zone is a usage error.
printf '%s\n' "5342750 597250 100 100" "5342750 604750 700 100" "5337750 597250 100 500" |
  "$G" calib fit --model utm --zone 33 --south --size 800x600 > "$TMP/utm.xml" 2>/dev/null || fail "fit utm"
grep -qx '<utmsouth>TRUE</utmsouth>' "$TMP/utm.xml" || fail "fit utm: hemisphere"
echo "1 2 3 4" | "$G" calib fit --model utm --size 10x10 >/dev/null 2>&1
[ $? -eq 2 ] || fail "fit utm without --zone should be a usage error"
echo "1 2 3 4" | "$G" calib fit --model conicconformal --size 10x10 >/dev/null 2>&1 && fail "fit with one point should fail"

# Degenerate point sets are named, not reported as a zero residual: three points for three coefficients
# (a warning), repeated points (a warning), collinear pixels and a latitude beyond 90 degrees (errors).
fitmsg() { printf '%s\n' "$@" | "$G" calib fit --model equirect --size 1000x800 2>&1 >/dev/null; }
grep -q 'residuals not meaningful: no redundancy: 3 points for 3 coefficients' <<<"$(fitmsg "50 10 0 0" "50 12 1000 0" "49.2 10 0 800")" ||
  fail "fit: no redundancy"
grep -q 'points 2 and 3 repeat a pixel' <<<"$(fitmsg "50 10 0 0" "50 12 1000 0" "50 12 1000 0" "49 13 200 500")" ||
  fail "fit: repeated points"
grep -q 'collinear points' <<<"$(fitmsg "50 10 0 0" "50 12 1000 0" "50 11 500 0" "49 13 200 0")" || fail "fit: collinear pixels"
grep -q 'point 3 lies outside the globe' <<<"$(fitmsg "50 10 0 0" "50 12 1000 0" "95 11 500 300" "49 13 200 0")" ||
  fail "fit: latitude beyond 90"
fitmsg "50 10 0 0" "50 11 500 0" "49 13 200 0" >/dev/null && fail "fit: collinear points should exit non-zero"

# Error paths: unreadable file, unknown id, a malformed file, a bad input line.
"$G" calib show "$TMP/missing.xml" 2>"$TMP/err" && fail "missing file accepted"
grep -q 'cannot open ".*missing.xml": No such file or directory' "$TMP/err" || fail "missing file message: $(cat "$TMP/err")"
"$G" calib show "$CAL" --id nosuch 2>"$TMP/err" && fail "unknown id accepted"
grep -q 'no calibration with id "nosuch"' "$TMP/err" || fail "unknown id message"
printf '<geomap sig="Quorvanta" id="1">\n<calline type="diagonal" value="1" npoints="0">\n</calline>\n</geomap>\n' > "$TMP/bad.xml"
"$G" calib show "$TMP/bad.xml" 2>"$TMP/err" && fail "malformed file accepted"
grep -q 'ParseCalibData: invalid type of graticule line: type="diagonal' "$TMP/err" || fail "malformed file message"
out=$(printf '%s\n' "10 10" "ten 10" "20 20" | "$G" calib pix2geo "$CAL" 2>"$TMP/err")
[ $? -eq 1 ] || fail "bad line: exit code"
[ "$(tr '\n' '|' <<<"$out" | cut -d'|' -f2)" = "* * *" ] || fail "bad line: placeholder, the run goes on: $out"
[ "$(wc -l <<<"$out")" -eq 3 ] || fail "bad line: one output line per input line"
grep -q 'line 2' "$TMP/err" || fail "bad line: line number"
got=$("$G" calib geo2pix "$CAL" 48.2 16.3 id7)
[ "${got##* }" = "id7" ] || fail "geo2pix passes trailing fields through: $got"
"$G" calib geo2pix "$CAL" 91 16.3 >/dev/null 2>&1
[ $? -eq 1 ] || fail "geo2pix: latitude beyond 90 accepted"
got=$("$G" calib pix2geo "$CAL" --precision 3 400 300)
[[ "$got" =~ ^[0-9]+\.[0-9]{3}\ [0-9]+\.[0-9]{3}\ 1$ ]] || fail "pix2geo --precision 3: $got"
for args in "show $CAL" "pix2geo $CAL 1 1" "geo2pix $CAL 48.2 16.3"; do
  $G calib $args >/dev/full 2>"$TMP/err"
  [ $? -eq 1 ] && grep -q 'No space left on device' "$TMP/err" || fail "calib $args > /dev/full"
done
printf '%s\n' "50 10 0 0" "50 12 1000 0" "49.2 10 0 800" | "$G" calib fit --model equirect --size 1000x800 >/dev/full 2>"$TMP/err"
[ $? -eq 1 ] && grep -q 'No space left on device' "$TMP/err" || fail "fit > /dev/full: $(cat "$TMP/err")"

if [ "$fails" -ne 0 ]; then
  echo "$fails check(s) failed" >&2
  exit 1
fi
echo "calib: all checks passed"
