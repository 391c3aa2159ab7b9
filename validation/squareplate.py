#!/usr/bin/env python3
"""Simply supported square plate under uniform load, against Navier's series solution.

The unit square, thickness t = 0.1 (side / thickness = 10), hard simple supports on all four
edges (deflection and the rotation about the edge's normal fixed), uniform load q. With hard
supports the moments and shear forces of a plate with shear deformation are Kirchhoff's, which
the series gives exactly; curvatures follow from the moments and the transverse shear strains
from q / (G t), the shear model of CalculiX's expanded shells.

For each mesh: Gmsh -> slabadapt export --inp (S3/S4) -> CalculiX -> slabadapt import-ccx ->
slabadapt run; estimate against the energy norm of (exact - computed) at the same points.

Usage: squareplate.py OUTDIR [--family s3|s4|both] [--levels 0.125,...] [--plane-stress]
Writes OUTDIR/squareplate.json (or squareplate-planestress.json).
"""

import argparse
import sys
from pathlib import Path

import slabval as sv

E, NU, T, Q = 10920.0, 0.3, 0.1, 0.001
D = E * T ** 3 / (12 * (1 - NU ** 2))
G = E / (2 * (1 + NU))
LEVELS = [1 / 8, 1 / 16, 1 / 32, 1 / 64]

GEO = """// Simply supported unit square plate; written by validation/squareplate.py
h = {h};
{options}
Point(1) = {{0,0,0,h}}; Point(2) = {{1,0,0,h}}; Point(3) = {{1,1,0,h}}; Point(4) = {{0,1,0,h}};
Line(1) = {{1,2}}; Line(2) = {{2,3}}; Line(3) = {{3,4}}; Line(4) = {{4,1}};
Curve Loop(1) = {{1,2,3,4}}; Plane Surface(1) = {{1}};
Physical Surface("plate", 1) = {{1}};
Physical Curve("xedges", 11) = {{2,4}};
Physical Curve("yedges", 12) = {{1,3}};
Physical Point("origin", 13) = {{1}};
Physical Point("xcorner", 14) = {{2}};
"""

QUADS = "Mesh.RecombineAll = 1; Mesh.Algorithm = 6; Mesh.RecombinationAlgorithm = 1;"

TOML = """title = "Simply supported square plate under uniform load"

[[slab]]
tag = 1
name = "plate"
thickness = {t}

[[load_case]]
id = 1
index = 1
name = "uniform load"
"""

DECK = """** Simply supported square plate under uniform load (hard supports)
*INCLUDE, INPUT={part}
*MATERIAL, NAME=M
*ELASTIC
{E}, {nu}
*SHELL SECTION, ELSET=EALL, MATERIAL=M
{t}
*BOUNDARY
** edges x = 0, 1: deflection and rotation about x; edges y = 0, 1: deflection and rotation
** about y; two corners hold the plate in its plane
XEDGES, 3, 4
YEDGES, 3, 3
YEDGES, 5, 5
ORIGIN, 1, 2
XCORNER, 2, 2
*STEP
*STATIC
*DLOAD
** P on these shells (normal +z) acts along +z
EALL, P, {q}
*EL PRINT, ELSET=EALL
S, E, COORD
*END STEP
"""


def level(outdir, family, h, plane_stress=False):
    name = "plate"
    tag = f"{family}-{round(1 / h)}" + ("-ps" if plane_stress else "")
    w = Path(outdir) / "squareplate" / tag
    w.mkdir(parents=True, exist_ok=True)
    (w / f"{name}.geo").write_text(GEO.format(h=h, options=QUADS if family == "s4" else ""))
    sv.gmsh(f"{name}.geo", f"{name}.msh", w)
    (w / f"{name}.toml").write_text(TOML.format(t=T))
    sv.slabadapt(["export", name, "--inp", f"{name}_mesh.inp", "--inp-type", "shell"], w)
    (w / f"{name}.inp").write_text(DECK.format(part=f"{name}_mesh.inp", E=E, nu=NU, t=T, q=Q))
    sv.ccx(name, w)
    sv.slabadapt(["import-ccx", name, f"{name}.dat"] + (["--plane-stress"] if plane_stress else []), w)
    sv.slabadapt(["run", name, "--target", 0.05, "--load-case", 1], w)
    part_nodes, part_elems = sv.read_inp_part(w / f"{name}_mesh.inp")
    strintg = sv.read_strintg(w / f"{name}.STRINTG0001")
    areas = sv.element_areas(part_nodes, part_elems)
    E2, U2 = sv.true_error(strintg, areas, sv.navier_exact(Q, D, NU, T, G))
    eta = sv.global_error_from_gar(sv.read_gar(w / f"{name}.GAR"))
    return {
        "family": family, "h": h, "elements": len(part_elems), "nodes": len(part_nodes),
        "triangles": sum(1 for ns in part_elems.values() if len(ns) == 3),
        "estimated": eta, "true": sv.relative(E2, U2),
        "effectivity": sv.effectivity(eta, E2, U2), "ratio": eta / sv.relative(E2, U2),
        "plane_stress": plane_stress,
    }


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("outdir")
    ap.add_argument("--family", default="both", choices=["s3", "s4", "both"])
    ap.add_argument("--levels", default=",".join(f"{h:.6g}" for h in LEVELS))
    ap.add_argument("--plane-stress", action="store_true",
                    help="import with stresses recomputed from the strains")
    args = ap.parse_args(argv)
    families = ["s4", "s3"] if args.family == "both" else [args.family]
    rows = []
    for family in families:
        for h in (float(v) for v in args.levels.split(",")):
            row = level(args.outdir, family, h, args.plane_stress)
            rows.append(row)
            print(f"square plate {family} h=1/{round(1 / h)}"
                  f"{' plane stress' if args.plane_stress else ''}: {row['elements']} elements, "
                  f"estimated {100 * row['estimated']:.3f} %, true {100 * row['true']:.3f} %, "
                  f"effectivity {row['effectivity']:.3f}", flush=True)
    Path(args.outdir).mkdir(parents=True, exist_ok=True)
    out = "squareplate-planestress.json" if args.plane_stress else "squareplate.json"
    sv.save_json(Path(args.outdir) / out, rows)
    return rows


if __name__ == "__main__":
    main()
