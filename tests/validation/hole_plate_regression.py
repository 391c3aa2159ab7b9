#!/usr/bin/env python3
"""Regression test: a short hole-plate study (CPS3 and CPS4, three levels) through Gmsh,
CalculiX and slabadapt; the effectivity index at the two finest levels must lie in
[0.85, 1.15] and the estimate must fall with refinement.

Usage: hole_plate_regression.py SLABADAPT WORKDIR
"""

import os
import shutil
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "validation"))

import holeplate  # noqa: E402


def main():
    os.environ["SLABADAPT"] = sys.argv[1]
    work = Path(sys.argv[2])
    shutil.rmtree(work, ignore_errors=True)
    rows = holeplate.main([str(work), "--levels", "0.4,0.2,0.1"])
    failures = []
    for family in ("cps3", "cps4"):
        fam = [r for r in rows if r["family"] == family]
        for r in fam[-2:]:
            if not 0.85 <= r["effectivity"] <= 1.15:
                failures.append(f"{family} h={r['h']}: effectivity {r['effectivity']:.3f} "
                                "outside [0.85, 1.15]")
        est = [r["estimated"] for r in fam]
        if not all(a > b for a, b in zip(est, est[1:])):
            failures.append(f"{family}: the estimate does not fall with refinement: {est}")
    for f in failures:
        print("FAILED:", f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
