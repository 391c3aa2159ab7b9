#!/usr/bin/env python3
"""The bundled flat slab (examples/flat-slab) through `slabadapt adapt`: the adaptive loop as it
ships, the same loop with the size field graded (--gradation 1.5 and 1.3), and uniform meshes
for comparison. The slab has no exact solution: errors here are slabadapt's estimates, whose
effectivity the hole plate, the square plate and the L-shaped domain measure.

Element shape: per quadrilateral 4 A / (sum of its squared sides), 1 for a square; per triangle
4 sqrt(3) A / (sum of its squared sides), 1 for an equilateral one.

Usage: flatslab.py OUTDIR      writes OUTDIR/flatslab.json
"""

import json
import math
import shutil
import sys
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parent))
import slabval as sv  # noqa: E402

EXAMPLE = sv.REPO / "examples" / "flat-slab"
NAME = "flat-slab"
ARGS = ["--target", 0.05, "--load-case", 101, "--load-case", 102, "--h0", 1.0]


def shapes(msh):
    nodes, elems = sv.read_msh22(msh)
    q = []
    for etype, _, ns in elems:
        if etype not in (2, 3):
            continue
        p = [np.array(nodes[n][:2]) for n in ns]
        sides = sum(float(np.sum((p[(i + 1) % len(p)] - p[i]) ** 2)) for i in range(len(p)))
        area = 0.5 * abs(sum(p[i][0] * p[(i + 1) % len(p)][1] - p[(i + 1) % len(p)][0] * p[i][1]
                             for i in range(len(p))))
        q.append((4 * math.sqrt(3) if len(p) == 3 else 4.0) * area / sides)
    q = np.array(q)
    return {"mean_shape": float(q.mean()), "poor_shapes": float(np.mean(q < 0.5))}


def adapt_run(base, label, extra):
    work = base / label
    work.mkdir(parents=True, exist_ok=True)
    for suffix in (".geo", ".toml"):
        shutil.copy(EXAMPLE / f"{NAME}{suffix}", work / f"{NAME}{suffix}")
    print(sv.slabadapt(["adapt", NAME] + ARGS + extra + ["--fresh"], work), flush=True)
    record = work / f"{NAME}.adapt"
    history = json.loads((record / "history.json").read_text())
    cycles = history["cycles"]
    final = cycles[-1]
    row = {"label": label, "cycles": len(cycles), "elements": final["elements"],
           "estimated": final["global_error"],
           "per_cycle": [(c["elements"], c["global_error"]) for c in cycles],
           "seconds": sum(c["seconds"]["total"] for c in cycles)}
    row.update(shapes(record / f"cycle-{final['cycle']:02d}" / f"{NAME}.msh"))
    return row


def uniform_run(base, h):
    """One pass of the module on a uniform quadrilateral mesh of size h: the first cycle of
    `adapt` with --h0 h and --max-cycles 1."""
    work = base / f"uniform-{h:g}"
    work.mkdir(parents=True, exist_ok=True)
    for suffix in (".geo", ".toml"):
        shutil.copy(EXAMPLE / f"{NAME}{suffix}", work / f"{NAME}{suffix}")
    cmd = [sv.slabadapt_binary(), "adapt", NAME, "--target", 0.001, "--load-case", 101,
           "--load-case", 102, "--h0", h, "--max-cycles", 1, "--fresh"]
    sv.subprocess.run([str(c) for c in cmd], cwd=work, capture_output=True, text=True)
    history = json.loads((work / f"{NAME}.adapt" / "history.json").read_text())
    c = history["cycles"][0]
    row = {"h": h, "elements": c["elements"], "estimated": c["global_error"]}
    print(f"uniform h = {h:g}: {row['elements']} elements, estimated "
          f"{100 * row['estimated']:.2f} %", flush=True)
    return row


def main(argv):
    out = Path(argv[0])
    base = out / "flatslab"
    base.mkdir(parents=True, exist_ok=True)
    runs = [adapt_run(base, "plain", []),
            adapt_run(base, "gradation-1.5", ["--gradation", 1.5]),
            adapt_run(base, "gradation-1.3", ["--gradation", 1.3])]
    uniform = [uniform_run(base, h) for h in (1.0, 0.5, 0.25, 0.125, 0.0884)]
    last = uniform[-3:]
    slope, icpt = np.polyfit(np.log([r["elements"] for r in last]),
                             np.log([r["estimated"] for r in last]), 1)
    plain = runs[0]
    needed = math.exp((math.log(plain["estimated"]) - icpt) / slope)
    result = {"runs": runs, "uniform": uniform, "uniform_rate": float(slope),
              "uniform_elements_at_final_error": needed,
              "element_ratio": needed / plain["elements"]}
    for r in runs:
        print(f"{r['label']}: {r['cycles']} cycles, {r['elements']} elements, estimated "
              f"{100 * r['estimated']:.2f} %, mean shape {r['mean_shape']:.3f}, poor "
              f"{100 * r['poor_shapes']:.2f} %, {r['seconds']:.0f} s")
    print(f"uniform: estimated error ~ N^{slope:.3f}; about {needed:.0f} elements for "
          f"{100 * plain['estimated']:.2f} %: ratio {result['element_ratio']:.1f}")
    sv.save_json(out / "flatslab.json", result)


if __name__ == "__main__":
    main(sys.argv[1:])
