#!/usr/bin/env bash
# Every include points down the layers: a folder includes only the folders below it (and itself), the core
# folders include no Qt header, and a folder's private headers are included only by that folder (and by
# white-box tests and benchmarks). Usage: tests/layers.sh SOURCE_ROOT
set -u
root=${1:?source root}
cd "$root" || exit 2

# Folder -> the folders its code may include (itself included).
declare -A allowed=(
  [support]="support"
  [geobasics]="support geobasics"
  [geodb]="support geodb"
  [geomap]="support geobasics geomap"
  [platform]="support platform"
  [gdalio]="support geobasics geomap platform gdalio"
  [graticule]="support geobasics geomap graticule"
  [mapview]="support geobasics geomap platform gdalio mapview"
  [geoatlas]="support geobasics geomap platform gdalio mapview geoatlas"
)
core="support geobasics geodb geomap"
private=$( (sed -n '/^set(QVGEO_PRIVATE_HEADERS/,/)/p' CMakeLists.txt; grep '^ *list(APPEND QVGEO_PRIVATE_HEADERS' CMakeLists.txt) |
          tr ' ()' '\n\n\n' | grep '\.h$')

status=0
for folder in "${!allowed[@]}"; do
  for file in "$folder"/*.h "$folder"/*.cpp; do
    [ -e "$file" ] || continue
    while IFS= read -r inc; do
      target=${inc%%/*}
      case " ${allowed[$folder]} " in
        *" $target "*) ;;
        *) echo "$file includes <qvgeo/$inc>: $target is not below $folder"; status=1 ;;
      esac
      if printf '%s\n' "$private" | grep -qx "$inc" && [ "$target" != "$folder" ]; then
        echo "$file includes the private header $inc of $target"
        status=1
      fi
    done < <(sed -n 's/^#include <qvgeo\/\([^>]*\)>.*/\1/p' "$file")
    case " $core " in
      *" $folder "*)
        if grep -qE '^#include <Q[A-Za-z]*>' "$file"; then
          echo "$file is core code and includes a Qt header"
          status=1
        fi ;;
    esac
  done
done
# Applications use the installed API only (benchmarks, like tests, may look inside).
for file in apps/*/*.h apps/*/*.cpp; do
  [ -e "$file" ] || continue
  while IFS= read -r inc; do
    if printf '%s\n' "$private" | grep -qx "$inc"; then
      echo "$file includes the private header $inc"
      status=1
    fi
  done < <(sed -n 's/^#include <qvgeo\/\([^>]*\)>.*/\1/p' "$file")
done
[ $status -eq 0 ] && echo "every include points down the layers"
exit $status
