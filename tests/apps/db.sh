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
# The exit code of a command; its messages are kept in "$tmp/err", its output in "$tmp/out" (or $OUT).
code() { "$@" >"${OUT:-$tmp/out}" 2>"$tmp/err" && echo 0 || echo $?; }

"$geotool" db create "$tmp/at" --description "Austria" --revision 7 >/dev/null
[ "$(ls "$tmp" | wc -l)" -eq 7 ] || fail "create makes seven files"
[ "$(code "$geotool" db create "$tmp/at")" != 0 ] || fail "create over an existing database"

[ "$(code "$geotool" db import "$tmp/at" "$sample")" = 1 ] || fail "import with a skipped feature exits 1"
grep -q "18 items added, 0 replaced, 0 removed, 1 skipped" "$tmp/err" || fail "import summary: $(cat "$tmp/err")"
info=$("$geotool" db info "$tmp/at")
for line in "items${tab}18" "description${tab}Austria" "revision${tab}7" "damaged${tab}no"; do
  grep -qx "$line" <<<"$info" || fail "info: no line '$line' in $info"
done

# Around Salzburg: the city, Hallstatt, the Inn, the Attersee, the A1, the route and the border.
q=$("$geotool" db query "$tmp/at" --bbox 47 13 48 14)
[ "$(printf '%s\n' "$q" | wc -l)" -eq 7 ] || fail "query count: $q"
printf '%s\n' "$q" | grep -qx "4${tab}City${tab}47.8095${tab}47.8095${tab}13.055${tab}13.055${tab}Salzburg" \
  || fail "query line: $q"
[ "$("$geotool" db query "$tmp/at" --bbox 46 9 49 17 --kind city | wc -l)" -eq 5 ] || fail "kind filter"
[ "$("$geotool" db query "$tmp/at" --bbox 47 13 48 14 --kind LAKE | cut -f7)" = "Attersee" ] || fail "lake"
[ -z "$("$geotool" db query "$tmp/at" --bbox 0 0 1 1)" ] || fail "empty query"
rc=$(code "$geotool" db query "$tmp/at" --bbox 1 2 3)
[ "$rc" = 2 ] || fail "short --bbox is a usage error ($rc)"

g=$("$geotool" db get "$tmp/at" 11)
printf '%s\n' "$g" | grep -qx "name${tab}Donau" || fail "get name"
printf '%s\n' "$g" | grep -qx "points${tab}9" || fail "get points"
printf '%s\n' "$g" | grep -qx "48.57${tab}13.46" || fail "get first point"

"$geotool" db delete "$tmp/at" 2 >/dev/null
[ "$(code "$geotool" db get "$tmp/at" 2)" = 1 ] || fail "deleted item still there"
"$geotool" db info "$tmp/at" | grep -qx "garbage bytes${tab}8" || fail "garbage after delete"
"$geotool" db delete "$tmp/at" 5 3 >/dev/null
rc=$(code "$geotool" db delete "$tmp/at" 4 999)
[ "$rc" = 1 ] || fail "delete of an unknown identifier ($rc)"
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
[ "$(code "$geotool" db delete "$tmp/copy" 1)" = 1 ] || fail "write to a damaged set accepted"
[ "$(cat "$tmp"/copy.* | md5sum)" = "$sum" ] || fail "damaged set was written"
"$geotool" db repair "$tmp/copy" >/dev/null
"$geotool" db info "$tmp/copy" | grep -qx "damaged${tab}no" || fail "repair"

# Malformed input: a clear error and no database; bad features are skipped with their number.
printf '{"type":"FeatureCollection","features":[' >"$tmp/bad.json"
rc=$(code "$geotool" db import "$tmp/bad" "$tmp/bad.json")
[ "$rc" = 1 ] || fail "truncated JSON accepted ($rc)"
[ ! -e "$tmp/bad.xelgds" ] || fail "truncated JSON created a database"
printf '%s' '{"type":"FeatureCollection","features":[{"type":"Feature","geometry":{"type":"Point","coordinates":[200,1]}},
{"type":"Feature","properties":{"kind":"volcano"},"geometry":{"type":"Point","coordinates":[1,1]}},
{"type":"Feature","properties":{"name":"ok"},"geometry":{"type":"Point","coordinates":[1,1]}}]}' >"$tmp/mixed.json"
[ "$(code "$geotool" db import "$tmp/mixed" "$tmp/mixed.json")" = 1 ] || fail "mixed import exit code"
grep -q "feature 1: bad coordinates" "$tmp/err" || fail "feature 1 not reported"
grep -q 'feature 2: kind "volcano"' "$tmp/err" || fail "feature 2 not reported"
"$geotool" db info "$tmp/mixed" | grep -qx "items${tab}1" || fail "mixed import items"

[ "$(code "$geotool" db info "$tmp/none")" = 1 ] || fail "info on a missing database"
[ ! -e "$tmp/none.xelgds" ] || fail "info created a database"
# --replace: a repeated import replaces items of the same name and kind, keeping their identifiers, and
# collapses duplicates; without it the items are added again.
code "$geotool" db import "$tmp/r" "$sample" >/dev/null
"$geotool" db query "$tmp/r" --bbox -90 -180 90 180 >"$tmp/r1"
[ "$(code "$geotool" db import "$tmp/r" "$sample" --replace)" = 1 ] || fail "replace import exit code"
grep -q "0 items added, 18 replaced, 0 removed, 1 skipped; 18 items" "$tmp/err" || fail "replace: $(tail -1 "$tmp/err")"
"$geotool" db query "$tmp/r" --bbox -90 -180 90 180 | diff -q - "$tmp/r1" >/dev/null || fail "replace changed the items"
code "$geotool" db import "$tmp/r" "$sample" >/dev/null
grep -q "18 items added.*36 items" "$tmp/err" || fail "import without --replace adds"
code "$geotool" db import "$tmp/r" "$sample" --replace >/dev/null
grep -q "0 items added, 18 replaced, 18 removed, 1 skipped; 18 items" "$tmp/err" || fail "replace collapses: $(tail -1 "$tmp/err")"
"$geotool" db query "$tmp/r" --bbox -90 -180 90 180 | diff -q - "$tmp/r1" >/dev/null || fail "replace kept the first items"
printf '%s' '{"type":"Feature","properties":{"name":"Donau","kind":"river"},"geometry":{"type":"LineString","coordinates":[[10,48],[11,48.5]]}}' >"$tmp/donau.json"
code "$geotool" db import "$tmp/r" "$tmp/donau.json" --replace >/dev/null
"$geotool" db get "$tmp/r" 11 | grep -qx "points${tab}2" || fail "replace: Donau keeps its identifier with the new points"

# Nesting deeper than GeoJSON needs is refused with a message (it once overflowed the stack), and no
# database is created; nesting GeoJSON can use is taken.
deep() { head -c "$1" /dev/zero | tr '\0' '['; head -c "$1" /dev/zero | tr '\0' ']'; }
for n in 150000 62 63; do
  { printf '{"type":"Feature","properties":{"name":"deep","x":'; deep $n
    printf '},"geometry":{"type":"Point","coordinates":[1,2]}}'; } >"$tmp/deep$n.json"
done
[ "$(code "$geotool" db import "$tmp/deep" "$tmp/deep150000.json")" = 1 ] || fail "deep file: exit code"
grep -q 'deep150000.json": nested deeper than 64 levels' "$tmp/err" || fail "deep file: message $(cat "$tmp/err")"
[ ! -e "$tmp/deep.xelgds" ] || fail "deep file created a database"
[ "$(code "$geotool" db import "$tmp/deep" "$tmp/deep63.json")" = 1 ] || fail "65 levels taken"
[ "$(code "$geotool" db import "$tmp/deep" "$tmp/deep62.json")" = 0 ] || fail "64 levels refused: $(cat "$tmp/err")"

# File errors name the file and the system's reason; output that cannot be written is an error.
[ "$(code "$geotool" db import "$tmp/x" "$tmp/none.json")" = 1 ] && grep -q 'none.json": No such file or directory' "$tmp/err" ||
  fail "missing GeoJSON: $(cat "$tmp/err")"
[ "$(code "$geotool" db import "$tmp/x" "$tmp")" = 1 ] && grep -q 'Is a directory' "$tmp/err" || fail "GeoJSON a directory"
[ "$(code "$geotool" db create "$tmp/nodir/x")" = 1 ] && grep -q 'nodir/x.xelgi1": No such file or directory' "$tmp/err" ||
  fail "create in a missing directory: $(cat "$tmp/err")"
for args in "info $tmp/r" "query $tmp/r --bbox 40 0 50 20" "get $tmp/r 11" "export $tmp/r"; do
  rc=$(OUT=/dev/full code $geotool db $args)
  [ "$rc" = 1 ] && grep -q 'No space left on device' "$tmp/err" || fail "db $args > /dev/full: exit $rc"
done
echo "db: ok"
