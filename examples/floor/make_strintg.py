#!/usr/bin/env python3
"""Writes the STRINTG files (integration-point internal forces and deformations) of a project.

    python3 make_strintg.py examples/floor/floor              the example's two load cases
    python3 make_strintg.py P --field linear                  fields linear in position

P is the project path without extension: the mesh is read from P.msh (Gmsh MSH 4.1 or 2.2,
3-node triangles and 4-node quadrilaterals), slab thicknesses and load cases from P.toml, and
one file P.STRINTG<index> is written per load case (index in four digits).

Numbering follows the project's rules: slabs in ascending physical tag, elements slab by slab
and within a slab in ascending Gmsh element tag, all counted from 1.

Integration points: a triangle has three, at the area coordinates (1/6, 1/6, 2/3),
(2/3, 1/6, 1/6) and (1/6, 2/3, 1/6) of its corners; a quadrilateral has four, at
(xi, eta) = (-a, -a), (a, -a), (a, a), (-a, a), a = 1/sqrt(3), with the first corner at
(-1, -1). So the points follow the corners round the element, as the estimator expects.

Fields ("example"): smooth but not linear internal forces of a floor with an opening, the wall
below it and a balcony, with peaks at the re-entrant corners, sampled the way low-order shell
elements report them: a triangle holds the value at its centroid at all three points
(constant strain), a quadrilateral the field linearised about its centre. Deformations come
from the forces through an isotropic plate and membrane law (E, nu, the slab's thickness), so
that every deformation times its force is a positive energy density.

Fields ("linear"): every force is a + b x + c y + d z of the point's position, exactly; the
deformations follow through the same law. The estimator must recover these without error.
"""

import argparse
import math
import sys
import tomllib

YOUNG = 3.2e7  # kN/m2
POISSON = 0.2
QUAD_A = 1.0 / math.sqrt(3.0)
TRI_POINTS = [(1 / 6, 1 / 6, 2 / 3), (2 / 3, 1 / 6, 1 / 6), (1 / 6, 2 / 3, 1 / 6)]
QUAD_POINTS = [(-QUAD_A, -QUAD_A), (QUAD_A, -QUAD_A), (QUAD_A, QUAD_A), (-QUAD_A, QUAD_A)]
COLUMNS = ["IGX", "IGY", "IGZ", "MX", "MY", "MXY", "QX", "QY", "NX", "NY", "NXY",
           "KX", "KY", "KXY", "GXZ", "GYZ", "EX", "EY", "GXY"]


# --------------------------------------------------------------------------------------------
# Mesh
# --------------------------------------------------------------------------------------------

def read_msh(path):
    """Returns (nodes {tag: (x, y, z)}, elements [(physical tag, element tag, [node tags])])."""
    with open(path, encoding="utf-8") as f:
        lines = [line.strip() for line in f]
    sections = {}
    i = 0
    while i < len(lines):
        if lines[i].startswith("$") and not lines[i].startswith("$End"):
            name = lines[i][1:]
            end = lines.index("$End" + name, i)
            sections[name] = lines[i + 1:end]
            i = end
        i += 1
    version = sections["MeshFormat"][0].split()[0]
    if version.startswith("4"):
        return read_msh4(sections)
    if version.startswith("2"):
        return read_msh2(sections)
    sys.exit(f"{path}: MSH version {version} is not supported (4.1 or 2.2)")


def read_msh4(sections):
    ent = sections["Entities"]
    n_points, n_curves, n_surfaces, _ = (int(v) for v in ent[0].split())
    surface_physical = {}
    for line in ent[1 + n_points + n_curves:1 + n_points + n_curves + n_surfaces]:
        v = line.split()
        n_phys = int(v[7])
        if n_phys > 0:
            surface_physical[int(v[0])] = int(v[8])
    nodes = {}
    data = sections["Nodes"]
    blocks = int(data[0].split()[0])
    k = 1
    for _ in range(blocks):
        count = int(data[k].split()[3])
        tags = [int(data[k + 1 + j]) for j in range(count)]
        for j, tag in enumerate(tags):
            nodes[tag] = tuple(float(c) for c in data[k + 1 + count + j].split()[:3])
        k += 1 + 2 * count
    elements = []
    data = sections["Elements"]
    blocks = int(data[0].split()[0])
    k = 1
    for _ in range(blocks):
        dim, entity, etype, count = (int(v) for v in data[k].split())
        for j in range(count):
            v = [int(t) for t in data[k + 1 + j].split()]
            if dim == 2 and etype in (2, 3) and entity in surface_physical:
                elements.append((surface_physical[entity], v[0], v[1:]))
        k += 1 + count
    return nodes, elements


def read_msh2(sections):
    nodes = {}
    for line in sections["Nodes"][1:]:
        v = line.split()
        nodes[int(v[0])] = tuple(float(c) for c in v[1:4])
    elements = []
    for line in sections["Elements"][1:]:
        v = [int(t) for t in line.split()]
        tag, etype, ntags = v[0], v[1], v[2]
        if etype in (2, 3) and ntags > 0:
            elements.append((v[3], tag, v[3 + ntags:]))
    return nodes, elements


def numbered_elements(elements):
    """Elements in project order: by physical tag, then by element tag."""
    return sorted(elements, key=lambda e: (e[0], e[1]))


# --------------------------------------------------------------------------------------------
# Geometry helpers
# --------------------------------------------------------------------------------------------

def combine(weights, points):
    return tuple(sum(w * p[c] for w, p in zip(weights, points)) for c in range(3))


def quad_weights(xi, eta):
    return [0.25 * (1 - xi) * (1 - eta), 0.25 * (1 + xi) * (1 - eta),
            0.25 * (1 + xi) * (1 + eta), 0.25 * (1 - xi) * (1 + eta)]


def integration_points(corners):
    if len(corners) == 3:
        return [combine(w, corners) for w in TRI_POINTS]
    return [combine(quad_weights(xi, eta), corners) for xi, eta in QUAD_POINTS]


# --------------------------------------------------------------------------------------------
# Material law: forces -> deformations
# --------------------------------------------------------------------------------------------

def deformations(forces, thickness):
    mx, my, mxy, qx, qy, nx, ny, nxy = forces
    shear_modulus = YOUNG / (2 * (1 + POISSON))
    bending = YOUNG * thickness ** 3 / (12 * (1 - POISSON ** 2))
    membrane = YOUNG * thickness / (1 - POISSON ** 2)
    transverse = 5 / 6 * shear_modulus * thickness

    def inverse(a, b, c, stiffness):
        # [1 nu 0; nu 1 0; 0 0 (1-nu)/2] * stiffness, inverted
        d = stiffness * (1 - POISSON ** 2)
        return ((a - POISSON * b) / d, (b - POISSON * a) / d,
                c / (stiffness * (1 - POISSON) / 2))

    kx, ky, kxy = inverse(mx, my, mxy, bending)
    ex, ey, gxy = inverse(nx, ny, nxy, membrane)
    return (kx, ky, kxy, qx / transverse, qy / transverse, ex, ey, gxy)


# --------------------------------------------------------------------------------------------
# Fields of the example
# --------------------------------------------------------------------------------------------

def peak(u, v, centres, height, radius):
    return sum(height * math.exp(-((u - cu) ** 2 + (v - cv) ** 2) / radius ** 2)
               for cu, cv in centres)


OPENING = [(6.0, 4.5), (8.0, 4.5), (8.0, 6.5), (6.0, 6.5)]
WINDOW = [(1.5, 1.0), (3.5, 1.0), (3.5, 2.2), (1.5, 2.2)]
BALCONY_ROOT = [(3.0, 0.0), (7.0, 0.0)]


def floor_moments(u, v, case):
    s = math.sin(math.pi * u / 10) * math.sin(math.pi * v / 8)
    c = math.cos(math.pi * u / 10) * math.cos(math.pi * v / 8)
    corner = peak(u, v, OPENING, 1.0, 0.6)
    if case == 1:
        return (28 * s - 22 * corner, 36 * s - 18 * corner, -12 * c + 6 * corner)
    patch = peak(u, v, [(2.5, 5.5)], 1.0, 1.5)
    return (10 * s + 35 * patch - 9 * corner, 12 * s + 28 * patch - 7 * corner,
            -4 * c + 3 * corner)


def floor_membrane(u, v, case):
    s = math.sin(math.pi * u / 10) * math.sin(math.pi * v / 16)
    f = 1.0 if case == 1 else 0.35
    return (-40 * f * s, -25 * f * s * (1 - v / 8), 8 * f * math.cos(math.pi * u / 10))


def wall_moments(u, v, case):
    f = 1.0 if case == 1 else 0.6
    return (2 * f * math.sin(math.pi * u / 10) * v / 3, 4 * f * (v / 3) ** 2,
            0.5 * f * math.cos(math.pi * u / 10) * v / 3)


def wall_membrane(u, v, case):
    corner = peak(u, v, WINDOW, 1.0, 0.4)
    if case == 1:
        return (15 * math.sin(math.pi * u / 10) * (v / 3 - 0.5) + 30 * corner,
                -(120 + 25 * (3 - v)) - 80 * corner,
                30 * math.cos(math.pi * u / 10) * (v / 3) * (1 - v / 3) + 20 * corner)
    balcony = math.exp(-((u - 5) / 2) ** 2)
    return (5 * math.sin(math.pi * u / 10) * (v / 3 - 0.5) + 10 * corner,
            -60 * balcony * (0.4 + v / 5) - 35 * corner - 30,
            18 * math.sin(math.pi * (u - 5) / 10) * (v / 3) * (1 - v / 3) + 8 * corner)


def balcony_moments(u, v, case):
    arm = v + 1.5  # distance from the free edge
    side = math.sin(math.pi * (u - 3) / 4)
    corner = peak(u, v, BALCONY_ROOT, 1.0, 0.3)
    if case == 1:
        my = -6.5 * arm ** 2 / 2 - 10 * corner
    else:
        my = -10 * arm - 4 * arm ** 2 / 2 - 14 * corner
    return (POISSON * my + 0.5 * side, my, 0.8 * side * arm / 1.5 + 3 * corner)


def balcony_membrane(u, v, case):
    f = 1.0 if case == 1 else 1.4
    return (2 * f * (v + 1.5), -3 * f * math.sin(math.pi * (u - 3) / 4), 0.5 * f)


SLAB_FIELDS = {
    1: (lambda x, y, z: (x, y), floor_moments, floor_membrane),
    2: (lambda x, y, z: (x, z), wall_moments, wall_membrane),
    3: (lambda x, y, z: (x, y), balcony_moments, balcony_membrane),
}


def example_forces(slab_tag, case):
    local, moments, membrane = SLAB_FIELDS[slab_tag]

    def forces(u, v):
        h = 1e-4
        m = moments(u, v, case)
        # Transverse shear from the equilibrium of the moments.
        dm_du = [(a - b) / (2 * h) for a, b in zip(moments(u + h, v, case), moments(u - h, v, case))]
        dm_dv = [(a - b) / (2 * h) for a, b in zip(moments(u, v + h, case), moments(u, v - h, case))]
        qx = dm_du[0] + dm_dv[2]
        qy = dm_du[2] + dm_dv[1]
        return m + (qx, qy) + membrane(u, v, case)

    return local, forces


def element_values(corners, local, forces):
    """The forces at each integration point as a low-order element reports them."""
    points = integration_points(corners)
    centre = tuple(sum(p[c] for p in corners) / len(corners) for c in range(3))
    uc, vc = local(*centre)
    if len(corners) == 3:
        value = forces(uc, vc)
        return points, [value] * 3
    h = 1e-4
    f0 = forces(uc, vc)
    du = [(a - b) / (2 * h) for a, b in zip(forces(uc + h, vc), forces(uc - h, vc))]
    dv = [(a - b) / (2 * h) for a, b in zip(forces(uc, vc + h), forces(uc, vc - h))]
    values = []
    for p in points:
        u, v = local(*p)
        values.append(tuple(f + g * (u - uc) + k * (v - vc) for f, g, k in zip(f0, du, dv)))
    return points, values


# --------------------------------------------------------------------------------------------
# Linear fields
# --------------------------------------------------------------------------------------------

def linear_forces(case, point):
    x, y, z = point
    s = float(case)
    return tuple((j + 1) * 10 * s + (j + 2) * s * x - (j % 3 + 1) * 0.7 * y + (j % 2) * 1.3 * z
                 for j in range(8))


# --------------------------------------------------------------------------------------------
# Output
# --------------------------------------------------------------------------------------------

def field(value):
    text = f"{value:15.8E}"
    if len(text) != 15:
        raise ValueError(f"value {value} does not fit a 15-character field")
    return text


def write_strintg(path, title, rows):
    with open(path, "w", encoding="ascii", newline="\n") as f:
        f.write(f"STRINTG  {title}\n")
        f.write("Internal forces and deformations at the integration points "
                "(kN, m; per unit width)\n")
        f.write(f"{'ELEMENT':>8}{'POINT':>8}    " + "".join(f"{c:>15}" for c in COLUMNS) + "\n")
        f.write("-" * (20 + 15 * len(COLUMNS)) + "\n")
        for element, point, xyz, forces, defs in rows:
            f.write(f"{element:8d}{point:8d}" + "".join(field(v) for v in (*xyz, *forces, *defs))
                    + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("project", help="project path without extension")
    parser.add_argument("--field", choices=["example", "linear"], default="example")
    args = parser.parse_args()

    with open(args.project + ".toml", "rb") as f:
        config = tomllib.load(f)
    thickness = {s["tag"]: float(s["thickness"]) for s in config["slab"]}
    nodes, elements = read_msh(args.project + ".msh")
    ordered = numbered_elements(elements)

    for case in config["load_case"]:
        index = int(case["index"])
        rows = []
        for number, (slab_tag, _, tags) in enumerate(ordered, start=1):
            corners = [nodes[t] for t in tags]
            t = thickness[slab_tag]
            if args.field == "linear":
                points = integration_points(corners)
                values = [linear_forces(index, p) for p in points]
            else:
                local, forces = example_forces(slab_tag, index)
                points, values = element_values(corners, local, forces)
            for j, (p, v) in enumerate(zip(points, values), start=1):
                rows.append((number, j, p, v, deformations(v, t)))
        name = f"{args.project}.STRINTG{index:04d}"
        title = f"{config.get('title', '')} - load case {case['id']} {case.get('name', '')}".strip()
        write_strintg(name, title, rows)
        print(f"{name}: {len(ordered)} elements, {len(rows)} points")


if __name__ == "__main__":
    main()
