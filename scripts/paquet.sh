#!/usr/bin/env bash
# Builds the Debian package of the daemon for this machine:
#   scripts/paquet.sh [BUILD_DIR]        (build/ by default)
# installs what is missing, configures, builds, and runs CPack (which packages
# what is built and compiles nothing itself); the .deb is left in BUILD_DIR.
# For the ARM board, configure BUILD_DIR with the armhf toolchain first
# (cmake/armhf.cmake): the package then says armhf.
set -euo pipefail
cd "$(dirname "$0")/.."

construction=${1:-build}
scripts/installer.sh dpkg-dev file
cmake -S . -B "$construction"
cmake --build "$construction" -j"$(nproc)"
rm -f "$construction"/acquisitionradio_*.deb
(cd "$construction" && cpack -G DEB)
paquet=$(ls "$construction"/acquisitionradio_*.deb)
dpkg-deb -I "$paquet"
dpkg-deb -c "$paquet"
echo "Package: $paquet"
