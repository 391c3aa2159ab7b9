#!/usr/bin/env bash
# Installs what is needed, builds slabadapt (release) and installs it into ./install, then runs
# an adaptivity pass on a copy of the bundled example project examples/floor.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release -G Ninja -DSLABADAPT_BUILD_TESTS=OFF
cmake --build --preset release -j "$(nproc)"
cmake --install build/release --prefix "$PWD/install"
work=$(mktemp -d /tmp/slabadapt-example.XXXXXX)
cp examples/floor/floor.* "$work"/
install/bin/slabadapt run "$work/floor" --target 0.05 --load-case 101 --load-case 102
echo
echo "The project and its results are in $work:"
echo "  install/bin/slabadapt results $work/floor          # stored errors and sizes"
echo "  install/bin/slabadapt export $work/floor --vtu $work/floor.vtu   # for ParaView"
echo "  gmsh $work/floor.geo -2 -bgm $work/floor.refine.pos   # the next mesh"
