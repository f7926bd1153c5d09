#!/usr/bin/env bash
# geotool atlas choose end to end: the map taken for a place and a resolution among hand-written
# calibration files (only caption, corners and resolution matter), folders, refusals and exit codes.
set -uo pipefail
G=$1
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
fails=0
fail() { echo "FAIL: $*" >&2; fails=$((fails + 1)); }

# cal FILE CAPTION LATMIN LONMIN LATMAX LONMAX RES
cal() {
  printf '<?xml version="1.0"?>\n<geomap sig="Quorvanta" vers="1.0" id="1" map="x.bmp" caption="%s">\n' "$2" >"$1"
  printf '<corners>\n[%s,%s] [%s,%s] [%s,%s] [%s,%s] \n</corners>\n' "$5" "$4" "$3" "$4" "$3" "$6" "$5" "$6" >>"$1"
  printf '<resolution>%s</resolution>\n</geomap>\n' "$7" >>"$1"
}
mkdir -p "$TMP/maps"
cal "$TMP/maps/a.xml" Austria 46 13 50 19 100
cal "$TMP/maps/b.xml" Lower 47.5 15.5 48.8 17.2 50
cal "$TMP/maps/c.xml" Vienna 48.0 16.0 48.5 16.8 45
cal "$TMP/maps/d.xml" Centre 48.1 16.3 48.3 16.5 10
printf 'no calibration here\n' >"$TMP/maps/e.xml"

# choose EXPECTED-NUMBER ARGS...: the number printed first (or "none" for exit code 1).
choose() {
  local want=$1 got rc
  shift
  got=$("$G" atlas choose "$@" 2>/dev/null); rc=$?
  if [ $rc -eq 1 ]; then got=none; elif [ $rc -ne 0 ]; then got="exit $rc"; else got=$(cut -f1 <<<"$got"); fi
  [ "$got" = "$want" ] || fail "choose $*: got $got, wanted $want"
}
M=$TMP/maps
choose 2 48.2 16.4 100 "$M" --finer                     # the smallest step in
choose 4 48.2 16.4 50 "$M" --finer                      # 45 is exactly 10 % finer: not more
choose 3 48.2 16.4 50 "$M" --finer --min-step 9.9
choose 3 48.2 16.4 10 "$M" --coarser
choose none 48.2 16.4 100 "$M" --coarser
choose 3 48.2 16.4 47 "$M"                              # the coarsest at most 47
choose 4 48.2 16.4 5 "$M"                               # all coarser: the finest
choose 2 48.3 16.4 50 "$M"                              # on map 4's edge: not in it
choose none 20 16.4 50 "$M"
# files named one by one are numbered in the order given; on a tie the first wins
choose 2 48.2 16.4 50 "$M/d.xml" "$M/b.xml"
cp "$M/c.xml" "$TMP/c2.xml"
for order in "$M/c.xml $TMP/c2.xml" "$TMP/c2.xml $M/c.xml"; do
  # shellcheck disable=SC2086
  got=$("$G" atlas choose 48.2 16.4 45 $order | cut -f4)
  [ "$got" = "${order%% *}" ] || fail "tie among $order: $got"
done
# the same file by another spelling counts once
ln -s c.xml "$M/C.XML"
"$G" atlas choose 20 16.4 50 "$M/c.xml" "$M/b.xml" "$M/C.XML" 2>"$TMP/err"
grep -q "none of the 2 maps fits" "$TMP/err" || fail "twice-named file: $(cat "$TMP/err")"
rm "$M/C.XML"

line=$("$G" atlas choose 48.2 16.4 50 "$M" 2>"$TMP/err")
[ "$line" = "$(printf '2\t50.000\tLower\t%s/b.xml' "$M")" ] || fail "output line: $line"
grep -q "e.xml: holds no calibration" "$TMP/err" || fail "refused file not reported: $(cat "$TMP/err")"
"$G" atlas choose 48.2 16.4 50 "$M/none.xml" "$M/d.xml" 2>"$TMP/err" >/dev/null
grep -q "none.xml: cannot be opened" "$TMP/err" || fail "missing file not reported"

for bad in "48.2 16.4 50" "48.2 16.4 x $M" "95 16.4 50 $M" "48.2 16.4 50 $M --finer --coarser" \
           "48.2 16.4 50 $M --min-step 5"; do
  # shellcheck disable=SC2086
  "$G" atlas choose $bad >/dev/null 2>&1; rc=$?
  [ $rc -eq 2 ] || fail "usage error '$bad' gave exit code $rc"
done

[ $fails -eq 0 ] || exit 1
echo "atlas: ok"
