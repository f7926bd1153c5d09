#!/usr/bin/env bash
# Installs the Debian 12 packages that building and testing qvgeo need, only those that are missing, so
# that a machine that has them all returns at once.
set -euo pipefail

packages=(
  cmake ninja-build g++ ccache pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev
  # test and benchmark peers: GeographicLib and PROJ, libraries and command-line tools
  libgeographiclib-dev geographiclib-tools libproj-dev proj-bin
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "installing: ${missing[*]}" >&2
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
