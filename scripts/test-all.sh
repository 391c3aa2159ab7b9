#!/usr/bin/env bash
# Builds from scratch and runs every test: the normal (dev, -Werror) build and the
# AddressSanitizer + UndefinedBehaviorSanitizer build, then each fuzz target for 30 s.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
jobs=$(nproc)
for preset in dev asan; do
    echo "=== $preset"
    cmake --preset "$preset" -G Ninja --fresh
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs"
done
echo "=== fuzz (30 s a target)"
bash scripts/fuzz.sh 30
echo "=== all tests passed (dev, asan, fuzz)"
