#!/usr/bin/env bash
# End-to-end checks of geotool's geodesy commands: documented values and formats, domain limits at their
# exact edges, line alignment of streams, pass-through fields, output that cannot be written, exit codes;
# where GeographicLib's command-line tools are installed, the UTM and geocentric numbers against theirs.
# usage: geodesy.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }

# name | arguments | standard input (printf %b; empty: none) | standard output, lines joined by ';' ('~': not
# checked) | exit code
while IFS='|' read -r name args input want rc; do
  [[ -z "$name" || "$name" == \#* ]] && continue
  if [[ -n "$input" ]]; then
    out=$(printf '%b' "$input" | "$G" $args 2>/dev/null)
  else
    out=$("$G" $args 2>/dev/null </dev/null)
  fi
  got_rc=$?
  out=$(printf '%s' "$out" | tr '\n' ';')
  [[ "$got_rc" == "$rc" && ("$want" == "~" || "$out" == "$want") ]] ||
    fail "$name: expected [$want] exit $rc, got [$out] exit $got_rc"
done <<'EOF'
utm Vienna|utm 48.2 16.3||33 U 596597.8307 5339346.7921|0
utm equator|utm 0 15||33 N 500000.0000 0.0000|0
utm longitude 180 is zone 1|utm 0 180||1 N 166021.4431 0.0000|0
utm north edge of the area|utm 84 10||33 X 441721.9187 9330624.4027|0
utm beyond the area|utm 84.0001 10||* * * *|1
utm south edge of the area|utm -80 0||~|0
utm below the area|utm -80.0001 0||* * * *|1
utm pass-through|utm 48.2 16.3 Wien 1||33 U 596597.8307 5339346.7921 Wien 1|0
utm --precision|utm --precision 2 48.2 16.3||33 U 596597.83 5339346.79|0
utm --precision 0|utm --precision=0 48.2 16.3||33 U 596598 5339347|0
utm inverse easting edge|utm --inverse 33 N 100000 0||0.0000000000 11.4076727973|0
utm inverse easting beyond|utm --inverse 33 N 99999.99 0||* *|1
utm inverse easting beyond east|utm --inverse 33 N 900000.01 0||* *|1
utm inverse northing below 0|utm --inverse 33 N 500000 -0.01||* *|1
utm inverse northing beyond|utm --inverse 33 S 500000 10000000.01||* *|1
utm inverse polar corner|utm --inverse 33 N 900000 9600000||* *|1
utm inverse north of 84.5|utm --inverse 33 N 500000 9400000||* *|1
utm inverse bad zone|utm --inverse 61 N 500000 0||* *|1
utm inverse bad hemisphere|utm --inverse 33 X 500000 0||* *|1
zone at 84|zone 84 10||33X|0
zone beyond 84|zone 84.0001 10||-|0
zone Norway|zone 60 5||32V|0
zone Svalbard|zone 78 41.9||37X|0
zone 180|zone 0 180||-|0
ups pole|ups 90 0||2000000.0000 2000000.0000|0
ups south pole|ups -90 0||2000000.0000 2000000.0000|0
ups longitude 90|ups 85 90||2555457.3914 2000000.0000|0
ups cap edge|ups 83.5 0||2000000.0000 1277601.5161|0
ups beyond the cap|ups 83.49 0||* *|1
ups south cap edge|ups -79.5 0||2000000.0000 3168891.7055|0
ups beyond the south cap|ups -79.49 0||* *|1
ups inverse beyond the cap|ups --inverse N 2000000 1000000||* *|1
ups inverse in the south cap|ups --inverse S 2000000 1000000||-81.0106632645 180.0000000000|0
tm kernel unscaled|tm --lon0 15 0 15||0.0000 0.0000|0
tm 30 degrees out|tm --lon0 15 10 45||3440689.8305 1274010.4806|0
tm beyond 30 degrees|tm --lon0 15 10 45.01||* *|1
tm inverse beyond 30 degrees|tm --lon0 15 --inverse 3500000 1274010||* *|1
geocentric origin|geocentric 0 0 0||6378137.0000 0.0000 0.0000|0
geocentric pole|geocentric 90 0 0||0.0000 0.0000 6356752.3142|0
geocentric latitude beyond 90|geocentric 90.5 0 0||* * *|1
geocentric inverse true longitude|geocentric --inverse --precision 4 -2764132.6498 4787618.1883 3170378.7354||30.0000 120.0000 10.0000|0
geocentric inverse folded|geocentric --inverse --folded --precision 4 -2764132.6498 4787618.1883 3170378.7354||30.0000 -60.0000 10.0000|0
geocentric inverse on the axis|geocentric --inverse 0 0 6356852.314245||90.0000000000 0.0000000000 100.0000|0
geocentric folded on the axis|geocentric --inverse --folded 0 0 6356852.314245||* * *|1
helmert identity|helmert 269 269 48.2 16.3 200||48.2000000000 16.3000000000 200.0000 0|0
helmert true longitude|helmert 269 269 10 120 0||10.0000000000 120.0000000000 0.0000 0|0
helmert folded|helmert --folded 269 269 10 120 0||10.0000000000 -60.0000000000 0.0000 0|0
helmert longitude 180 accepted|helmert 269 269 0 180 0||0.0000000000 180.0000000000 0.0000 0|0
helmert status -3|helmert 269 269 91 16.3 0||* * * *|1
helmert status -4|helmert 269 269 91 181 0||* * * *|1
stream aligned|utm|# head\n48.2 16.3 Wien\n\n48.2 x id2\n-33.9\t18.4\tCape Town\n95 0 id3\n1\n|# head;33 U 596597.8307 5339346.7921 Wien;;* * * * id2;34 H 259583.2217 6245888.0454	Cape Town;* * * * id3;* * * *|1
stream all good|ups --inverse|N 2000000 1500000 a\nS 2100000 2000000 b|85.4986847850 0.0000000000 a;-89.0993101496 90.0000000000 b|0
usage: unknown ellipsoid|utm --ellipsoid gelNoSuch 1 2||~|2
usage: bad datum|helmert 0 269 1 2 3||~|2
usage: tm without --lon0|tm 1 2||~|2
usage: bad precision|utm --precision 18 1 2||~|2
usage: --folded without --inverse|geocentric --folded 1 2 3||~|2
usage: unknown command|nosuch||~|2
usage: no command|||~|2
help|utm --help||~|0
countries without a match|countries nosuchplace||~|1
EOF

# Messages name the line and the reason; the helmert status is named.
printf '48.2 16.3\n48.2 x\n95 0\n' | "$G" utm 2>"$tmp/err" >/dev/null
grep -q '^geotool utm: line 2: not a number: "x"$' "$tmp/err" || fail "message for line 2: $(cat "$tmp/err")"
grep -q '^geotool utm: line 3: latitude 95 is outside -90..90$' "$tmp/err" || fail "message for line 3"
"$G" helmert 269 269 91 16.3 0 2>"$tmp/err" >/dev/null
grep -q 'status -3' "$tmp/err" || fail "helmert status message"

# Output that cannot be written is an error for every command: a full device, a closed pipe.
awk 'BEGIN { for (i = 0; i < 300000; i++) print 48.2, 16.3 }' >"$tmp/many"
for cmd in "utm" "ups" "tm --lon0 15" "geocentric" "zone" "helmert 269 1"; do
  $G $cmd <"$tmp/many" >/dev/full 2>"$tmp/err"
  rc=$?
  [[ $rc == 1 ]] && grep -q 'cannot write standard output: No space left on device' "$tmp/err" ||
    fail "$cmd > /dev/full: exit $rc, $(head -c 200 "$tmp/err")"
done
for cmd in "utm 1 2" "datums" "countries" "ellipsoids" "utm --help"; do
  $G $cmd >/dev/full 2>"$tmp/err"
  rc=$?
  [[ $rc == 1 ]] && grep -q 'No space left on device' "$tmp/err" || fail "$cmd > /dev/full: exit $rc"
done
"$G" utm <"$tmp/many" 2>"$tmp/err" | head -1 >/dev/null
rc=${PIPESTATUS[0]}
[[ $rc == 1 ]] && grep -q 'Broken pipe' "$tmp/err" || fail "closed pipe: exit $rc, $(cat "$tmp/err")"

# Round trips through the tool: forward then inverse returns the input to 1e-8 degrees.
awk 'BEGIN { for (lat = -79.5; lat <= 83.5; lat += 3.7) for (lon = -179.5; lon < 180; lon += 11.3) print lat, lon }' \
  >"$tmp/grid"
"$G" utm <"$tmp/grid" | awk '{ print $1, ($2 < "N" ? "S" : "N"), $3, $4 }' | "$G" utm --inverse >"$tmp/back"
paste -d' ' "$tmp/grid" "$tmp/back" | awk '
  { d1 = $1 - $3; d2 = $2 - $4; if (d1 < 0) d1 = -d1; if (d2 < 0) d2 = -d2
    if (d1 > 1e-8 || d2 > 1e-8) { print "utm round trip off:", $0; bad = 1 } }
  END { exit bad }' || fail "utm round trip"

# Tables.
[[ $("$G" datums | wc -l) == 271 ]] || fail "datums rows"
[[ $("$G" datums | sed -n 216p | cut -f2,3) == "QORNOQ 	Greenland South" ]] || fail "datum 216 with its trailing blank"
[[ $("$G" countries | wc -l) == 231 ]] || fail "countries rows"
[[ $("$G" countries mm) == "33	Burma;Myanmar	bm	mm	mmr	22	98	Rangoon	19.7361	96.2089	77" ]] || fail "countries mm"
[[ "$("$G" utm --ellipsoid gelInt24 48.2 16.3)" != "$("$G" utm 48.2 16.3)" ]] || fail "--ellipsoid ignored"

# Independent checks where GeographicLib's tools are installed: UTM to 1 mm, the geocentric inverse with its
# true longitude all round the globe to 0.1 mm.
if command -v GeoConvert >/dev/null && command -v CartConvert >/dev/null; then
  awk 'BEGIN { for (lat = -79.5; lat <= 83.5; lat += 4.1) for (lon = -179.5; lon < 180; lon += 7.9) print lat, lon }' \
    >"$tmp/grid2"
  paste -d' ' <("$G" utm <"$tmp/grid2") <(GeoConvert -u -p 4 <"$tmp/grid2") | awk '
    { z = $5; sub(/[ns]$/, "", z); de = $3 - $6; dn = $4 - $7
      if ($1 != z + 0 || de * de + dn * dn > 1e-6) { print "UTM differs:", $0; bad = 1 } }
    END { exit bad }' || fail "UTM against GeoConvert"
  awk 'BEGIN { for (lat = -85; lat <= 85; lat += 17) for (lon = -180; lon <= 180; lon += 15) print lat, lon, 500 }' |
    CartConvert -p 6 >"$tmp/xyz"
  paste -d' ' <("$G" geocentric --inverse <"$tmp/xyz") <(CartConvert -r -p 9 <"$tmp/xyz") | awk '
    { dlon = $2 - $5; if (dlon > 180) dlon -= 360; if (dlon < -180) dlon += 360
      if (($1 - $4) ^ 2 + (dlon * cos($1 / 57.3)) ^ 2 > (1e-4 / 111320) ^ 2 || ($3 - $6) ^ 2 > 1e-8) {
        print "geocentric inverse differs:", $0; bad = 1 } }
    END { exit bad }' || fail "geocentric inverse against CartConvert"
fi

((fails == 0)) || { echo "$fails check(s) failed" >&2; exit 1; }
echo "geodesy: all checks passed"
