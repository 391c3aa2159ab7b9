#!/usr/bin/env python3
"""Writes the fuzz targets' seed inputs into fuzz/seeds/<target>/ from the examples, the test
data and a small valid model made here. The P.GAR seeds come from a real run of the command on
that model: pass the slabadapt program as the first argument.

    python3 fuzz/make_seeds.py build/dev/cli/slabadapt
"""
import math
import pathlib
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
SEEDS = ROOT / "fuzz" / "seeds"

# The small model of fuzz_support.h: two quadrilaterals and a triangle.
NODES = {1: (0, 0), 2: (1, 0), 3: (2, 0), 4: (0, 1), 5: (1, 1), 6: (2, 1), 7: (1, 2)}
ELEMENTS = {1: (1, 2, 5, 4), 2: (2, 3, 6, 5), 3: (4, 5, 7)}
MESH = (ROOT / "fuzz" / "fuzz_support.h").read_text().split('kSmallMesh = R"(')[1].split(')"')[0]
DATA = (ROOT / "fuzz" / "fuzz_support.h").read_text().split('kSmallData = R"(')[1].split(')"')[0]
COLUMNS = ["IGX", "IGY", "IGZ", "MX", "MY", "MXY", "QX", "QY", "NX", "NY", "NXY",
           "KX", "KY", "KXY", "GXZ", "GYZ", "EX", "EY", "GXY"]


def points(element):
    corners = [NODES[n] for n in ELEMENTS[element]]
    if len(corners) == 4:
        a = 1 / math.sqrt(3)
        out = []
        for xi, eta in [(-a, -a), (a, -a), (a, a), (-a, a)]:
            w = [(1 - xi) * (1 - eta) / 4, (1 + xi) * (1 - eta) / 4,
                 (1 + xi) * (1 + eta) / 4, (1 - xi) * (1 + eta) / 4]
            out.append(tuple(sum(wi * c[k] for wi, c in zip(w, corners)) for k in range(2)))
        return out
    return [tuple(sum(wi * c[k] for wi, c in zip(w, corners)) for k in range(2))
            for w in [(2 / 3, 1 / 6, 1 / 6), (1 / 6, 2 / 3, 1 / 6), (1 / 6, 1 / 6, 2 / 3)]]


def strintg(columns, line_end="\n"):
    lines = ["STRINTG  fuzz seed", "Internal forces and deformations at the integration points",
             " ELEMENT   POINT    " + "".join(f"{c:>15}" for c in columns), "-" * 80]
    for element in ELEMENTS:
        for p, (x, y) in enumerate(points(element), start=1):
            values = {"IGX": x, "IGY": y, "IGZ": 0.0}
            for k, c in enumerate(COLUMNS[3:]):
                values[c] = (k + 1) * (x + 2 * y + 0.5) * (1e-3 if c[0] in "KGE" else 1.0)
            lines.append(f"{element:8d}{p:8d}" + "".join(f"{values[c]:15.8E}" for c in columns))
    return line_end.join(lines) + line_end


def archive():
    """Items after the header: the target puts a header first; its first byte is the version."""
    def item(tag, payload):
        return bytes([tag]) + payload
    text = "slab".encode("utf-32-le")
    return [
        bytes([1]) + item(4, struct.pack("<i", 42)) + item(9, struct.pack("<d", 0.25)),
        bytes([2]) + item(0x0A, struct.pack("<I", 4) + text) + item(0x0C, struct.pack("<Q", 2)),
        bytes([3]) + item(0x0D, struct.pack("<I", 5) + b"bytes") + item(0x0D, struct.pack("<I", 2) + b"ab")
        + item(1, b"\x07") + item(2, struct.pack("<h", -3)) + item(6, struct.pack("<q", -9)),
        bytes([0]) + item(0x0B, bytes(range(16))) + item(5, struct.pack("<I", 7)),
    ]


def write(target, name, content):
    folder = SEEDS / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content if isinstance(content, bytes) else content.encode())


def main():
    write("strintg", "all-columns.txt", strintg(COLUMNS))
    write("strintg", "moments-crlf.txt", strintg(["IGX", "IGY", "IGZ", "MX", "MY", "MXY"], "\r\n"))
    floor = (ROOT / "examples/floor/floor.STRINTG0001").read_text().splitlines()[:16]
    write("strintg", "floor-head.txt", "\n".join(floor) + "\n")

    write("msh", "small22.msh", MESH)
    for name in ["shuffled22.msh", "shuffled41.msh"]:
        write("msh", name, (ROOT / "tests/data" / name).read_bytes())

    write("toml", "small.toml", DATA)
    for path in [ROOT / "tests/data/strip.toml", *sorted((ROOT / "examples").glob("*/*.toml"))]:
        write("toml", path.name, path.read_bytes())

    dat = (ROOT / "tests/cli/ccx/test_dat_file.cpp").read_text().split('kTwoTimes = R"(')[1]
    write("dat", "two-times.dat", dat.split(')"')[0])
    write("dat", "job.sta", " SUMMARY OF JOB INFORMATION\n STEP      INC     ATT    ITRS     TOT TIME"
          "     STEP TIME           INC TIME\n   1       1     1     2   0.1000000E+01   "
          "0.1000000E+01   0.1000000E+01\n")

    for k, content in enumerate(archive(), start=1):
        write("archive", f"items{k}.bin", content)

    if len(sys.argv) > 1:
        with tempfile.TemporaryDirectory() as scratch:
            project = pathlib.Path(scratch) / "P"
            project.with_suffix(".msh").write_text(MESH)
            project.with_suffix(".toml").write_text(DATA)
            pathlib.Path(str(project) + ".STRINTG0001").write_text(strintg(COLUMNS))
            subprocess.run([sys.argv[1], "run", str(project), "--target", "0.05",
                            "--load-case", "1"], check=True, stdout=subprocess.DEVNULL)
            write("gar", "run.gar", pathlib.Path(str(project) + ".GAR").read_bytes())


if __name__ == "__main__":
    main()
