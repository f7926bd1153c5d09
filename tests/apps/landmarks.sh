#!/usr/bin/env bash
# geotool landmarks / symbols end to end: listing, set selection, the GeoJSON round trip, bad input.
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

# Listing: the first set runs to the end of the file and so takes the second set's landmarks too.
check "landmarks in the first set" 8 "$("$geotool" landmarks "$samples/landmarks-vienna.xml" | wc -l)"
check "landmarks in set STATIONS" 2 "$("$geotool" landmarks "$samples/landmarks-vienna.xml" --id STATIONS | wc -l)"
check "fields per landmark line" 27 "$("$geotool" landmarks "$samples/landmarks-vienna.xml" | head -n 1 | awk -F'\t' '{print NF}')"
check "first landmark" $'1\t48.20849\t16.37208\t171\t1\t101\tSpade\t6\t000000FF\t0000FFFF\tFALSE\t0\t10\tStephansdom\t9\tDejaVu Sans\t1000\t00000000\t00FFFFFF\tFALSE\t0\t10\t0\tcenter\ttop\tSTEPHANSDOM\t2024-05-17T09:30:00' \
  "$("$geotool" landmarks "$samples/landmarks-vienna.xml" | head -n 1)"

# The GeoJSON round trip keeps every field.
"$geotool" landmarks "$samples/landmarks-vienna.xml" --to-geojson > "$tmp/all.geojson" || fail=1
"$geotool" landmarks --from-geojson "$tmp/all.geojson" --id back > "$tmp/back.xml" || fail=1
check "round trip through GeoJSON" "$("$geotool" landmarks "$samples/landmarks-vienna.xml")" \
  "$("$geotool" landmarks "$tmp/back.xml" --id BACK)"
check "features" 8 "$(grep -c '"type":"Feature"' "$tmp/all.geojson")"
# Extreme values survive the round trip too.
cat > "$tmp/extreme.xml" <<'XML'
<gmlandmarks sig="Quorvanta" vers="1.0" id="x">
<landmark lat="-89.99999999999999" long="179.99999999999997" alti="1e-300" class="255" usertag="-2147483648" colorfg="FFFFFFFF" colorbg="80000001" size="-2147483648" transp="TRUE" dir="2147483647" leng="-1" element="arrowto" id="ID with 15 char" date="00010101000000" captext="it's a &quot;caption&quot; with 'quotes' &amp; ümlauts" capsize="0" capfnm="Font, Name" capfgcol="0" capbgcol="00ABCDEF" captransp="FALSE" capdir="-90" capdx="-2147483648" capdy="2147483647" caphal="0" capval="2" capfst="1111" />
<landmark lat="0" long="-0" date="99991231235959" captext='say "hi"' caphal="1" capval="1" capfst="0001" />
</gmlandmarks>
XML
"$geotool" landmarks "$tmp/extreme.xml" --to-geojson | "$geotool" landmarks --from-geojson - > "$tmp/extreme-back.xml" || fail=1
check "extreme values through GeoJSON" "$("$geotool" landmarks "$tmp/extreme.xml")" "$("$geotool" landmarks "$tmp/extreme-back.xml")"
check "extreme landmarks" 2 "$("$geotool" landmarks "$tmp/extreme-back.xml" | wc -l)"

# ...and standard input works as well.
check "from standard input" 8 \
  "$("$geotool" landmarks --from-geojson - < "$tmp/all.geojson" | "$geotool" landmarks /dev/stdin | wc -l)"

# A foreign GeoJSON: defaults for what is missing, CSS colours, a bad feature reported and skipped.
cat > "$tmp/foreign.geojson" <<'JSON'
{"type": "FeatureCollection", "features": [
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [16.5, 48.1]}, "properties": {"caption_text": "A > B", "symbol_fgcolor": "#FF8000"}},
 {"type": "Feature", "geometry": {"type": "LineString", "coordinates": [[0, 0], [1, 1]]}, "properties": {}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [1, 2, 3]}, "properties": {"class": 999}},
 {"type": "Feature", "geometry": {"type": "Point", "coordinates": [3, 4]}, "properties": null}
]}
JSON
"$geotool" landmarks --from-geojson "$tmp/foreign.geojson" > "$tmp/foreign.xml" 2> "$tmp/err.txt"
check "exit code with skipped features" 1 $?
check "skipped features reported" 2 "$(grep -c 'skipped' "$tmp/err.txt")"
check "lossy text reported" 1 "$(grep -c 'feature 1: caption_text stored as "A _ B"' "$tmp/err.txt")"
check "foreign landmarks" $'1\t48.1\t16.5\t0\t0\t0\tCross\t7\t000080FF\t00FFFFFF\tFALSE\t0\t10\tA _ B\t8\tMS Sans Serif\t0000\t00000000\t00FFFFFF\tTRUE\t0\t8\t0\tcenter\ttop\t\t1899-12-30T00:00:00\n2\t4\t3\t0\t0\t0\tCross\t7\t00FF0000\t00FFFFFF\tFALSE\t0\t10\t\t8\tMS Sans Serif\t0000\t00000000\t00FFFFFF\tTRUE\t0\t8\t0\tcenter\ttop\t\t1899-12-30T00:00:00' \
  "$("$geotool" landmarks "$tmp/foreign.xml")"

# Symbol catalogues.
check "symbols" 9 "$("$geotool" symbols "$samples/symbols-basic.xml" | wc -l)"
check "plus reads back as cross" $'9\tCross\t4\t00000000\t00FFFFFF\tTRUE\t0\t0\tMarker (plus, reads back as cross)\t0' \
  "$("$geotool" symbols "$samples/symbols-basic.xml" --id BASIC | tail -n 1)"

# Errors: exit code 1 with a message, 2 for a bad command line.
"$geotool" landmarks "$tmp/missing.xml" 2> "$tmp/err.txt"; check "missing file" 1 $?
check "missing file message" 1 "$(grep -c 'cannot open ".*missing.xml": No such file or directory' "$tmp/err.txt")"
"$geotool" landmarks "$tmp" 2> "$tmp/err.txt"; check "a directory" 1 $?
check "a directory: message" 1 "$(grep -c 'Is a directory' "$tmp/err.txt")"
# Output that cannot be written fails every listing and conversion.
for args in "landmarks $samples/landmarks-vienna.xml" "landmarks $samples/landmarks-vienna.xml --to-geojson" \
  "landmarks --from-geojson $tmp/all.geojson" "symbols $samples/symbols-basic.xml"; do
  $geotool $args > /dev/full 2> "$tmp/err.txt"; check "$args > /dev/full" 1 $?
  check "$args > /dev/full: message" 1 "$(grep -c 'No space left on device' "$tmp/err.txt")"
done
# Nesting deeper than GeoJSON needs is refused, not a crash.
{ printf '{"type":"Feature","properties":{"a":'; head -c 100000 /dev/zero | tr '\0' '['; head -c 100000 /dev/zero | tr '\0' ']'
  printf '},"geometry":{"type":"Point","coordinates":[1,2]}}'; } > "$tmp/deep.geojson"
"$geotool" landmarks --from-geojson "$tmp/deep.geojson" > /dev/null 2> "$tmp/err.txt"; check "deep nesting" 1 $?
check "deep nesting: message" 1 "$(grep -c 'nested deeper than 64 levels' "$tmp/err.txt")"
"$geotool" landmarks "$samples/landmarks-vienna.xml" --id nosuch 2> "$tmp/err.txt"; check "unknown id" 1 $?
"$geotool" symbols "$samples/landmarks-vienna.xml" 2> /dev/null; check "not a catalogue" 1 $?
echo 'not json' > "$tmp/bad.geojson"
"$geotool" landmarks --from-geojson "$tmp/bad.geojson" > /dev/null 2>&1; check "not JSON" 1 $?
"$geotool" landmarks > /dev/null 2>&1; check "no file" 2 $?

exit $fail
