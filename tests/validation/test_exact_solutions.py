#!/usr/bin/env python3
"""The validation's exact solutions and loads against known values: Kirsch's stresses are
free of traction on the hole and tend to the remote tension; Navier's series gives the
tabulated centre moment and edge shear of a simply supported square plate; consistent edge
loads add up to the traction's resultant."""

import math
import sys
import unittest
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "validation"))

import slabval as sv  # noqa: E402


class ExactSolutions(unittest.TestCase):
    def test_kirsch_hole_is_traction_free_and_far_field_is_the_tension(self):
        th = np.linspace(0, math.pi / 2, 7)
        x, y = np.cos(th), np.sin(th)
        sxx, syy, sxy = sv.kirsch(x, y)
        # Traction on the hole: sigma . n with n = (x, y) on the unit circle.
        np.testing.assert_allclose(sxx * x + sxy * y, 0, atol=1e-12)
        np.testing.assert_allclose(sxy * x + syy * y, 0, atol=1e-12)
        # Concentration factor 3 at the top of the hole.
        self.assertAlmostEqual(float(sv.kirsch(np.array([0.0]), np.array([1.0]))[0][0]), 3.0, 12)
        far = sv.kirsch(np.array([1e4]), np.array([2e4]))
        np.testing.assert_allclose([far[0][0], far[1][0], far[2][0]], [1, 0, 0], atol=1e-7)

    def test_navier_centre_moment_and_edge_shear(self):
        q, D, nu = 1.0, 1.0, 0.3
        exact = sv.navier_exact(q, D, nu, t=0.1, G=1.0, terms=199)
        f, d = exact(np.array([0.5, 0.0]), np.array([0.5, 0.5]))
        self.assertAlmostEqual(f[0, 0] / q, 0.0479, 4)   # mx at the centre
        self.assertAlmostEqual(f[0, 1] / q, 0.0479, 4)
        self.assertAlmostEqual(abs(f[1, 3]) / q, 0.338, 2)  # qx at the middle of an edge
        # Constitutive relation and twist: m = D (k + nu k'), mxy = D (1 - nu) / 2 kxy.
        self.assertAlmostEqual(f[0, 0], D * (d[0, 0] + nu * d[0, 1]), 12)

    def test_consistent_edge_loads_sum_to_the_resultant(self):
        nodes = {1: (0.0, 0.0, 0.0), 2: (0.3, 0.0, 0.0), 3: (1.0, 0.0, 0.0)}
        loads = sv.consistent_edge_loads(nodes, [(1, 2), (2, 3)], lambda x, y: (x * x, 2.0), t=0.5)
        self.assertAlmostEqual(sum(v[0] for v in loads.values()), 0.5 / 3, 12)
        self.assertAlmostEqual(sum(v[1] for v in loads.values()), 1.0, 12)

    def test_true_error_is_zero_for_the_exact_field(self):
        exact = sv.kirsch_exact(1.0, 1000.0, 0.3)
        x, y = np.array([1.5, 2.0, 3.0]), np.array([0.5, 1.0, 2.0])
        f, d = exact(x, y)
        pts = np.hstack([np.column_stack([x, y, np.zeros(3)]), f, d])
        E2, U2 = sv.true_error({1: pts}, {1: 0.3}, exact)
        self.assertEqual(E2, 0.0)
        self.assertGreater(U2, 0.0)


if __name__ == "__main__":
    unittest.main()
