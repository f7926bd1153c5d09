#!/usr/bin/env bash
# geotool ellipsoids and the command skeleton, end to end.
set -euo pipefail
geotool=$1
fail() { echo "FAIL: $*" >&2; exit 1; }

out=$("$geotool" ellipsoids)
[ "$(printf '%s\n' "$out" | wc -l)" -eq 61 ] || fail "expected 61 lines"
first=$(printf '%s\n' "$out" | head -n 1)
[ "$first" = "$(printf '0\tgelWGS84\tWGS 1984\t6378137\t6356752.314245\t298.2572235604902')" ] || fail "first line: $first"
last=$(printf '%s\n' "$out" | tail -n 1)
[ "$(printf '%s' "$last" | cut -f1-3)" = "$(printf '60\tgelNahrwan29\tNahrwan 1929')" ] || fail "last line: $last"
# spheres print 1/f = 0
printf '%s\n' "$out" | awk -F'\t' '$2=="gelSphere" && $6!="0" {exit 1}' || fail "sphere 1/f"

"$geotool" --help | grep -q "ellipsoids" || fail "--help lists commands"
"$geotool" ellipsoids --help | grep -q "reciprocal flattening" || fail "command help"
set +e
"$geotool" no-such-command 2>/dev/null; rc=$?
"$geotool" ellipsoids extra-arg 2>/dev/null; rc2=$?
set -e
[ $rc -eq 2 ] || fail "unknown command exit code $rc"
[ $rc2 -eq 2 ] || fail "usage error exit code $rc2"
echo "ellipsoids: ok"
