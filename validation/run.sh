#!/usr/bin/env bash
# Reproduces docs/validation.md and its figures from scratch: the hole plate (Kirsch), the
# square plate (Navier), the adaptive loop on the hole plate, the L-shaped domain (Williams) and
# the flat slab with and without gradation, and pattern loading (the summed pass against the
# envelope), each run through Gmsh, CalculiX and slabadapt.
#   SLABADAPT  the slabadapt command to use (default: build/release/cli/slabadapt, built here
#              with the release preset when missing)
#   PYTHON     a Python 3 with numpy and matplotlib (default: Debian's /usr/bin/python3)
#   OUT        where the runs are kept (default: build/validation; emptied first)
set -euo pipefail
cd "$(dirname "$0")/.."
PYTHON=${PYTHON:-/usr/bin/python3}
export PYTHONDONTWRITEBYTECODE=1
OUT=${OUT:-build/validation}
if [ -z "${SLABADAPT:-}" ]; then
    SLABADAPT=$PWD/build/release/cli/slabadapt
    if [ ! -x "$SLABADAPT" ]; then
        cmake --preset release -G Ninja
        cmake --build --preset release --target slabadapt -j 2
    fi
fi
export SLABADAPT
for tool in gmsh ccx; do
    command -v $tool > /dev/null || { echo "run.sh: $tool not found (scripts/install-deps.sh)"; exit 1; }
done
rm -rf "$OUT"
mkdir -p "$OUT"
"$PYTHON" validation/holeplate.py "$OUT"
"$PYTHON" validation/squareplate.py "$OUT"
"$PYTHON" validation/squareplate.py "$OUT" --plane-stress
"$PYTHON" validation/adaptive.py "$OUT"
"$PYTHON" validation/lshape.py check
"$PYTHON" validation/lshape.py study "$OUT"
"$PYTHON" validation/flatslab.py "$OUT"
"$PYTHON" validation/patterns.py "$OUT"
"$PYTHON" validation/report.py "$OUT"
