#!/usr/bin/env python3
"""The whole pass, as a user runs it: generates a flat slab of n x n quadrilaterals with one
load case (P.msh, P.toml, P.STRINTG0001), then times, in one run and on the same files,
`wc -l` of the STRINTG file, `slabadapt check`, `slabadapt run` and `slabadapt run --no-check`,
each with its wall time and peak memory (GNU time), and prints a table with the ratios to
`wc -l`.

    python3 bench/whole_pass.py [--sizes 100,316,1000] [--slabadapt build/release/cli/slabadapt]
                                [--dir /tmp/slabadapt-whole-pass] [--repeat 3]

The models are kept in --dir between runs (made again only when missing)."""
import argparse
import datetime
import math
import os
import pathlib
import platform
import subprocess
import sys
import time

COLUMNS = ["IGX", "IGY", "IGZ", "MX", "MY", "MXY", "QX", "QY", "NX", "NY", "NXY",
           "KX", "KY", "KXY", "GXZ", "GYZ", "EX", "EY", "GXY"]


def generate(folder, n):
    folder.mkdir(parents=True, exist_ok=True)
    project = folder / "slab"
    done = folder / "complete"
    if done.exists():
        return project
    h = 10.0 / n
    with open(f"{project}.msh", "w") as f:
        nodes = (n + 1) * (n + 1)
        f.write("$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$PhysicalNames\n1\n2 1 \"slab\"\n"
                "$EndPhysicalNames\n$Entities\n0 0 1 0\n1 0 0 0 10 10 0 1 1 0\n$EndEntities\n")
        f.write(f"$Nodes\n1 {nodes} 1 {nodes}\n2 1 0 {nodes}\n")
        f.write("".join(f"{i}\n" for i in range(1, nodes + 1)))
        f.write("".join(f"{h * i:.12g} {h * j:.12g} 0\n" for j in range(n + 1) for i in range(n + 1)))
        f.write(f"$EndNodes\n$Elements\n1 {n * n} 1 {n * n}\n2 1 3 {n * n}\n")
        rows = []
        for j in range(n):
            for i in range(n):
                a = j * (n + 1) + i + 1
                rows.append(f"{j * n + i + 1} {a} {a + 1} {a + n + 2} {a + n + 1}\n")
        f.write("".join(rows))
        f.write("$EndElements\n")
    pathlib.Path(f"{project}.toml").write_text(
        'title = "whole-pass benchmark"\n[[slab]]\ntag = 1\nname = "slab"\nthickness = 0.2\n'
        "young = 3.0e10\npoisson = 0.2\n[[load_case]]\nid = 1\nindex = 1\nname = \"one\"\n")
    g = 1 / math.sqrt(3)
    with open(f"{project}.STRINTG0001", "w") as f:
        f.write("STRINTG  whole-pass benchmark\nforces and deformations\n ELEMENT   POINT    "
                + "".join(f"{c:>15}" for c in COLUMNS) + "\n" + "-" * 80 + "\n")
        for j in range(n):
            lines = []
            for i in range(n):
                e = j * n + i + 1
                for p, (xi, eta) in enumerate([(-g, -g), (g, -g), (g, g), (-g, g)], start=1):
                    x = h * (i + 0.5 + 0.5 * xi)
                    y = h * (j + 0.5 + 0.5 * eta)
                    m = math.sin(0.3 * x) * math.cos(0.2 * y)
                    values = [x, y, 0.0] + [m * (k + 1) for k in range(8)] + \
                             [1e-4 * m * (k + 1) for k in range(8)]
                    lines.append(f"{e:8d}{p:8d}" + "".join(f"{v:15.8E}" for v in values) + "\n")
            f.write("".join(lines))
    done.write_text("")
    return project


def timed(command, repeat):
    """Wall seconds, the best of `repeat` runs (this machine is shared, and its speed varies by
    some ten per cent from one run to the next), and the peak resident memory (MB, by GNU time)
    of that run."""
    best = None
    for _ in range(repeat):
        start = time.perf_counter()
        out = subprocess.run(["/usr/bin/time", "-f", "%M"] + command,
                             stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        wall = time.perf_counter() - start
        peak = int(out.stderr.strip().splitlines()[-1]) / 1024.0
        if best is None or wall < best[0]:
            best = (wall, peak, out.returncode)
    return best


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--sizes", default="100,316,1000")
    parser.add_argument("--slabadapt", default="build/release/cli/slabadapt")
    parser.add_argument("--dir", default="/tmp/slabadapt-whole-pass")
    parser.add_argument("--repeat", type=int, default=3,
                        help="runs of each command, of which the fastest counts (default 3)")
    args = parser.parse_args()
    slabadapt = str(pathlib.Path(args.slabadapt).resolve())
    print(f"# {datetime.date.today()} {platform.machine()}, {os.cpu_count()} cores, "
          f"{slabadapt}")
    print("| elements | STRINTG MB | wc -l s | check s (MB) | run s (MB) | run --no-check s (MB) "
          "| run : wc -l |")
    print("|---:|---:|---:|---:|---:|---:|---:|")
    for n in [int(s) for s in args.sizes.split(",")]:
        project = generate(pathlib.Path(args.dir) / f"n{n}", n)
        strintg = f"{project}.STRINTG0001"
        subprocess.run(["cat", strintg], stdout=subprocess.DEVNULL)  # into the page cache
        repeat = max(1, args.repeat)
        wc, _, _ = timed(["wc", "-l", strintg], repeat)
        check = timed([slabadapt, "check", str(project), "--load-case", "1"], repeat)
        run = timed([slabadapt, "run", str(project), "--target", "0.05", "--load-case", "1"],
                    repeat)
        fast = timed([slabadapt, "run", str(project), "--target", "0.05", "--load-case", "1",
                      "--no-check"], repeat)
        for name, (_, _, code) in [("check", check), ("run", run), ("run --no-check", fast)]:
            if code != 0:
                sys.exit(f"{name} on {project} ended with {code}")
        size = os.path.getsize(strintg) / 1e6
        print(f"| {n * n} | {size:.0f} | {wc:.3f} | {check[0]:.2f} ({check[1]:.0f}) | "
              f"{run[0]:.2f} ({run[1]:.0f}) | {fast[0]:.2f} ({fast[1]:.0f}) | "
              f"{run[0] / wc:.0f} |", flush=True)


if __name__ == "__main__":
    main()
