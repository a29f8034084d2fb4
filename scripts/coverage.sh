#!/usr/bin/env bash
# Line coverage of the libraries by the whole test suite: builds with --coverage in
# build/coverage (or $1), runs ctest, and prints gcovr's summary. Tests, test helpers, testing/
# folders, tools and benchmarks are left out of the figure: it speaks of the product's code.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/coverage}
if ! command -v gcovr >/dev/null; then
    echo "gcovr is missing: apt-get install gcovr" >&2
    exit 1
fi
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DSDI_TAP_BENCHMARKS=OFF \
    -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" -DCMAKE_C_FLAGS="--coverage -fprofile-update=atomic" -DCMAKE_EXE_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$build" -j "$(nproc)"
find "$build" -name '*.gcda' -delete
(cd "$build" && flock /tmp/sdi_tap_e2e.lock ctest -j "$(nproc)" --timeout 300 | tail -3) || echo "some tests failed; the figure covers what ran"
gcovr --root . --object-directory "$build" --print-summary \
    --exclude '.*_test\.cpp' --exclude '.*/testing/.*' --exclude '.*test_helper.*' \
    --exclude '.*test_processes.*' --exclude '.*zvbi_test_decoder.*' --exclude '.*run_test_support.*' \
    --exclude '.*_helper\.cpp' --exclude 'bench/.*' --exclude 'build/.*' \
    --exclude '.*tools_test_run.*' | tail -3
