#!/usr/bin/env python3
"""The L-shaped plane-stress domain loaded by the exact singular solution of its re-entrant
corner: Williams' first symmetric mode, stresses ~ r^(lambda - 1) with lambda = 0.5444837.

The domain is (-1, 1)^2 without the quadrant x > 0, y < 0; the re-entrant corner is the origin,
its two edges (along +x and along -y) are free of traction as the mode has them, and the outer
edges carry the mode's exact tractions as consistent nodal forces. The midpoints of the free
edges hold the rigid-body motions (the loads are in equilibrium, so their reactions vanish). The true
error of every finite-element solution follows from the exact field; uniform refinement
converges in energy like N^(-lambda/2) = N^(-0.27), optimal adaptive meshes of linear elements
like N^(-1/2).

Usage:
  lshape.py deck P          writes P.inp for the mesh P.msh and its part P_mesh.inp (the
                            `slabadapt adapt --deck-command`)
  lshape.py study OUTDIR    the adaptive loop (`slabadapt adapt`) against uniform refinement;
                            writes OUTDIR/lshape.json
  lshape.py check           checks the exact solution (equilibrium, compatibility, free edges)
"""

import math
import sys
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parent))
import slabval as sv  # noqa: E402

LAMBDA = 0.5444837367825  # root of -lambda + sin(3 pi lambda / 2) = 0 (half angle 3 pi / 4)
ALPHA = 3 * math.pi / 4   # half the opening angle of the domain at the corner
BISECTOR = 3 * math.pi / 4  # direction of the bisector of the domain's angle
E, NU, T = 1000.0, 0.3, 1.0

GEO = """// L-shaped domain: (-1, 1)^2 without the quadrant x > 0, y < 0; written by validation/lshape.py
h = {h};
Point(1) = {{0, 0, 0, h}}; Point(2) = {{1, 0, 0, h}}; Point(3) = {{1, 1, 0, h}};
Point(4) = {{-1, 1, 0, h}}; Point(5) = {{-1, -1, 0, h}}; Point(6) = {{0, -1, 0, h}};
Point(7) = {{0.5, 0, 0, h}}; Point(8) = {{0, -0.5, 0, h}};
Line(1) = {{1, 7}}; Line(7) = {{7, 2}}; Line(2) = {{2, 3}}; Line(3) = {{3, 4}};
Line(4) = {{4, 5}}; Line(5) = {{5, 6}}; Line(6) = {{6, 8}}; Line(8) = {{8, 1}};
Curve Loop(1) = {{1, 7, 2, 3, 4, 5, 6, 8}}; Plane Surface(1) = {{1}};
Physical Surface("plate", 1) = {{1}};
Physical Curve("free", 11) = {{1, 7, 6, 8}};
Physical Curve("loaded", 12) = {{2, 3, 4, 5}};
Physical Point("A", 21) = {{7}};
Physical Point("B", 22) = {{8}};
"""

TOML = """title = "L-shaped domain under the singular mode of its re-entrant corner"

[[slab]]
tag = 1
name = "plate"
thickness = {t}

[[load_case]]
id = 1
index = 1
name = "Williams mode I"
"""


def mode_local(r, phi):
    """Stresses of the symmetric mode in the bisector's frame (x' along the bisector), for the
    polar angle phi from the bisector; amplitude 1 (Szabo and Babuska's form)."""
    lam = LAMBDA
    q = -math.cos((lam - 1) * ALPHA) / math.cos((lam + 1) * ALPHA)
    f = lam * r ** (lam - 1)
    sx = f * ((2 - q * (lam + 1)) * np.cos((lam - 1) * phi) - (lam - 1) * np.cos((lam - 3) * phi))
    sy = f * ((2 + q * (lam + 1)) * np.cos((lam - 1) * phi) + (lam - 1) * np.cos((lam - 3) * phi))
    txy = f * ((lam - 1) * np.sin((lam - 3) * phi) + q * (lam + 1) * np.sin((lam - 1) * phi))
    return sx, sy, txy


def williams(x, y):
    """Global stresses (sxx, syy, sxy) of the mode at (x, y) of the L-shaped domain."""
    x, y = np.asarray(x, dtype=float), np.asarray(y, dtype=float)
    r = np.hypot(x, y)
    theta = np.arctan2(y, x)
    theta = np.where(theta < -math.pi / 4, theta + 2 * math.pi, theta)  # 0 .. 3 pi / 2
    sx, sy, txy = mode_local(r, theta - BISECTOR)
    c, s = math.cos(BISECTOR), math.sin(BISECTOR)
    sxx = c * c * sx + s * s * sy - 2 * s * c * txy
    syy = s * s * sx + c * c * sy + 2 * s * c * txy
    sxy = s * c * (sx - sy) + (c * c - s * s) * txy
    return sxx, syy, sxy


def exact(x, y):
    """Forces and deformations per unit width (STRINTG order) of the plane-stress mode."""
    sxx, syy, sxy = williams(x, y)
    n = len(np.atleast_1d(x))
    f = np.zeros((n, 8))
    d = np.zeros((n, 8))
    f[:, 5], f[:, 6], f[:, 7] = T * sxx, T * syy, T * sxy
    d[:, 5] = (sxx - NU * syy) / E
    d[:, 6] = (syy - NU * sxx) / E
    d[:, 7] = 2 * (1 + NU) * sxy / E
    return f, d


def check():
    """Equilibrium, compatibility and free corner edges, by finite differences at a few points
    of the domain; returns the largest relative defect."""
    worst = 0.0
    rng = np.random.default_rng(1)
    h = 1e-5
    for _ in range(40):
        while True:
            x, y = rng.uniform(-0.9, 0.9, 2)
            if not (x > -0.05 and y < 0.05) and math.hypot(x, y) > 0.2:
                break
        s = lambda a, b: np.array(williams(a, b), dtype=float)  # noqa: E731
        dx = (s(x + h, y) - s(x - h, y)) / (2 * h)
        dy = (s(x, y + h) - s(x, y - h)) / (2 * h)
        scale = np.max(np.abs(s(x, y))) / math.hypot(x, y)
        worst = max(worst, abs(dx[0] + dy[2]) / scale, abs(dx[2] + dy[1]) / scale)
        # Compatibility of plane stress: laplacian of (sxx + syy) vanishes.
        tr = lambda a, b: float(np.sum(s(a, b)[:2]))  # noqa: E731
        h2 = 1e-3
        lap = (tr(x + h2, y) + tr(x - h2, y) + tr(x, y + h2) + tr(x, y - h2) - 4 * tr(x, y)) / h2 ** 2
        worst = max(worst, abs(lap) / (scale / math.hypot(x, y)) * 1e-2)
    for r in (0.1, 0.5, 1.0):
        sxx, syy, sxy = williams(r, 0.0)          # the edge along +x, normal -y
        worst = max(worst, abs(float(syy)), abs(float(sxy)))
        sxx, syy, sxy = williams(0.0, -r)         # the edge along -y, normal +x
        worst = max(worst, abs(float(sxx)), abs(float(sxy)))
    return worst


def traction_loads(msh_path, part_nodes):
    """Consistent nodal forces of the mode's tractions on the outer edges, in the project's node
    numbering (checked against the exported part)."""
    nodes, elems = sv.read_msh22(msh_path)
    number = sv.node_numbers(nodes, elems)
    for tag, k in number.items():
        if max(abs(a - b) for a, b in zip(nodes[tag], part_nodes[k])) > 1e-9:
            raise RuntimeError(f"node numbering differs from the exported part at node {k}")

    def edge_traction(normal):
        def traction(x, y):
            sxx, syy, sxy = williams(x, y)
            return (float(sxx) * normal[0] + float(sxy) * normal[1],
                    float(sxy) * normal[0] + float(syy) * normal[1])
        return traction

    loads = {}
    for ns in (ns for t, p, ns in elems if t == 1 and p == 12):
        a, b = nodes[ns[0]], nodes[ns[1]]
        # The outward normal of the outer edge this segment lies on.
        if abs(a[0] - 1) < 1e-9 and abs(b[0] - 1) < 1e-9:
            normal = (1.0, 0.0)
        elif abs(a[0] + 1) < 1e-9 and abs(b[0] + 1) < 1e-9:
            normal = (-1.0, 0.0)
        elif abs(a[1] - 1) < 1e-9 and abs(b[1] - 1) < 1e-9:
            normal = (0.0, 1.0)
        else:
            normal = (0.0, -1.0)
        for tag, (fx, fy) in sv.consistent_edge_loads(nodes, [(ns[0], ns[1])],
                                                      edge_traction(normal), T).items():
            gx, gy = loads.get(number[tag], (0.0, 0.0))
            loads[number[tag]] = (gx + fx, gy + fy)
    return loads


def deck(part, loads):
    lines = ["** L-shaped domain under Williams' first symmetric mode: exact outer tractions",
             f"*INCLUDE, INPUT={part}",
             "*MATERIAL, NAME=M", "*ELASTIC", f"{E}, {NU}",
             "*SOLID SECTION, ELSET=EALL, MATERIAL=M", f"{T}",
             "*BOUNDARY", "A, 1, 2", "B, 1, 1",
             "*STEP", "*STATIC", "*CLOAD"]
    for node in sorted(loads):
        fx, fy = loads[node]
        lines.append(f"{node}, 1, {fx:.12e}")
        lines.append(f"{node}, 2, {fy:.12e}")
    lines += ["*EL PRINT, ELSET=EALL", "S, E, COORD", "*END STEP", ""]
    return "\n".join(lines)


def write_deck(project):
    project = Path(project)
    part = project.with_name(project.name + "_mesh.inp")
    part_nodes, _ = sv.read_inp_part(part)
    loads = traction_loads(project.with_name(project.name + ".msh"), part_nodes)
    project.with_name(project.name + ".inp").write_text(deck(part.name, loads))


def true_row(folder, name):
    part_nodes, part_elems = sv.read_inp_part(folder / f"{name}_mesh.inp")
    strintg = sv.read_strintg(folder / f"{name}.STRINTG0001")
    areas = sv.element_areas(part_nodes, part_elems)
    E2, U2 = sv.true_error(strintg, areas, exact)
    eta = sv.global_error_from_gar(sv.read_gar(folder / f"{name}.GAR"))
    return {"elements": len(part_elems), "nodes": len(part_nodes), "estimated": eta,
            "true": sv.relative(E2, U2), "effectivity": sv.effectivity(eta, E2, U2)}


def fitted_rate(rows, last=None):
    """Slope of log(true error) against log(elements), least squares over the rows."""
    rows = rows[-last:] if last else rows
    n = np.log([r["elements"] for r in rows])
    e = np.log([r["true"] for r in rows])
    return float(np.polyfit(n, e, 1)[0])


def study(outdir, target=0.01, h0=0.5, max_cycles=12):
    out = Path(outdir)
    base = out / "lshape"
    base.mkdir(parents=True, exist_ok=True)
    (base / "lshape.geo").write_text(GEO.format(h=h0))
    (base / "lshape.toml").write_text(TOML.format(t=T))
    command = f'{sys.executable} {Path(__file__).resolve()} deck "$SLABADAPT_P"'
    print(sv.slabadapt(["adapt", "lshape", "--target", target, "--load-case", 1, "--h0", h0,
                        "--plane-stress", "--max-cycles", max_cycles, "--max-elements", 60000,
                        "--deck-command", command, "--fresh"], base), flush=True)
    adaptive = []
    for folder in sorted((base / "lshape.adapt").glob("cycle-*")):
        row = true_row(folder, "lshape")
        row["cycle"] = int(folder.name.split("-")[1])
        adaptive.append(row)
        print(f"adaptive cycle {row['cycle']}: {row['elements']} elements, estimated "
              f"{100 * row['estimated']:.3f} %, true {100 * row['true']:.3f} %, effectivity "
              f"{row['effectivity']:.3f}", flush=True)
    uniform = []
    for h in (0.5, 0.25, 0.125, 0.0625, 0.03125):
        w = base / f"uniform-{h:g}"
        w.mkdir(parents=True, exist_ok=True)
        (w / "lshape.geo").write_text(GEO.format(h=h) + "Mesh.RecombineAll = 1; "
                                      "Mesh.Algorithm = 6; Mesh.RecombinationAlgorithm = 1;\n")
        (w / "lshape.toml").write_text(TOML.format(t=T))
        sv.gmsh("lshape.geo", "lshape.msh", w)
        sv.slabadapt(["export", "lshape", "--inp", "lshape_mesh.inp", "--inp-type",
                      "plane-stress"], w)
        write_deck(w / "lshape")
        sv.ccx("lshape", w)
        sv.slabadapt(["import-ccx", "lshape", "lshape.dat", "--family", "plane"], w)
        sv.slabadapt(["run", "lshape", "--target", target, "--load-case", 1], w)
        row = true_row(w, "lshape")
        row["h"] = h
        uniform.append(row)
        print(f"uniform h = {h:g}: {row['elements']} elements, estimated "
              f"{100 * row['estimated']:.3f} %, true {100 * row['true']:.3f} %, effectivity "
              f"{row['effectivity']:.3f}", flush=True)
    # The adaptive loop's rate over all its cycles: its late cycles size for the target directly
    # and mostly move elements, so their own slope says little; uniform refinement's over its
    # three finest meshes, where the singular term governs.
    result = {"lambda": LAMBDA, "check": check(), "target": target, "h0": h0,
              "adaptive": adaptive,
              "uniform": uniform,
              "adaptive_rate": fitted_rate(adaptive),
              "uniform_rate": fitted_rate(uniform, last=3)}
    # Elements uniform refinement needs for the adaptive loop's final true error, from the
    # uniform fit through its last three meshes.
    last = uniform[-3:]
    slope, icpt = np.polyfit(np.log([r["elements"] for r in last]),
                             np.log([r["true"] for r in last]), 1)
    final = adaptive[-1]
    result["uniform_elements_at_final_error"] = float(math.exp((math.log(final["true"]) - icpt)
                                                               / slope))
    result["element_ratio"] = result["uniform_elements_at_final_error"] / final["elements"]
    # Within the measured range: the adaptive elements at the finest uniform mesh's true error,
    # interpolated log-log between the two cycles around it.
    finest = uniform[-1]
    for a, b in zip(adaptive, adaptive[1:]):
        if a["true"] >= finest["true"] >= b["true"]:
            f = math.log(a["true"] / finest["true"]) / math.log(a["true"] / b["true"])
            result["adaptive_elements_at_finest_uniform_error"] = (
                a["elements"] * (b["elements"] / a["elements"]) ** f)
            result["element_ratio_at_finest_uniform_error"] = (
                finest["elements"] / result["adaptive_elements_at_finest_uniform_error"])
    print(f"fitted rates: adaptive N^{result['adaptive_rate']:.3f} (all cycles), uniform "
          f"N^{result['uniform_rate']:.3f}; uniform meshes need about "
          f"{result['uniform_elements_at_final_error']:.0f} elements for the adaptive loop's "
          f"{100 * final['true']:.3f} % ({final['elements']} elements): ratio "
          f"{result['element_ratio']:.1f}")
    sv.save_json(out / "lshape.json", result)
    return result


def main(argv):
    if len(argv) >= 2 and argv[0] == "deck":
        write_deck(argv[1])
    elif len(argv) >= 2 and argv[0] == "study":
        study(argv[1])
    elif argv and argv[0] == "check":
        worst = check()
        print(f"largest relative defect of the exact solution: {worst:.2e}")
        sys.exit(0 if worst < 1e-4 else 1)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
