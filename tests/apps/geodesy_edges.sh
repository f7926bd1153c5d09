#!/usr/bin/env bash
# geotool's UTM, TM and UPS at the edges of their domains: the last double before a zone or band edge, the
# antimeridian, the poles, and messages that quote the offending value in full. Where GeographicLib's tools
# are installed, every zone and band edge one ulp either side against GeoConvert.
# usage: geodesy_edges.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }

# name | arguments | standard output, lines joined by ';' ('~': not checked) | exit code
while IFS='|' read -r name args want rc; do
  [[ -z "$name" || "$name" == \#* ]] && continue
  out=$("$G" $args 2>/dev/null </dev/null)
  got_rc=$?
  out=$(printf '%s' "$out" | tr '\n' ';')
  [[ "$got_rc" == "$rc" && ("$want" == "~" || "$out" == "$want") ]] ||
    fail "$name: expected [$want] exit $rc, got [$out] exit $got_rc"
done <<'EOF'
utm one ulp below 180 is zone 60|utm 0 179.99999999999997|60 N 833978.5569 0.0000|0
utm one ulp below a zone edge|utm 0 5.999999999999999|31 N 833978.5569 0.0000|0
utm one ulp below a band edge|utm 7.999999999999999 3|31 N 500000.0000 884297.8512|0
utm band edge itself|utm 8 3|31 P 500000.0000 884297.8512|0
utm south of the equator by a hair|utm -1e-300 3|31 M 500000.0000 10000000.0000|0
utm Norway edge below|utm 56 2.9999999999999996|31 V 500000.0000 6206079.5873|0
utm Norway edge|utm 56 3|32 V 126049.9707 6222336.3353|0
utm Svalbard edge below|utm 72 8.999999999999998|31 X 706636.4959 7999233.6372|0
utm last double of the area|utm 84 179.99999999999997|60 X 534994.6551 9329005.1824|0
utm inverse west of zone 1|utm --inverse 1 N 100000 5000000|45.0404054603 177.9212660714|0
utm inverse east of zone 60|utm --inverse 60 S 900000 5000000|-45.0404054603 -177.9212660714|0
tm the pole on the meridian|tm --inverse --lon0 0 0 10001965.7293127228|90.0000000000 -180.0000000000|0
tm the south pole|tm --inverse --lon0 20 0 -10001965.7293125|-90.0000000000 20.0000000000|0
tm over the pole|tm --inverse --lon0 20 --precision 6 0 10101965.7293|89.104696 -160.000000|0
tm forward over the pole|tm --lon0 20 --precision 3 89.10469586044 -160|0.000 10101965.729|0
tm forward over the south pole|tm --lon0 20 --precision 3 -89.10469586044 -160|0.000 -10101965.729|0
tm inverse near the pole off the meridian|tm --inverse --lon0 20 1e-6 10001965.7293125|* *|1
tm forward the pole at any longitude|tm --lon0 0 90 120|0.0000 10001965.7293|0
tm forward across the antimeridian|tm --lon0 180 10 -179|109644.6304 1106020.9976|0
tm the same place about Greenwich|tm --lon0 0 10 1|109644.6304 1106020.9976|0
tm inverse across the antimeridian|tm --lon0 180 --inverse --precision 6 109644.6304 1106020.9976|10.000000 -179.000000|0
tm forward 30 degrees the short way|tm --lon0 170 10 -160|3440689.8305 1274010.4806|0
tm forward beyond 30 the short way|tm --lon0 170 10 -159.99|* *|1
ups the pole|ups --inverse N 2000000 2000000|90.0000000000 180.0000000000|0
ups the south pole|ups --inverse S 2000000 2000000|-90.0000000000 0.0000000000|0
ups forward at 180|ups 85 180|2000000.0000 2555457.3914|0
EOF

# Through the tool and back: a grid position west of zone 1 comes back as a longitude geotool utm takes,
# and projects in zone 60 to the same place.
back=$("$G" utm --inverse --precision 12 1 N 100000 5000000) && fwd=$("$G" utm $back) ||
  fail "utm inverse west of zone 1 does not go forward again: [$back] [${fwd:-}]"
[[ "${fwd:-}" == "60 T "* ]] || fail "west of zone 1 lands in ${fwd:-nothing}, not 60 T"
# The TM inverse output goes forward again, across the antimeridian and at the pole.
for rec in "180 -111000 1000000" "0 0 10001965.7293127228" "-175 -500000 -3000000"; do
  set -- $rec; xy=""
  ll=$("$G" tm --inverse --lon0 "$1" --precision 12 "$2" "$3") && xy=$("$G" tm --lon0 "$1" $ll) ||
    fail "tm round trip about $1 of $2 $3: [$ll] [${xy:-}]"
  awk -v a="${xy:-x x}" -v x="$2" -v y="$3" 'BEGIN { split(a, v, " "); exit !((v[1] - x) ^ 2 + (v[2] - y) ^ 2 < 1e-6) }' ||
    fail "tm round trip about $1 of $2 $3 gives ${xy:-nothing}"
done

# Messages quote the offending value with every digit it takes, so that it can never look as if it were
# inside the range beside it.
while IFS='|' read -r args message; do
  [[ -z "$args" ]] && continue
  "$G" $args 2>"$tmp/err" >/dev/null
  grep -qxF "$message" "$tmp/err" || fail "$args: expected message [$message], got [$(cat "$tmp/err")]"
done <<'EOF'
utm 84.0000001 0|geotool utm: latitude 84.0000001 is outside the UTM area -80..84 (geotool ups covers the caps)
utm 84.00000000000001 0|geotool utm: latitude 84.00000000000001 is outside the UTM area -80..84 (geotool ups covers the caps)
utm -80.00000000000001 0|geotool utm: latitude -80.00000000000001 is outside the UTM area -80..84 (geotool ups covers the caps)
utm 90.0000000001 0|geotool utm: latitude 90.0000000001 is outside -90..90
utm 0 -180.00000000000003|geotool utm: longitude -180.00000000000003 is outside -180..180
ups 83.49999999999999 0|geotool ups: latitude 83.49999999999999 is outside the UPS caps (latitude 83.5 to 90 north, -79.5 to -90 south)
utm --inverse 33 N 99999.99999999999 0|geotool utm: easting 99999.99999999999 is outside 100000..900000 m (400 km either side of the zone's central meridian)
utm --inverse 33 N 500000 10000000.000000002|geotool utm: northing 10000000.000000002 is outside 0..10000000 m
tm --lon0 15 10 45.00000000000001|geotool tm: longitude 45.00000000000001 is 30.000000000000007 degrees from the central meridian, more than 30, where the series no longer holds
helmert 269 269 -90.00000000000001 0 0|geotool helmert: HelmertTransform status -3: latitude -90.00000000000001 is outside -90..90
EOF
# Computed values: their last digits depend on the maths library, their first ones must not round into
# the range.
"$G" ups --inverse N 2000000 1277601.5 2>"$tmp/err" >/dev/null
grep -qE '^geotool ups: x y lie beyond the cap: latitude 83\.49999985[0-9]* is outside' "$tmp/err" ||
  fail "ups cap message: $(cat "$tmp/err")"
"$G" utm --inverse 33 N 500000 9400000 2>"$tmp/err" >/dev/null
grep -qE '^geotool utm: easting and northing lie beyond the zone: latitude 84\.644099[0-9]* is outside -80\.5\.\.84\.5$' \
  "$tmp/err" || fail "utm beyond the zone message: $(cat "$tmp/err")"
"$G" utm --inverse 1 N 100000 8000000 2>"$tmp/err" >/dev/null
grep -qE '^geotool utm: easting and northing lie beyond the zone: longitude 171\.[0-9]+ is 11\.[0-9]+ degrees from its meridian, more than 9$' \
  "$tmp/err" || fail "utm far from the meridian message: $(cat "$tmp/err")"

# Every zone and band edge, one ulp either side, against GeoConvert's zone, band and grid position (it
# leaves 84 degrees to UPS, so the sweep stops below it).
if command -v GeoConvert >/dev/null && command -v python3 >/dev/null; then
  python3 - >"$tmp/edges" <<'PY'
import math
from decimal import Decimal
lons = [float(l) for l in range(-180, 180, 6)] + [3.0, 9.0, 12.0, 21.0, 33.0, 42.0]
lats = [float(l) for l in range(-80, 73, 8)] + [84.0]
def around(e):
    return [math.nextafter(e, -math.inf), e, math.nextafter(e, math.inf), e + 1.5]
for lat in sorted({v for e in lats for v in around(e)}):
    for lon in sorted({v for e in lons for v in around(e)} | {math.nextafter(180.0, 0.0)}):
        # One ulp below the equator underflows to 0 in radians, and the northing of 0 is northern by
        # definition: the band there (M) is checked against GeographicLib in the library's tests.
        if -80.0 <= lat < 84.0 and -180.0 <= lon < 180.0 and not (0 < abs(lat) < 1e-300):
            # Plain decimals: GeoConvert reads the "e" of an exponent as a hemisphere.
            print(format(Decimal(repr(lat)), 'f'), format(Decimal(repr(lon)), 'f'))
PY
  [[ $(wc -l <"$tmp/edges") -gt 5000 ]] || fail "edge sweep too small"
  paste -d' ' <("$G" utm <"$tmp/edges") <(GeoConvert -u -p 4 <"$tmp/edges") <(GeoConvert -m -p -6 <"$tmp/edges") |
    awk '{ z = $5; sub(/[ns]$/, "", z); de = $3 - $6; dn = $4 - $7; gzd = $8
           band = substr(gzd, length(gzd)); z2 = substr(gzd, 1, length(gzd) - 1) + 0
           if ($1 != z + 0 || $1 != z2 || $2 != band || de * de + dn * dn > 1e-6) { print "differs:", $0; bad = 1 } }
         END { exit bad }' >"$tmp/diff" || fail "zone edges against GeoConvert: $(head -5 "$tmp/diff")"
fi

((fails == 0)) || { echo "$fails check(s) failed" >&2; exit 1; }
echo "geodesy edges: all checks passed"
