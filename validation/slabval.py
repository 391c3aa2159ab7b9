"""Shared pieces of the validation studies: running Gmsh, CalculiX and slabadapt, reading
their files, the exact solutions, and the true error measured the way slabadapt measures its
estimate.

The true error is integrated with the module's own rule: the STRINTG points of an element,
each weighted by its share of the element's area (a third on a triangle, a quarter on a
quadrilateral), so that estimate and truth see the same points and the same quadrature.
Energy products pair each force with its deformation (mx kx + ... + nxy gxy).
"""

import json
import math
import os
import shutil
import sqlite3
import subprocess
from pathlib import Path

import numpy as np

REPO = Path(__file__).resolve().parent.parent


# ---------------------------------------------------------------- tools

def slabadapt_binary():
    """The slabadapt command: $SLABADAPT, else the release build of the repository."""
    env = os.environ.get("SLABADAPT")
    if env:
        return env
    for candidate in (REPO / "build/release/cli/slabadapt", REPO / "build/dev/cli/slabadapt"):
        if candidate.exists():
            return str(candidate)
    found = shutil.which("slabadapt")
    if found:
        return found
    raise SystemExit("slabadapt not found: build it or set SLABADAPT=/path/to/slabadapt")


def run(cmd, cwd, log=None):
    """Runs cmd (a list) in cwd; raises with the output when it fails."""
    proc = subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True)
    if log:
        Path(cwd, log).write_text(proc.stdout)
    if proc.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, cmd))} failed in {cwd}:\n{proc.stdout}")
    return proc.stdout


def gmsh(geo, msh, cwd, bgm=None):
    cmd = ["gmsh", geo, "-2", "-format", "msh22", "-o", msh]
    if bgm:
        cmd += ["-bgm", bgm]
    run(cmd, cwd, log=Path(msh).stem + ".gmsh.log")


def ccx(job, cwd):
    out = run(["ccx", "-i", job], cwd, log=job + ".ccx.log")
    if "*ERROR" in out:
        raise RuntimeError(f"CalculiX failed on {job}:\n{out}")


def slabadapt(args, cwd):
    return run([slabadapt_binary()] + [str(a) for a in args], cwd)


# ---------------------------------------------------------------- files

def read_msh22(path):
    """Nodes {tag: (x, y, z)} and elements [(type, physical, [node tags])] of a MSH 2.2 file."""
    lines = Path(path).read_text().splitlines()
    nodes, elems = {}, []
    i = 0
    while i < len(lines):
        if lines[i] == "$Nodes":
            n = int(lines[i + 1])
            for k in range(n):
                f = lines[i + 2 + k].split()
                nodes[int(f[0])] = tuple(float(v) for v in f[1:4])
            i += n + 2
        elif lines[i] == "$Elements":
            n = int(lines[i + 1])
            for k in range(n):
                f = [int(v) for v in lines[i + 2 + k].split()]
                ntags = f[2]
                elems.append((f[1], f[3] if ntags else 0, f[3 + ntags:]))
            i += n + 2
        else:
            i += 1
    return nodes, elems


def read_inp_part(path):
    """Nodes {number: (x, y, z)} and elements {number: [node numbers]} of an exported part."""
    nodes, elems, mode = {}, {}, None
    for line in Path(path).read_text().splitlines():
        if line.startswith("**"):
            continue
        if line.startswith("*"):
            key = line.upper()
            mode = "n" if key.startswith("*NODE") else "e" if key.startswith("*ELEMENT") else None
            continue
        f = [v.strip() for v in line.split(",")]
        if mode == "n":
            nodes[int(f[0])] = tuple(float(v) for v in f[1:4])
        elif mode == "e":
            elems[int(f[0])] = [int(v) for v in f[1:]]
    return nodes, elems


def node_numbers(msh_nodes, msh_elems):
    """The project's node numbers {gmsh tag: number}: ascending tags of slab-element nodes."""
    used = sorted({n for t, phys, ns in msh_elems if t in (2, 3) and phys for n in ns})
    return {tag: k + 1 for k, tag in enumerate(used)}


def element_areas(part_nodes, part_elems):
    areas = {}
    for e, ns in part_elems.items():
        p = np.array([part_nodes[n] for n in ns])
        if len(ns) == 3:
            c = np.cross(p[1] - p[0], p[2] - p[0])
        else:
            c = np.cross(p[2] - p[0], p[3] - p[1])
        areas[e] = 0.5 * float(np.linalg.norm(c))
    return areas


def read_strintg(path):
    """{element: array (points x 19)}: igx igy igz, 8 forces, 8 deformations (fixed columns)."""
    out = {}
    for k, line in enumerate(Path(path).read_text().splitlines()):
        if k < 4:
            continue
        e = int(line[0:8])
        vals = [float(line[16 + 15 * j:31 + 15 * j]) for j in range(19)]
        out.setdefault(e, []).append(vals)
    return {e: np.array(v) for e, v in out.items()}


def read_gar(path):
    """{element id: (global, local, numerical, new size)} over every slab table of P.GAR.
    The first two columns are fractions (the module stores the per-cent values / 100)."""
    con = sqlite3.connect(path)
    out = {}
    for (table,) in con.execute("select table_name from gar_results"):
        for row in con.execute(f'select element_id, v0, v1, v2, v3 from "{table}"'):
            out[row[0]] = row[1:]
    con.close()
    return out


def global_error_from_gar(gar):
    """The global relative error: the stored per-element global errors are sqrt(E_e) / m with
    m^2 = (E + U) / N, so their mean square is E / (E + U)."""
    g = np.array([v[0] for v in gar.values()])
    return float(math.sqrt(np.mean(g ** 2)))


# ---------------------------------------------------------------- true error

def module_weights(strintg, areas):
    """Weight of every STRINTG point: the element's area shared equally by its points."""
    return {e: np.full(len(p), areas[e] / len(p)) for e, p in strintg.items()}


def true_error(strintg, areas, exact):
    """exact(x, y) -> (forces (n x 8), deformations (n x 8)) at points x, y.
    Returns (E2, U2): squared energy norms of the true error and of the FE field."""
    E2 = U2 = 0.0
    for e, pts in strintg.items():
        w = areas[e] / len(pts)
        fh, dh = pts[:, 3:11], pts[:, 11:19]
        fx, dx = exact(pts[:, 0], pts[:, 1])
        E2 += w * float(np.sum((fx - fh) * (dx - dh)))
        U2 += w * float(np.sum(fh * dh))
    return E2, U2


def relative(E2, U2):
    return math.sqrt(E2 / (E2 + U2))


def effectivity(eta_est, E2, U2):
    """Effectivity of the error norm, ||e*|| / ||e||, with ||e*||^2 = eta^2 U2 / (1 - eta^2)
    recovered from the estimate's relative error against the same FE norm U2."""
    est2 = eta_est ** 2 * U2 / (1.0 - eta_est ** 2)
    return math.sqrt(est2 / E2)


# ---------------------------------------------------------------- exact solutions

def kirsch(x, y, a=1.0, s=1.0):
    """Stresses of an infinite plate with a hole of radius a under remote tension s along x."""
    r2 = x * x + y * y
    th = np.arctan2(y, x)
    c2, c4, s2, s4 = np.cos(2 * th), np.cos(4 * th), np.sin(2 * th), np.sin(4 * th)
    q, q2 = a * a / r2, (a * a / r2) ** 2
    sxx = s * (1 - q * (1.5 * c2 + c4) + 1.5 * q2 * c4)
    syy = s * (-q * (0.5 * c2 - c4) - 1.5 * q2 * c4)
    sxy = s * (-q * (0.5 * s2 + s4) + 1.5 * q2 * s4)
    return sxx, syy, sxy


def kirsch_exact(t, E, nu, a=1.0, s=1.0):
    def exact(x, y):
        sxx, syy, sxy = kirsch(x, y, a, s)
        n = len(x)
        f = np.zeros((n, 8))
        d = np.zeros((n, 8))
        f[:, 5], f[:, 6], f[:, 7] = t * sxx, t * syy, t * sxy
        d[:, 5] = (sxx - nu * syy) / E
        d[:, 6] = (syy - nu * sxx) / E
        d[:, 7] = 2 * (1 + nu) * sxy / E
        return f, d
    return exact


def navier_exact(q, D, nu, t, G, a=1.0, terms=99):
    """Simply supported square plate a x a under uniform load q (along +z), Navier series over
    odd m, n <= terms. Moments, shear forces, curvatures (kappa = -w'', kxy = -2 w,xy: the FE's
    d eps / dz) and transverse shear strains q / (G t), the shear model of CalculiX's expanded
    shells (stress constant through the thickness). With hard simple supports the plate's
    moments and shear forces with shear deformation are Kirchhoff's, so this is exact for them."""
    ms = np.arange(1, terms + 1, 2, dtype=float)
    M, N = np.meshgrid(ms, ms, indexing="ij")
    W = 16 * q / (math.pi ** 6 * D * M * N * (M ** 2 + N ** 2) ** 2 / a ** 4)
    am, an = M * math.pi / a, N * math.pi / a

    def exact(x, y):
        f = np.zeros((len(x), 8))
        d = np.zeros((len(x), 8))
        for k in range(0, len(x), 512):
            xs, ys = x[k:k + 512, None, None], y[k:k + 512, None, None]
            sx, cx = np.sin(am * xs), np.cos(am * xs)
            sy, cy = np.sin(an * ys), np.cos(an * ys)
            wxx = -np.sum(W * am ** 2 * sx * sy, axis=(1, 2))
            wyy = -np.sum(W * an ** 2 * sx * sy, axis=(1, 2))
            wxy = np.sum(W * am * an * cx * cy, axis=(1, 2))
            lap = am ** 2 + an ** 2
            qx = D * np.sum(W * lap * am * cx * sy, axis=(1, 2))
            qy = D * np.sum(W * lap * an * sx * cy, axis=(1, 2))
            kx, ky, kxy = -wxx, -wyy, -2 * wxy
            sl = slice(k, k + 512)
            f[sl, 0] = D * (kx + nu * ky)
            f[sl, 1] = D * (ky + nu * kx)
            f[sl, 2] = D * (1 - nu) / 2 * kxy
            f[sl, 3], f[sl, 4] = qx, qy
            d[sl, 0], d[sl, 1], d[sl, 2] = kx, ky, kxy
            d[sl, 3], d[sl, 4] = qx / (G * t), qy / (G * t)
        return f, d
    return exact


# ---------------------------------------------------------------- loads

def consistent_edge_loads(nodes, segments, traction, t, order=5):
    """Nodal forces {node: (fx, fy)} of a traction (x, y) -> (tx, ty) along 2-node segments,
    integrated against the linear shape functions with a Gauss rule, times the thickness t."""
    g, w = np.polynomial.legendre.leggauss(order)
    loads = {}
    for a, b in segments:
        pa, pb = np.array(nodes[a][:2]), np.array(nodes[b][:2])
        length = float(np.linalg.norm(pb - pa))
        for gi, wi in zip(g, w):
            s = 0.5 * (gi + 1)
            p = (1 - s) * pa + s * pb
            tx, ty = traction(p[0], p[1])
            for node, shape in ((a, 1 - s), (b, s)):
                fx, fy = loads.get(node, (0.0, 0.0))
                c = 0.5 * wi * length * t * shape
                loads[node] = (fx + c * tx, fy + c * ty)
    return loads


def save_json(path, data):
    Path(path).write_text(json.dumps(data, indent=1))


def load_json(path):
    return json.loads(Path(path).read_text())
