#!/usr/bin/env bash
# geotool db: create, import, query, get, delete, export/re-import, compact, damage handling, end to end.
set -euo pipefail
geotool=$1
root=$2
fail() { echo "FAIL: $*" >&2; exit 1; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
sample=$root/data/samples/db-austria.geojson
tab=$(printf '\t')

"$geotool" db create "$tmp/at" --description "Austria" --revision 7 >/dev/null
[ "$(ls "$tmp" | wc -l)" -eq 7 ] || fail "create makes seven files"
set +e
"$geotool" db create "$tmp/at" >/dev/null 2>&1; rc=$?
set -e
[ $rc -ne 0 ] || fail "create over an existing database"

"$geotool" db import "$tmp/at" "$sample" 2>"$tmp/import.err" || fail "import"
grep -q "18 items added, 1 skipped" "$tmp/import.err" || fail "import summary: $(cat "$tmp/import.err")"
info=$("$geotool" db info "$tmp/at")
printf '%s\n' "$info" | grep -qx "items${tab}18" || fail "info items: $info"
printf '%s\n' "$info" | grep -qx "description${tab}Austria" || fail "info description"
printf '%s\n' "$info" | grep -qx "revision${tab}7" || fail "info revision"
printf '%s\n' "$info" | grep -qx "damaged${tab}no" || fail "info damage"

# Around Salzburg: the city, Hallstatt, the Inn, the Attersee, the A1, the route and the border.
q=$("$geotool" db query "$tmp/at" --bbox 47 13 48 14)
[ "$(printf '%s\n' "$q" | wc -l)" -eq 7 ] || fail "query count: $q"
printf '%s\n' "$q" | grep -qx "4${tab}City${tab}47.8095${tab}47.8095${tab}13.055${tab}13.055${tab}Salzburg" \
  || fail "query line: $q"
[ "$("$geotool" db query "$tmp/at" --bbox 46 9 49 17 --kind city | wc -l)" -eq 5 ] || fail "kind filter"
[ "$("$geotool" db query "$tmp/at" --bbox 47 13 48 14 --kind LAKE | cut -f7)" = "Attersee" ] || fail "lake"
[ -z "$("$geotool" db query "$tmp/at" --bbox 0 0 1 1)" ] || fail "empty query"
set +e
"$geotool" db query "$tmp/at" --bbox 1 2 3 >/dev/null 2>&1; rc=$?
set -e
[ $rc -eq 2 ] || fail "short --bbox is a usage error ($rc)"

g=$("$geotool" db get "$tmp/at" 11)
printf '%s\n' "$g" | grep -qx "name${tab}Donau" || fail "get name"
printf '%s\n' "$g" | grep -qx "points${tab}9" || fail "get points"
printf '%s\n' "$g" | grep -qx "48.57${tab}13.46" || fail "get first point"

"$geotool" db delete "$tmp/at" 2 >/dev/null
set +e
"$geotool" db get "$tmp/at" 2 >/dev/null 2>&1; rc=$?
set -e
[ $rc -eq 1 ] || fail "deleted item still there"
"$geotool" db info "$tmp/at" | grep -qx "garbage bytes${tab}8" || fail "garbage after delete"
"$geotool" db delete "$tmp/at" 5 3 >/dev/null
set +e
"$geotool" db delete "$tmp/at" 4 999 >/dev/null 2>&1; rc=$?
set -e
[ $rc -eq 1 ] || fail "delete of an unknown identifier ($rc)"
info=$("$geotool" db info "$tmp/at")
printf '%s\n' "$info" | grep -qx "items${tab}15" || fail "items after deleting several: $info"
printf '%s\n' "$info" | grep -qx "garbage bytes${tab}24" || fail "garbage after deleting several"
"$geotool" db compact "$tmp/at" >/dev/null
"$geotool" db info "$tmp/at" | grep -qx "garbage bytes${tab}0" || fail "garbage after compact"

"$geotool" db export "$tmp/at" >"$tmp/a.json"
"$geotool" db create "$tmp/copy" >/dev/null
"$geotool" db import "$tmp/copy" "$tmp/a.json" 2>/dev/null
"$geotool" db export "$tmp/copy" >"$tmp/b.json"
# Identifiers are issued anew on import; everything else must survive the round trip.
strip() { sed -e 's/"id":[0-9]*,//' "$1"; }
[ "$(strip "$tmp/a.json")" = "$(strip "$tmp/b.json")" ] || fail "export / import round trip"

# A damaged set is reported, refused for writing and left untouched until repaired.
truncate -s 100 "$tmp/copy.xelgdd"
sum=$(cat "$tmp"/copy.* | md5sum)
"$geotool" db info "$tmp/copy" | grep -qx "damaged${tab}yes" || fail "damage not reported"
set +e
"$geotool" db delete "$tmp/copy" 1 >/dev/null 2>&1; rc=$?
set -e
[ $rc -eq 1 ] || fail "write to a damaged set accepted"
[ "$(cat "$tmp"/copy.* | md5sum)" = "$sum" ] || fail "damaged set was written"
"$geotool" db repair "$tmp/copy" >/dev/null
"$geotool" db info "$tmp/copy" | grep -qx "damaged${tab}no" || fail "repair"

# Malformed input: a clear error and no database; bad features are skipped with their number.
printf '{"type":"FeatureCollection","features":[' >"$tmp/bad.json"
set +e
"$geotool" db import "$tmp/bad" "$tmp/bad.json" >/dev/null 2>&1; rc=$?
set -e
[ $rc -eq 1 ] || fail "truncated JSON accepted ($rc)"
[ ! -e "$tmp/bad.xelgds" ] || fail "truncated JSON created a database"
printf '%s' '{"type":"FeatureCollection","features":[{"type":"Feature","geometry":{"type":"Point","coordinates":[200,1]}},
{"type":"Feature","properties":{"kind":"volcano"},"geometry":{"type":"Point","coordinates":[1,1]}},
{"type":"Feature","properties":{"name":"ok"},"geometry":{"type":"Point","coordinates":[1,1]}}]}' >"$tmp/mixed.json"
"$geotool" db import "$tmp/mixed" "$tmp/mixed.json" 2>"$tmp/mixed.err" || fail "mixed import"
grep -q "feature 1: bad coordinates" "$tmp/mixed.err" || fail "feature 1 not reported"
grep -q 'feature 2: kind "volcano"' "$tmp/mixed.err" || fail "feature 2 not reported"
"$geotool" db info "$tmp/mixed" | grep -qx "items${tab}1" || fail "mixed import items"

set +e
"$geotool" db info "$tmp/none" >/dev/null 2>&1; rc=$?
set -e
[ $rc -eq 1 ] || fail "info on a missing database"
[ ! -e "$tmp/none.xelgds" ] || fail "info created a database"
echo "db: ok"
