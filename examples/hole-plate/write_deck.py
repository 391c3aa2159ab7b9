#!/usr/bin/env python3
"""Writes the CalculiX deck P.inp of the hole plate for the mesh in P.msh (MSH 2.2) and its
exported part P_mesh.inp: material, section, symmetry supports and the exact (Kirsch)
tractions of the outer edges as consistent nodal forces, with *EL PRINT of S, E and COORD.

Usage: write_deck.py P
"""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "validation"))

import holeplate  # noqa: E402
import slabval as sv  # noqa: E402


def main():
    project = Path(sys.argv[1])
    part = project.with_name(project.name + "_mesh.inp")
    part_nodes, _ = sv.read_inp_part(part)
    loads = holeplate.traction_loads(project.with_name(project.name + ".msh"), part_nodes)
    project.with_name(project.name + ".inp").write_text(holeplate.deck(part.name, loads))


if __name__ == "__main__":
    main()
