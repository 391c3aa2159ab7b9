#!/usr/bin/env bash
# Installs what is needed, builds slabadapt (release) and installs it into ./install, then runs
# the adaptive analysis of the bundled flat slab (examples/flat-slab) on a copy of it: Gmsh
# meshes it, CalculiX solves it, slabadapt estimates the error and refines, cycle after cycle,
# until the global error is within 5 % (about two minutes on two cores).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release -G Ninja -DSLABADAPT_BUILD_TESTS=OFF
cmake --build --preset release -j "$(nproc)"
cmake --install build/release --prefix "$PWD/install"
work=$(mktemp -d /tmp/slabadapt-flat-slab.XXXXXX)
cp examples/flat-slab/flat-slab.geo examples/flat-slab/flat-slab.toml "$work"/
status=0
(cd "$work" && "$OLDPWD/install/bin/slabadapt" adapt flat-slab --target 0.05 \
    --load-case 101 --load-case 102 --h0 1.0) || status=$?
echo
echo "The report of the analysis: $work/flat-slab.adapt/report.html"
echo "Every cycle's mesh, deck, solver log, results and size field: $work/flat-slab.adapt/"
echo "  install/bin/slabadapt results $work/flat-slab.adapt/cycle-01/flat-slab   # stored errors"
exit "$status"
