#!/usr/bin/env bash
# End-to-end checks of geotool's geodesy commands: formats, documented values, round trips, error lines
# and exit codes; where the GeographicLib command-line tools are installed, the UTM numbers are also
# compared with theirs.
# usage: geodesy.sh GEOTOOL REPO_ROOT
set -uo pipefail
G=$1
root=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }
expect() {  # expect NAME EXPECTED ACTUAL
  [[ "$2" == "$3" ]] || fail "$1: expected [$2], got [$3]"
}
near() {  # near NAME TOLERANCE "EXPECTED NUMBERS" "ACTUAL NUMBERS": field by field within TOLERANCE
  awk -v tol="$2" -v e="$3" -v a="$4" 'BEGIN {
    n = split(e, x, /[ |]+/); m = split(a, y, /[ |]+/); if (n != m) exit 1
    for (i = 1; i <= n; i++) { d = x[i] - y[i]; if (d < 0) d = -d; if (d > tol) exit 1 } }' ||
    fail "$1: expected [$3] within $2, got [$4]"
}

# Documented values, exact output format (degrees 10 decimals, metres 4).
expect "utm Vienna" "33 U 596597.8307 5339346.7921" "$("$G" utm 48.2 16.3)"
# 1e-9 degrees is 0.1 mm: the input is rounded to the micrometre.
near "utm inverse Vienna" 1e-9 "48.2 16.3" "$("$G" utm --inverse 33 N 596597.830737 5339346.792092)"
expect "utm equator" "33 N 500000.0000 0.0000" "$("$G" utm 0 15)"
expect "utm outside" "0 -" "$("$G" utm 84.5 20 | cut -d' ' -f1-2)"
expect "zone 84" "33X" "$("$G" zone 84 10)"
expect "zone beyond 84" "" "$("$G" zone 84.0001 10)"
expect "zone Norway" "32V" "$("$G" zone 60 5)"
expect "zone Svalbard" "37X" "$("$G" zone 78 41.9)"
expect "zone 180" "" "$("$G" zone 0 180)"
expect "ups pole" "2000000.0000 2000000.0000" "$("$G" ups 90 0)"
expect "ups south pole" "2000000.0000 2000000.0000" "$("$G" ups -90 0)"
expect "ups lon 90" "2000000.0000" "$("$G" ups 85 90 | cut -d' ' -f2)"
expect "geocentric origin" "6378137.0000 0.0000 0.0000" "$("$G" geocentric 0 0 0)"
expect "geocentric pole" "0.0000 0.0000 6356752.3142" "$("$G" geocentric 90 0 0)"
expect "helmert identity" "48.2000000000 16.3000000000 200.0000 0" "$("$G" helmert 269 269 48.2 16.3 200)"
expect "helmert status -3" "-3" "$("$G" helmert 269 269 91 16.3 0 | cut -d' ' -f4)"
expect "helmert status -4 wins" "-4" "$("$G" helmert 269 269 91 181 0 | cut -d' ' -f4)"
expect "helmert folded longitude" "-60.0" "$("$G" helmert 269 269 10 120 0 | cut -d' ' -f2 | cut -c1-5)"
expect "tm kernel unscaled" "0.0000 0.0000" "$("$G" tm --lon0 15 0 15)"

# Streaming: comments and blank lines skipped, bad lines reported by number, the run goes on, exit 1.
printf '# header\n48.2 16.3\n\n48.2 x\n-33.9 18.4 7\n-33.9 18.4\n95 0\n' | "$G" utm >"$tmp/out" 2>"$tmp/err"
rc=$?
expect "stream exit code" "1" "$rc"
expect "stream lines" "2" "$(wc -l <"$tmp/out" | tr -d ' ')"
grep -q 'line 4: not a number: "x"' "$tmp/err" || fail "stream: no message for line 4: $(cat "$tmp/err")"
grep -q 'line 5: expected 2 fields' "$tmp/err" || fail "stream: no message for line 5"
grep -q 'line 7: latitude outside' "$tmp/err" || fail "stream: no message for line 7"
expect "stream second record" "34 H" "$(sed -n 2p "$tmp/out" | cut -d' ' -f1-2)"

printf '33 X 1 2\n61 N 500000 0\n' | "$G" utm --inverse >/dev/null 2>"$tmp/err"
expect "inverse bad lines exit" "1" "$?"
expect "inverse bad lines count" "2" "$(wc -l <"$tmp/err" | tr -d ' ')"

# Round trips through the tool: forward then inverse returns the input to 1e-9 degrees.
awk 'BEGIN { for (lat = -79.5; lat <= 83.5; lat += 3.7) for (lon = -179.5; lon < 180; lon += 11.3) print lat, lon }' \
  >"$tmp/grid"
"$G" utm <"$tmp/grid" | awk '{ print $1, ($2 < "N" ? "S" : "N"), $3, $4 }' | "$G" utm --inverse >"$tmp/back"
paste -d' ' "$tmp/grid" "$tmp/back" | awk '
  { d1 = $1 - $3; d2 = $2 - $4; if (d1 < 0) d1 = -d1; if (d2 < 0) d2 = -d2
    if (d1 > 1e-8 || d2 > 1e-8) { print "utm round trip off:", $0; bad = 1 } }
  END { exit bad }' || fail "utm round trip"
printf '87 30\n-88 -120\n' | "$G" ups >"$tmp/ups"
paste -d' ' <(printf 'N\nS\n') "$tmp/ups" | "$G" ups --inverse >"$tmp/upsback"
# The grid is printed to 0.1 mm, about 1e-9 degrees of latitude; at 2° from the pole a longitude
# degree is only 3.9 km long, so the longitude tolerance is wider.
near "ups round trip" 1e-8 "87 30 -88 -120" "$(paste -sd' ' "$tmp/upsback")"

# Tables.
expect "datums rows" "271" "$("$G" datums | wc -l | tr -d ' ')"
expect "datum 216 name with its trailing blank" "QORNOQ |Greenland South" "$("$G" datums | sed -n 216p | cut -f2,3 | tr '\t' '|')"
expect "datum 269 fields" "269	WORLD GEODETIC SYSTEM 1984	World	gelWGS84	0	0	0	0	0	0	0" "$("$G" datums | sed -n 269p)"
expect "countries rows" "231" "$("$G" countries | wc -l | tr -d ' ')"
expect "countries mm" "33	Burma;Myanmar	bm	mm	mmr	22	98	Rangoon	19.7361	96.2089	77" "$("$G" countries mm)"
"$G" countries nosuchplace >/dev/null 2>&1
expect "countries no match exit" "1" "$?"

# Usage errors exit 2; help exits 0.
"$G" utm --ellipsoid gelNoSuch 1 2 >/dev/null 2>&1
expect "unknown ellipsoid exit" "2" "$?"
"$G" helmert 0 269 1 2 3 >/dev/null 2>&1
expect "bad datum exit" "2" "$?"
"$G" tm 1 2 >/dev/null 2>&1
expect "tm without --lon0 exit" "2" "$?"
for c in utm tm ups geocentric helmert zone datums countries; do
  "$G" $c --help >/dev/null 2>&1 || fail "$c --help"
done

# Other ellipsoids are honoured.
[[ "$("$G" utm --ellipsoid gelInt24 48.2 16.3)" != "$("$G" utm 48.2 16.3)" ]] || fail "--ellipsoid ignored"

# Independent check of the UTM numbers where GeographicLib's GeoConvert is installed (1 mm).
if command -v GeoConvert >/dev/null; then
  awk 'BEGIN { for (lat = -79.5; lat <= 83.5; lat += 4.1) for (lon = -179.5; lon < 180; lon += 7.9) print lat, lon }' \
    >"$tmp/grid2"
  "$G" utm <"$tmp/grid2" >"$tmp/ours"
  GeoConvert -u -p 4 <"$tmp/grid2" >"$tmp/theirs"
  paste -d' ' "$tmp/ours" "$tmp/theirs" | awk '
    { z = $5; sub(/[ns]$/, "", z)
      if ($1 != z + 0) { print "zone differs:", $0; bad = 1; next }
      de = $3 - $6; dn = $4 - $7; if (de < 0) de = -de; if (dn < 0) dn = -dn
      if (de > 0.001 || dn > 0.001) { print "UTM differs by more than 1 mm:", $0; bad = 1 } }
    END { exit bad }' || fail "UTM against GeoConvert"
fi

if ((fails > 0)); then
  echo "$fails check(s) failed" >&2
  exit 1
fi
echo "geodesy: all checks passed"
