#!/usr/bin/env bash
# Installs the Debian packages a target needs, only those that are missing.
#   scripts/install-deps.sh build   compiler, CMake, GoogleTest, xsimd, Little CMS (test reference), libpng, libjpeg-turbo,
#                                   libtiff, libexif, python3 (the tool's end-to-end test)
#   scripts/install-deps.sh bench   the above plus Google Benchmark and the peers we measure against
set -euo pipefail

packages=(g++ make cmake libgtest-dev libxsimd-dev libpng-dev libjpeg62-turbo-dev libtiff-dev libexif-dev liblcms2-dev pkg-config binutils python3)
if [[ "${1:-build}" == bench ]]; then
  packages+=(libbenchmark-dev libopencv-dev liblcms2-dev libvips-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}"
sudo=()
[[ $(id -u) -ne 0 ]] && sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
