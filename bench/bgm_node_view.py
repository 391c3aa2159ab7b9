#!/usr/bin/env python3
"""Does Gmsh's -bgm take a node-based view (the mesh with a $NodeData section) as it takes the
list-based P.refine.pos, with the same remeshed sizes? Runs `slabadapt run` on a copy of the
floor example, writes the same nodal sizes as a $NodeData view over floor.msh, remeshes
floor.geo with each, and compares the two meshes and the two files.

    python3 bench/bgm_node_view.py [--slabadapt build/release/cli/slabadapt]"""
import argparse
import pathlib
import re
import shutil
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent


def msh_nodes_41(text):
    lines = text.split("\n")
    i = lines.index("$Nodes")
    blocks = int(lines[i + 1].split()[0])
    j = i + 2
    tags, coords = [], []
    for _ in range(blocks):
        n = int(lines[j].split()[3])
        j += 1
        tags += [int(lines[j + k]) for k in range(n)]
        j += n
        coords += [tuple(map(float, lines[j + k].split()[:3])) for k in range(n)]
        j += n
    return tags, coords


def elements(text):
    lines = text.split("\n")
    return int(lines[lines.index("$Elements") + 1].split()[1])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--slabadapt", default=str(ROOT / "build/release/cli/slabadapt"))
    args = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        d = pathlib.Path(folder)
        for suffix in [".geo", ".msh", ".toml", ".STRINTG0001"]:
            shutil.copy(ROOT / "examples/floor" / f"floor{suffix}", d)
        subprocess.run([args.slabadapt, "run", str(d / "floor"), "--target", "0.05",
                        "--load-case", "101"], check=True, stdout=subprocess.DEVNULL)
        pos = (d / "floor.refine.pos").read_text()
        size = {}
        for m in re.finditer(r"S[TQ]\(([^)]*)\)\{([^}]*)\}", pos):
            c = [float(v) for v in m.group(1).split(",")]
            v = [float(x) for x in m.group(2).split(",")]
            for k, value in enumerate(v):
                size[tuple(round(x, 9) for x in c[3 * k:3 * k + 3])] = value
        mesh = (d / "floor.msh").read_text()
        tags, coords = msh_nodes_41(mesh)
        data = [f"{t} {size[tuple(round(x, 9) for x in c)]!r}" for t, c in zip(tags, coords)]
        view = ["$NodeData", "1", '"refinement"', "1", "0.0", "3", "0", "1", str(len(data))]
        (d / "bgm.msh").write_text(mesh.rstrip("\n") + "\n" + "\n".join(view + data) +
                                   "\n$EndNodeData\n")
        out = {}
        for name, field in [("list-based .pos", "floor.refine.pos"), ("$NodeData .msh", "bgm.msh")]:
            start = time.perf_counter()
            subprocess.run(["gmsh", str(d / "floor.geo"), "-2", "-bgm", str(d / field), "-o",
                            str(d / f"{field}.out.msh")], check=True, stdout=subprocess.DEVNULL)
            seconds = time.perf_counter() - start
            text = (d / f"{field}.out.msh").read_text()
            out[name] = (elements(text), msh_nodes_41(text)[1], (d / field).stat().st_size, seconds)
        (e1, n1, b1, s1), (e2, n2, b2, s2) = out.values()
        worst = max(max(abs(a - b) for a, b in zip(p, q)) for p, q in zip(n1, n2)) \
            if len(n1) == len(n2) else float("nan")
        for name, (e, n, b, s) in out.items():
            print(f"{name}: {b} bytes, remeshed in {s:.2f} s: {e} elements, {len(n)} nodes")
        print(f"same element count: {e1 == e2}; largest difference of a node coordinate: {worst:.3g}")


if __name__ == "__main__":
    main()
