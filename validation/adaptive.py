#!/usr/bin/env python3
"""The adaptive loop on the plate with a hole (CPS3): `slabadapt adapt` (Gmsh -> CalculiX ->
slabadapt -> Gmsh with the size field -> ...) until slabadapt's global error is below the
target, with the true error of every cycle from Kirsch's solution; then uniform meshes, refined
step by step, until their true error is as small as the adaptive loop's final one, for the
element-count ratio.

Usage: adaptive.py OUTDIR [--target 0.05] [--h0 1.0] [--family cps3|cps4]
Writes OUTDIR/adaptive.json and keeps the record of the adaptive analysis in
OUTDIR/adaptive/plate.adapt/ and each uniform mesh in OUTDIR/adaptive/uniform-<h>/.
"""

import argparse
import sys
from pathlib import Path

import holeplate
import slabval as sv


def true_row(folder, name, family):
    """The true error of a cycle that `slabadapt adapt` completed in `folder`, from Kirsch's
    exact solution, beside the estimate the cycle stored."""
    part_nodes, part_elems = sv.read_inp_part(folder / f"{name}_mesh.inp")
    strintg = sv.read_strintg(folder / f"{name}.STRINTG0001")
    areas = sv.element_areas(part_nodes, part_elems)
    E2, U2 = sv.true_error(strintg, areas,
                           sv.kirsch_exact(holeplate.T, holeplate.E, holeplate.NU, holeplate.A,
                                           holeplate.S))
    eta = sv.global_error_from_gar(sv.read_gar(folder / f"{name}.GAR"))
    tri = sum(1 for ns in part_elems.values() if len(ns) == 3)
    return {
        "family": family, "elements": len(part_elems), "triangles": tri,
        "nodes": len(part_nodes), "estimated": eta, "true": sv.relative(E2, U2),
        "effectivity": sv.effectivity(eta, E2, U2), "ratio": eta / sv.relative(E2, U2),
    }


def adaptive_loop(outdir, family, target, h0, max_cycles=12):
    """`slabadapt adapt` on the plate (CPS3 or CPS4), each cycle's deck with the exact tractions
    written by examples/hole-plate/write_deck.py; then the true error of every cycle."""
    base = Path(outdir) / "adaptive"
    base.mkdir(parents=True, exist_ok=True)
    name = "plate"
    (base / f"{name}.geo").write_text(holeplate.geo_text(h0, family == "cps4"))
    (base / f"{name}.toml").write_text(holeplate.TOML.format(t=holeplate.T))
    deck = f'{sys.executable} {sv.REPO / "examples/hole-plate/write_deck.py"} "$SLABADAPT_P"'
    args = ["adapt", name, "--target", target, "--load-case", 1, "--h0", h0, "--plane-stress",
            "--max-cycles", max_cycles, "--deck-command", deck, "--fresh"]
    if family == "cps3":
        args.append("--triangles")
    print(sv.slabadapt(args, base), flush=True)
    record = base / f"{name}.adapt"
    cycles = []
    for folder in sorted(record.glob("cycle-*")):
        row = true_row(folder, name, family)
        row["cycle"] = int(folder.name.split("-")[1])
        row["dir"] = str(folder)
        cycles.append(row)
        print(f"adaptive cycle {row['cycle']}: {row['elements']} elements, estimated "
              f"{100 * row['estimated']:.3f} %, true {100 * row['true']:.3f} %, "
              f"effectivity {row['effectivity']:.3f}", flush=True)
    return cycles


def uniform_until(outdir, family, true_target, h_start=0.4, factor=0.85, max_steps=40):
    """Uniform meshes with h shrinking by `factor` until the true error is <= true_target."""
    base = Path(outdir) / "adaptive"
    rows = []
    h = h_start
    for _ in range(max_steps):
        w = base / f"uniform-{h:.5f}"
        w.mkdir(parents=True, exist_ok=True)
        (w / "plate.geo").write_text(holeplate.geo_text(h, family == "cps4"))
        sv.gmsh("plate.geo", "plate.msh", w)
        row = holeplate.solve(w, "plate", family)
        row["h"] = h
        rows.append(row)
        print(f"uniform h={h:.4f}: {row['elements']} elements, true {100 * row['true']:.3f} %",
              flush=True)
        if row["true"] <= true_target:
            break
        h *= factor
    return rows


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("outdir")
    ap.add_argument("--target", type=float, default=0.05)
    ap.add_argument("--h0", type=float, default=1.0)
    ap.add_argument("--family", default="cps3", choices=["cps3", "cps4"])
    args = ap.parse_args(argv)
    cycles = adaptive_loop(args.outdir, args.family, args.target, args.h0)
    final = cycles[-1]
    uniform = uniform_until(args.outdir, args.family, final["true"])
    reached = uniform[-1]
    result = {
        "family": args.family, "target": args.target, "h0": args.h0,
        "cycles": cycles, "uniform": uniform,
        "adaptive_elements": final["elements"], "uniform_elements": reached["elements"],
        "ratio": reached["elements"] / final["elements"],
        "first_dir": cycles[0]["dir"], "final_dir": final["dir"],
    }
    print(f"adaptive: {final['elements']} elements for a true error of "
          f"{100 * final['true']:.3f} %; uniform: {reached['elements']} elements for "
          f"{100 * reached['true']:.3f} %; ratio {result['ratio']:.2f}")
    sv.save_json(Path(args.outdir) / "adaptive.json", result)
    return result


if __name__ == "__main__":
    main()
