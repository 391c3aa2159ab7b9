#!/usr/bin/env bash
# Installs what is needed, builds and installs slabadapt (release) into ./install,
# then runs an adaptivity pass on the bundled example project.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release -G Ninja
cmake --build --preset release -j "$(nproc)"
cmake --install build/release --prefix "$PWD/install"
if [ -x install/bin/slabadapt ] && [ -f examples/floor/floor.toml ]; then
    work=$(mktemp -d)
    cp examples/floor/floor.* "$work"/
    install/bin/slabadapt run "$work/floor" --target 0.05 --load-case 101 --load-case 102
    echo "results are in $work"
else
    echo "slabadapt installed into $PWD/install"
fi
