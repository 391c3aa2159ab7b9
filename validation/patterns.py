#!/usr/bin/env python3
"""Pattern loading on the flat slab in three bays (examples/flat-slab/bays): the imposed load on
bays 1 and 3 (combination 202 = 1.35 x self weight + 1.5 x imposed there) and on bay 2 (203).
Adapting to the sum of the two combinations (what a pass given several load cases estimates)
against adapting to their envelope (--envelope 202 203: every combination must meet the
target): where the two ask for different meshes, how many elements each needs, and each
combination's own error on either final mesh.

Usage: patterns.py OUTDIR      writes OUTDIR/patterns.json
"""

import json
import shutil
import sqlite3
import sys
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parent))
import slabval as sv  # noqa: E402

EXAMPLE = sv.REPO / "examples" / "flat-slab"
NAME = "bays"
COMMON = ["--target", 0.05, "--h0", 1.0, "--max-cycles", 8]


def copy_project(work):
    work.mkdir(parents=True, exist_ok=True)
    for suffix in (".geo", ".toml"):
        shutil.copy(EXAMPLE / f"{NAME}{suffix}", work / f"{NAME}{suffix}")


def columns(gar, envelope):
    """{element: (global, local, density, new size)} of the envelope (or of result case 1)."""
    con = sqlite3.connect(gar)
    where = "envelope = 2" if envelope else "envelope = 0 and case_number = 1"
    out = {}
    for (table,) in con.execute(f"select table_name from gar_results where {where}"):
        for row in con.execute(f'select element_id, v0, v1, v2, v3 from "{table}"'):
            out[row[0]] = row[1:]
    con.close()
    return out


def evaluate(folder, work):
    """Each combination's own error on the mesh of `folder`: an envelope pass on a copy."""
    work.mkdir(parents=True, exist_ok=True)
    for f in folder.iterdir():
        if f.is_file() and (f.name.startswith(NAME + ".STRINTG") or f.suffix in (".msh", ".toml")):
            shutil.copy(f, work / f.name)
    out = sv.slabadapt(["run", NAME, "--target", 0.05, "--envelope", 202, 203, "--json"], work)
    result = json.loads(out[out.index("{"):])
    return {str(p["load_case"]): p["global_error"] for p in result["passes"]}


def run(base, label, selection):
    work = base / label
    copy_project(work)
    print(sv.slabadapt(["adapt", NAME] + COMMON + selection + ["--fresh"], work), flush=True)
    record = work / f"{NAME}.adapt"
    history = json.loads((record / "history.json").read_text())
    final = history["cycles"][-1]
    folder = record / f"cycle-{final['cycle']:02d}"
    return {"label": label, "cycles": len(history["cycles"]), "elements": final["elements"],
            "estimated": final["global_error"], "stop": history["stop"]["reason"],
            "per_cycle": [(c["elements"], c["global_error"]) for c in history["cycles"]],
            "combination_errors": evaluate(folder, base / f"{label}-final")}


def first_mesh_demands(base):
    """On the first (uniform) mesh: the new sizes the summed pass and the envelope ask for, per
    bay (median ratio envelope / summed, and the share of elements where the envelope asks for
    a size at least 20 % smaller)."""
    first = base / "summed" / f"{NAME}.adapt" / "cycle-01"
    work = base / "first-mesh"
    evaluate(first, work)  # the envelope on the first mesh
    summed = columns(first / f"{NAME}.GAR", False)
    envelope = columns(work / f"{NAME}.GAR", True)
    con = sqlite3.connect(first / f"{NAME}.GAR")
    slab_of = {}
    for table, slab in con.execute("select table_name, ds_id from gar_results where envelope = 0"):
        for (element,) in con.execute(f'select element_id from "{table}"'):
            slab_of[element] = slab
    con.close()
    rows = []
    for slab in sorted(set(slab_of.values())):
        ratios = np.array([envelope[e][3] / summed[e][3] for e in summed if slab_of[e] == slab])
        rows.append({"bay": slab, "median_ratio": float(np.median(ratios)),
                     "finer": float(np.mean(ratios < 0.8)), "elements": int(ratios.size)})
    return rows


def main(argv):
    out = Path(argv[0])
    base = out / "patterns"
    base.mkdir(parents=True, exist_ok=True)
    summed = run(base, "summed", ["--load-case", 202, "--load-case", 203])
    envelope = run(base, "envelope", ["--envelope", 202, 203])
    result = {"summed": summed, "envelope": envelope, "first_mesh": first_mesh_demands(base)}
    for r in (summed, envelope):
        errs = ", ".join(f"{k}: {100 * v:.2f} %" for k, v in r["combination_errors"].items())
        print(f"{r['label']}: {r['cycles']} cycles, {r['elements']} elements, stop "
              f"{r['stop']}; on the final mesh {errs}")
    for b in result["first_mesh"]:
        print(f"first mesh, bay {b['bay']}: envelope / summed size median {b['median_ratio']:.2f}, "
              f"{100 * b['finer']:.0f} % of elements 20 % finer")
    sv.save_json(out / "patterns.json", result)


if __name__ == "__main__":
    main(sys.argv[1:])
