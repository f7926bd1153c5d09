#!/bin/sh
# core_no_qt.sh CORE_LIB WIDGETS_LIB: the core library needs no Qt library, while the widget library
# (the control case, proving the check can see a Qt dependency) does.
set -e
core=$(readelf -d "$1")
widgets=$(readelf -d "$2")
echo "$core" | grep -q NEEDED
if echo "$core" | grep -i 'NEEDED.*libQt'; then
  echo "$1 links Qt" >&2
  exit 1
fi
echo "$widgets" | grep -q 'NEEDED.*libQt6Gui'
