#!/usr/bin/env bash
# Installs the Debian packages a target needs, only those that are missing.
#   scripts/install-deps.sh build   compiler, CMake, GoogleTest, xsimd, Little CMS (test reference), libpng, libjpeg-turbo,
#                                   libtiff, libexif, python3 (the tool's end-to-end test)
#   scripts/install-deps.sh bench   the above plus Google Benchmark and the peers we measure against
#   scripts/install-deps.sh windows the above plus the mingw-w64 cross compilers (posix threads, which
#                                   carry OpenMP), GoogleTest's sources and Wine; then, if the i386
#                                   architecture's packages can be installed, Wine's 32-bit half
set -euo pipefail

packages=(g++ make cmake libgtest-dev libxsimd-dev libpng-dev libjpeg62-turbo-dev libtiff-dev libexif-dev liblcms2-dev pkg-config binutils python3)
if [[ "${1:-build}" == bench ]]; then
  packages+=(libbenchmark-dev libopencv-dev liblcms2-dev libvips-dev)
fi
if [[ "${1:-build}" == windows ]]; then
  packages+=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix binutils-mingw-w64-i686 binutils-mingw-w64-x86-64
             googletest wine wine64)
fi
sudo=()
[[ $(id -u) -ne 0 ]] && sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive

# Wine's 32-bit half runs the 32-bit DLL's tests. It needs the i386 architecture, whose packages
# must match the installed amd64 ones exactly; when the mirror cannot give that, the 32-bit
# build still checks its exports and decorations, and the 64-bit suite runs as usual.
wine32() {
  [[ -e /usr/lib/wine/wine ]] && return 0
  echo "Trying Wine's 32-bit half (wine32:i386)"
  local added=0
  if ! dpkg --print-foreign-architectures | grep -qx i386; then "${sudo[@]}" dpkg --add-architecture i386 && added=1; fi
  "${sudo[@]}" apt-get update -qq || true
  if ! "${sudo[@]}" apt-get install -y -qq --no-install-recommends wine32:i386 >/dev/null 2>&1; then
    echo "wine32:i386 cannot be installed here; the 32-bit test programs will not run"
    # Leave apt as it was: an i386 index the mirror cannot serve would fail every later update.
    if [[ $added == 1 ]]; then "${sudo[@]}" dpkg --remove-architecture i386 && "${sudo[@]}" apt-get update -qq || true; fi
  fi
}

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [[ ${#missing[@]} -gt 0 ]]; then
  echo "Installing: ${missing[*]}"
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
if [[ "${1:-build}" == windows ]]; then wine32; fi
exit 0
