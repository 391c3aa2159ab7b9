#!/usr/bin/env python3
"""The adaptive analysis report in a real browser: `slabadapt adapt` runs the cantilever strip
of tests/data with the real Gmsh and CalculiX, then headless Chromium (Debian's chromium) opens
P.adapt/report.html from disk. The page must parse with its inline SVGs as SVG elements (the
convergence plot and the first and final meshes), the browser must report no error of the page
(no console error, no resource it failed to load) and the PNG it renders must show the coloured
meshes and the blue convergence line.

Usage: test_report_browser.py SLABADAPT SOURCE_DIR [CHROMIUM]
"""

import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from PIL import Image

BROWSER_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--hide-scrollbars"]


def fail(message):
    print("FAILED: " + message)
    sys.exit(1)


def browser(chromium, profile, page, *extra):
    command = [chromium, *BROWSER_FLAGS, f"--user-data-dir={profile}", "--enable-logging=stderr",
               "--v=0", *extra, page.as_uri()]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120)
    if done.returncode != 0:
        fail(f"{' '.join(command)} ended with {done.returncode}:\n{done.stderr}")
    return done


def page_errors(log):
    """Lines of the browser's log about the page itself (its console, its resources)."""
    bad = []
    for line in log.splitlines():
        if "CONSOLE" in line and re.search(r"error|uncaught", line, re.I):
            bad.append(line)
        elif "net::ERR" in line or "Failed to load resource" in line or "Not allowed to load" in line:
            bad.append(line)
    return bad


def main():
    slabadapt, source = Path(sys.argv[1]), Path(sys.argv[2])
    chromium = sys.argv[3] if len(sys.argv) > 3 else shutil.which("chromium")
    if not chromium:
        fail("chromium is not installed (Debian package chromium; scripts/install-deps.sh)")
    with tempfile.TemporaryDirectory(prefix="slabadapt-browser-") as tmp:
        work = Path(tmp)
        for suffix in (".geo", ".toml"):
            shutil.copy(source / "tests" / "data" / f"strip{suffix}", work / f"strip{suffix}")
        run = subprocess.run([str(slabadapt), "adapt", "strip", "--target", "0.1", "--load-case",
                              "1", "--h0", "0.5"], cwd=work, capture_output=True, text=True,
                             timeout=300)
        if run.returncode != 0:
            fail(f"slabadapt adapt ended with {run.returncode}:\n{run.stdout}{run.stderr}")
        page = work / "strip.adapt" / "report.html"
        cycles = len((work / "strip.adapt" / "history.csv").read_text().splitlines()) - 1

        dom = browser(chromium, work / "profile1", page, "--dump-dom")
        for element in ['<svg id="convergence"', '<svg id="mesh-cycle-1"',
                        f'<svg id="mesh-cycle-{cycles}"', '<svg id="legend"',
                        '<table id="cycles">']:
            if element not in dom.stdout:
                fail(f"the browser's document has no {element}:\n{dom.stdout[:2000]}")
        if dom.stdout.count("<polygon") < 50:
            fail("the meshes have fewer than 50 elements in the browser's document")
        errors = page_errors(dom.stderr)
        if errors:
            fail("the browser reported errors of the page:\n" + "\n".join(errors))

        png = work / "report.png"
        shot = browser(chromium, work / "profile2", page, f"--screenshot={png}",
                       "--window-size=1200,2400")
        errors = page_errors(shot.stderr)
        if errors:
            fail("the browser reported errors of the page:\n" + "\n".join(errors))
        image = Image.open(png).convert("RGB")
        if image.size != (1200, 2400):
            fail(f"the screenshot is {image.size}, not 1200 x 2400")
        pixels = list(image.getdata())
        coloured = sum(1 for r, g, b in pixels if max(r, g, b) - min(r, g, b) > 60)
        line_blue = sum(1 for r, g, b in pixels if abs(r - 0x1f) < 20 and abs(g - 0x4e) < 20
                        and abs(b - 0x9c) < 20)
        if coloured < 20000:
            fail(f"only {coloured} coloured pixels: the meshes were not drawn")
        if line_blue < 100:
            fail(f"only {line_blue} pixels of the convergence line's blue")
        print(f"report of {cycles} cycles rendered: {coloured} coloured pixels, "
              f"{line_blue} of the convergence line")


if __name__ == "__main__":
    main()
