#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing qvgeo need, only those that are missing, so
# that a machine that has them all returns at once.
set -euo pipefail

packages=(
  cmake ninja-build g++ ccache pkg-config locales
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev
  # the viewer's rubber band measures on the ellipsoid with GeographicLib's geodesic
  libgeographiclib-dev
  # qvgeo::widgets: Qt 6 Widgets, libjpeg-turbo (libjpeg API and TurboJPEG, the benchmark's peer) and a
  # font for the headless widget tests
  qt6-base-dev libjpeg62-turbo-dev libturbojpeg0-dev fonts-dejavu-core
  # the Qt Designer plugin of the widgets (Qt's UiPlugin module)
  qt6-tools-dev
  # the check that the viewer starts on a virtual display (xvfb-run scripts/run.sh)
  xvfb xauth
  # test and benchmark peers: GeographicLib (above) and PROJ, libraries and command-line tools
  geographiclib-tools libproj-dev proj-bin
  # qvgeo::widgets reads rasters, georeferencing and waypoint files through GDAL/OGR (QVGEO_WITH_GDAL);
  # its command-line tools are the tests' peer (gdaltransform, gdallocationinfo, gdal_translate)
  libgdal-dev gdal-bin
  # qvgeo::widgets finds graticules in scanned maps with OpenCV's imgproc (QVGEO_WITH_OPENCV)
  libopencv-imgproc-dev
  # benchmark peer: vipsthumbnail beside the first picture of a huge scan
  libvips-tools
  # test peer only: pdftoppm renders the viewer's printed PDF page back to pixels
  poppler-utils
  # benchmark peer: SQLite's R*Tree beside the database's rectangle search
  libsqlite3-dev
  # the fuzz targets (scripts/fuzz.sh): clang and its libFuzzer and sanitizer runtimes
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# A locale with a decimal comma, for the test that calibration files written under such a locale carry
# "16,5" (the 'locales' package provides the definitions).
if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; then
  $sudo localedef -i de_DE -f UTF-8 de_DE.UTF-8 || echo "note: could not generate de_DE.UTF-8" >&2
fi
