#!/usr/bin/env bash
# Builds the performance bench into build-bench/ (RelWithDebInfo) and runs it:
# scripts/bench.sh for the full run (about 20 minutes), scripts/bench.sh --court
# for a quick check (about a minute). It prints one table and exits non-zero
# when a goal is missed.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/installer.sh
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-bench -j"$(nproc)" --target banc_performances
exec build-bench/bench/banc_performances "$@"
