#!/usr/bin/env bash
# The main job: installs what is missing, builds qvgeo in build/ and runs geotool over the bundled data.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/install-deps.sh"
# The same build tree and type as scripts/test.sh, so that running both builds once.
"$here/scripts/build.sh" "$here/build" -DCMAKE_BUILD_TYPE=Release
"$here/scripts/demo.sh" "$here/build/apps/geotool/geotool"
