#!/usr/bin/env python3
"""The adaptive loop on the plate with a hole (CPS3): Gmsh -> CalculiX -> slabadapt ->
Gmsh with -bgm P.refine.pos -> ... until slabadapt's global error is below the target; then
uniform meshes, refined step by step, until their true error is as small as the adaptive
loop's final one, for the element-count ratio.

Usage: adaptive.py OUTDIR [--target 0.05] [--h0 1.0] [--family cps3|cps4]
Writes OUTDIR/adaptive.json and keeps each cycle in OUTDIR/adaptive/cycle-<k>/ and each
uniform mesh in OUTDIR/adaptive/uniform-<h>/.
"""

import argparse
import shutil
from pathlib import Path

import holeplate
import slabval as sv


def adaptive_loop(outdir, family, target, h0, max_cycles=12):
    base = Path(outdir) / "adaptive"
    cycles = []
    previous = None
    for k in range(max_cycles):
        w = base / f"cycle-{k}"
        w.mkdir(parents=True, exist_ok=True)
        name = "plate"
        if previous is None:
            (w / f"{name}.geo").write_text(holeplate.geo_text(h0, family == "cps4"))
            sv.gmsh(f"{name}.geo", f"{name}.msh", w)
        else:
            # Sizes come from the previous cycle's field alone.
            (w / f"{name}.geo").write_text(holeplate.geo_text(h0, family == "cps4", background=True))
            shutil.copy(previous / f"{name}.refine.pos", w / "size.pos")
            sv.gmsh(f"{name}.geo", f"{name}.msh", w, bgm="size.pos")
        row = holeplate.solve(w, name, family, target)
        row["cycle"] = k
        cycles.append(row)
        print(f"adaptive cycle {k}: {row['elements']} elements, estimated "
              f"{100 * row['estimated']:.3f} %, true {100 * row['true']:.3f} %, "
              f"effectivity {row['effectivity']:.3f}", flush=True)
        if row["estimated"] < target:
            break
        previous = w
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
        "final_dir": str(Path(args.outdir) / "adaptive" / f"cycle-{final['cycle']}"),
    }
    print(f"adaptive: {final['elements']} elements for a true error of "
          f"{100 * final['true']:.3f} %; uniform: {reached['elements']} elements for "
          f"{100 * reached['true']:.3f} %; ratio {result['ratio']:.2f}")
    sv.save_json(Path(args.outdir) / "adaptive.json", result)
    return result


if __name__ == "__main__":
    main()
