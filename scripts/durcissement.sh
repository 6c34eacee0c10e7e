#!/usr/bin/env bash
# The suite again under the sanitizers, then the frame decoder's fuzz target:
#   1. the whole suite built with AddressSanitizer + UndefinedBehaviorSanitizer;
#   2. the threaded tests (ctest label "fils") built with ThreadSanitizer;
#   3. fuzz_trame for a bounded time (60 s by default) on a copy of fuzz/corpus.
# Each step has its own build directory. Usage: scripts/durcissement.sh [asan|tsan|fuzz]...
set -euo pipefail
cd "$(dirname "$0")/.."

etapes=("$@")
[ ${#etapes[@]} -eq 0 ] && etapes=(asan tsan fuzz)
scripts/installer.sh clang libclang-rt-14-dev
jobs="$(nproc)"
racine="$PWD"

for etape in "${etapes[@]}"; do
    echo "=== $etape ==="
    case "$etape" in
    asan)
        cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug \
            -DACQUISITIONRADIO_SANITIZE=address,undefined >/dev/null
        cmake --build build-asan -j"$jobs"
        ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1 \
        UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
            ctest --test-dir build-asan --output-on-failure --timeout 600
        ;;
    tsan)
        cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug \
            -DACQUISITIONRADIO_SANITIZE=thread >/dev/null
        # Only what the threaded tests need.
        mapfile -t cibles < <(ctest --test-dir build-tsan -N -L fils | sed -n 's/^ *Test *#[0-9]*: //p')
        cmake --build build-tsan -j"$jobs" --target "${cibles[@]}"
        TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$racine/.ci/tsan.supp" \
            ctest --test-dir build-tsan -L fils --output-on-failure --timeout 600
        ;;
    fuzz)
        CXX=clang++ cmake -S . -B build-fuzz -DACQUISITIONRADIO_FUZZ=ON >/dev/null
        cmake --build build-fuzz -j"$jobs" --target fuzz_trame
        # libFuzzer adds what it finds to its first corpus directory: a copy.
        rm -rf build-fuzz/corpus && cp -r fuzz/corpus build-fuzz/corpus
        # Its running commentary goes to a file; a failure shows it whole.
        if ! build-fuzz/fuzz/fuzz_trame -max_total_time="${FUZZ_SECONDES:-60}" -max_len=1100 \
            -print_final_stats=1 build-fuzz/corpus >build-fuzz/fuzz.log 2>&1; then
            cat build-fuzz/fuzz.log
            exit 1
        fi
        grep -E '^(Done|stat::)' build-fuzz/fuzz.log
        ;;
    *)
        echo "unknown step: $etape (asan, tsan or fuzz)" >&2
        exit 2
        ;;
    esac
done
