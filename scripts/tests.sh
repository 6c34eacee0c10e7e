#!/usr/bin/env bash
# Builds the service, its tools and its tests into build/ and runs the tests.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/installer.sh
cmake -S . -B build -DACQUISITIONRADIO_WERROR=ON
cmake --build build -j"$(nproc)"
ctest --test-dir build --output-on-failure --timeout 300
