#!/usr/bin/env python3
"""Plate with a circular hole under uniaxial tension (plane stress), against Kirsch's exact
solution: a quarter model (symmetry on x = 0 and y = 0) of the square |x|, |y| <= L with a hole
of radius a, loaded on its outer edges x = L and y = L by the exact tractions, so that the
finite-element solution converges to the exact one.

For each mesh: Gmsh -> slabadapt export --inp -> CalculiX (CPS3 or CPS4) -> slabadapt
import-ccx -> slabadapt run; the estimate is slabadapt's global error, the truth the energy norm
of (exact - computed) at the same integration points.

Usage: holeplate.py OUTDIR [--family cps3|cps4|both] [--levels 0.4,0.2,...]
Writes OUTDIR/holeplate.json (one row per family and level) and keeps every run's files in
OUTDIR/holeplate/<family>-<level>/.
"""

import argparse
import math
import sys
from pathlib import Path

import slabval as sv

A, L = 1.0, 4.0              # hole radius, half width of the plate
E, NU, T, S = 1000.0, 0.3, 1.0, 1.0
LEVELS = [0.4, 0.2, 0.1, 0.05, 0.025]

GEO = """// Quarter of a square plate with a circular hole; written by validation/holeplate.py
a = {a}; L = {L}; h = {h};
{options}
Point(1) = {{a,0,0,h}}; Point(2) = {{L,0,0,h}}; Point(3) = {{L,L,0,h}};
Point(4) = {{0,L,0,h}}; Point(5) = {{0,a,0,h}}; Point(6) = {{0,0,0,h}};
Line(1) = {{1,2}}; Line(2) = {{2,3}}; Line(3) = {{3,4}}; Line(4) = {{4,5}};
Circle(5) = {{5,6,1}};
Curve Loop(1) = {{1,2,3,4,5}}; Plane Surface(1) = {{1}};
Physical Surface("plate", 1) = {{1}};
Physical Curve("bottom", 11) = {{1}};
Physical Curve("right", 12) = {{2}};
Physical Curve("top", 13) = {{3}};
Physical Curve("left", 14) = {{4}};
Physical Curve("hole", 15) = {{5}};
"""

QUADS = "Mesh.RecombineAll = 1; Mesh.Algorithm = 6; Mesh.RecombinationAlgorithm = 1;"
# A background size field alone decides the sizes (the adaptive loop).
BGM_ONLY = ("Mesh.MeshSizeExtendFromBoundary = 0; Mesh.MeshSizeFromPoints = 0; "
            "Mesh.MeshSizeFromCurvature = 0;")

TOML = """title = "Plate with a hole under tension (quarter model)"

[[slab]]
tag = 1
name = "plate"
thickness = {t}

[[load_case]]
id = 1
index = 1
name = "tension"
"""


def geo_text(h, quads, background=False):
    options = (QUADS if quads else "") + (" " + BGM_ONLY if background else "")
    return GEO.format(a=A, L=L, h=h, options=options)


def deck(part, loads):
    lines = ["** Plate with a hole under tension: Kirsch tractions on x = L and y = L",
             f"*INCLUDE, INPUT={part}",
             "*MATERIAL, NAME=STEEL", "*ELASTIC", f"{E}, {NU}",
             "*SOLID SECTION, ELSET=EALL, MATERIAL=STEEL", f"{T}",
             "*BOUNDARY", "LEFT, 1, 1", "BOTTOM, 2, 2",
             "*STEP", "*STATIC", "*CLOAD"]
    for node in sorted(loads):
        fx, fy = loads[node]
        # CalculiX refuses a force on a constrained degree of freedom: the corners (L, 0) and
        # (0, L) take their force across the symmetry line as a reaction anyway.
        if fx != 0.0:
            lines.append(f"{node}, 1, {fx:.12e}")
        if fy != 0.0:
            lines.append(f"{node}, 2, {fy:.12e}")
    lines += ["*EL PRINT, ELSET=EALL", "S, E, COORD", "*END STEP", ""]
    return "\n".join(lines)


def traction_loads(msh_path, part_nodes):
    """Consistent nodal forces of the Kirsch tractions on the right and top edges, numbered
    as the project numbers the nodes (checked against the exported part's coordinates)."""
    nodes, elems = sv.read_msh22(msh_path)
    number = sv.node_numbers(nodes, elems)
    for tag, k in number.items():
        if max(abs(a - b) for a, b in zip(nodes[tag], part_nodes[k])) > 1e-9:
            raise RuntimeError(f"node numbering differs from the exported part at node {k}")

    def right(x, y):   # outward normal +x: t = (sxx, sxy)
        sxx, syy, sxy = sv.kirsch(x, y, A, S)
        return sxx, sxy

    def top(x, y):     # outward normal +y: t = (sxy, syy)
        sxx, syy, sxy = sv.kirsch(x, y, A, S)
        return sxy, syy

    loads = {}
    for phys, fn in ((12, right), (13, top)):
        segs = [(ns[0], ns[1]) for t, p, ns in elems if t == 1 and p == phys]
        for tag, (fx, fy) in sv.consistent_edge_loads(nodes, segs, fn, T).items():
            gx, gy = loads.get(number[tag], (0.0, 0.0))
            loads[number[tag]] = (gx + fx, gy + fy)
    for t, p, ns in elems:   # symmetry lines: no force along a fixed direction
        if t == 1 and p in (11, 14):
            for tag in ns:
                if number[tag] in loads:
                    fx, fy = loads[number[tag]]
                    loads[number[tag]] = (0.0, fy) if p == 14 else (fx, 0.0)
    return loads


def solve(workdir, name, family, target=0.05):
    """Meshes are in workdir/name.msh already. Runs export, CalculiX, import and slabadapt;
    returns the row of results."""
    w = Path(workdir)
    (w / f"{name}.toml").write_text(TOML.format(t=T))
    inp_type = "plane-stress"
    sv.slabadapt(["export", name, "--inp", f"{name}_mesh.inp", "--inp-type", inp_type], w)
    part_nodes, part_elems = sv.read_inp_part(w / f"{name}_mesh.inp")
    (w / f"{name}.inp").write_text(deck(f"{name}_mesh.inp",
                                        traction_loads(w / f"{name}.msh", part_nodes)))
    sv.ccx(name, w)
    sv.slabadapt(["import-ccx", name, f"{name}.dat"], w)
    sv.slabadapt(["run", name, "--target", target, "--load-case", 1], w)
    strintg = sv.read_strintg(w / f"{name}.STRINTG0001")
    areas = sv.element_areas(part_nodes, part_elems)
    E2, U2 = sv.true_error(strintg, areas, sv.kirsch_exact(T, E, NU, A, S))
    gar = sv.read_gar(w / f"{name}.GAR")
    eta = sv.global_error_from_gar(gar)
    tri = sum(1 for ns in part_elems.values() if len(ns) == 3)
    return {
        "family": family, "elements": len(part_elems), "triangles": tri,
        "nodes": len(part_nodes), "estimated": eta, "true": sv.relative(E2, U2),
        "effectivity": sv.effectivity(eta, E2, U2),
        "ratio": eta / sv.relative(E2, U2),
    }


def level(outdir, family, h):
    name = "plate"
    w = Path(outdir) / "holeplate" / f"{family}-{h:g}"
    w.mkdir(parents=True, exist_ok=True)
    (w / f"{name}.geo").write_text(geo_text(h, family == "cps4"))
    sv.gmsh(f"{name}.geo", f"{name}.msh", w)
    row = solve(w, name, family)
    row["h"] = h
    return row


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("outdir")
    ap.add_argument("--family", default="both", choices=["cps3", "cps4", "both"])
    ap.add_argument("--levels", default=",".join(str(h) for h in LEVELS))
    args = ap.parse_args(argv)
    families = ["cps3", "cps4"] if args.family == "both" else [args.family]
    levels = [float(h) for h in args.levels.split(",")]
    rows = []
    for family in families:
        for h in levels:
            row = level(args.outdir, family, h)
            rows.append(row)
            print(f"hole plate {family} h={h:g}: {row['elements']} elements, estimated "
                  f"{100 * row['estimated']:.3f} %, true {100 * row['true']:.3f} %, "
                  f"effectivity {row['effectivity']:.3f}", flush=True)
    Path(args.outdir).mkdir(parents=True, exist_ok=True)
    sv.save_json(Path(args.outdir) / "holeplate.json", rows)
    return rows


if __name__ == "__main__":
    sys.path.insert(0, str(Path(__file__).resolve().parent))
    main()
