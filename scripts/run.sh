#!/usr/bin/env bash
# The main job: installs what is missing, builds qvgeo in build/, shows the viewer on the bundled atlas
# (with a display) or renders its tour to PNG files (without one, or under CI), then runs geotool over the
# bundled data. QVGEO_SCREENSHOT=FILE makes the viewer save a picture of its window and quit by itself.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/install-deps.sh"
# The same build tree and type as scripts/test.sh, so that running both builds once.
"$here/scripts/build.sh" "$here/build" -DCMAKE_BUILD_TYPE=Release
viewer=$here/build/apps/viewer/qvgeo-viewer
if [ -x "$viewer" ]; then
  data=$here/build/viewer-data
  if [ -z "${CI:-}" ] && { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; }; then
    if [ -n "${QVGEO_SCREENSHOT:-}" ]; then
      "$viewer" --data "$data" --screenshot "$QVGEO_SCREENSHOT"
      echo "viewer screenshot: $QVGEO_SCREENSHOT"
    else
      echo "qvgeo-viewer is open; close its window to go on with the geotool demos"
      "$viewer" --data "$data"
    fi
  else
    tour=$here/build/tour
    echo "No display: the viewer's tour is rendered into $tour:"
    "$viewer" --data "$data" --tour "$tour"
  fi
fi
"$here/scripts/demo.sh" "$here/build/apps/geotool/geotool"
