#!/usr/bin/env bash
# The adaptive loop on the plate with a hole (examples/hole-plate):
#   Gmsh -> slabadapt export --inp -> CalculiX -> slabadapt import-ccx -> slabadapt run
#   -> Gmsh with -bgm P.refine.pos -> ...  until the global error is below the target.
# Usage: examples/adaptive-loop.sh [WORKDIR]
#   SLABADAPT   the slabadapt command (default: slabadapt on PATH, else build/release/cli/slabadapt)
#   TARGET      required relative error as a fraction (default 0.05)
#   H0          size of the first, uniform mesh (default 1.0)
#   MAX_CYCLES  (default 10)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
repo=$(dirname "$here")
work=${1:-$(mktemp -d)}
target=${TARGET:-0.05}
h0=${H0:-1.0}
max_cycles=${MAX_CYCLES:-10}
python=${PYTHON:-/usr/bin/python3}
slabadapt=${SLABADAPT:-$(command -v slabadapt || echo "$repo/build/release/cli/slabadapt")}
export PYTHONDONTWRITEBYTECODE=1
mkdir -p "$work"
cd "$work"
cp "$here/hole-plate/plate.toml" .

# The geometry of the example with the first mesh size, and a copy whose sizes come from the
# background field alone (Gmsh's other size sources off).
sed -E "s/^(a = [^;]*; L = [^;]*; h = )[^;]*;/\1$h0;/" "$here/hole-plate/plate.geo" > first.geo
{ echo "Mesh.MeshSizeExtendFromBoundary = 0; Mesh.MeshSizeFromPoints = 0; Mesh.MeshSizeFromCurvature = 0;"
  cat first.geo; } > adapt.geo

echo "cycle  elements  global error"
for ((cycle = 0; cycle < max_cycles; cycle++)); do
    if ((cycle == 0)); then
        gmsh first.geo -2 -format msh22 -o plate.msh > gmsh.log
    else
        cp plate.refine.pos size.pos
        gmsh adapt.geo -2 -format msh22 -bgm size.pos -o plate.msh > gmsh.log
    fi
    "$slabadapt" export plate --inp plate_mesh.inp --inp-type plane-stress > /dev/null
    "$python" "$here/hole-plate/write_deck.py" plate
    ccx -i plate > ccx.log
    "$slabadapt" import-ccx plate plate.dat > /dev/null
    "$slabadapt" run plate --target "$target" --load-case 1 --json > run.json
    read -r elements error within < <("$python" -c 'import json; r = json.load(open("run.json"))
print(sum(s["elements"] for s in r["slabs"]), r["global_error_percent"], r["within_target"])')
    printf "%5d  %8d  %10.3f %%\n" "$cycle" "$elements" "$error"
    mkdir -p "cycle-$cycle"
    cp plate.msh plate.GAR plate.refine.pos "cycle-$cycle"/
    if [ "$within" = "True" ]; then
        echo "below the target of $("$python" -c "print(100 * $target)") % after $((cycle + 1)) cycle(s); files in $work"
        exit 0
    fi
done
echo "target not reached in $max_cycles cycles; files in $work"
exit 1
