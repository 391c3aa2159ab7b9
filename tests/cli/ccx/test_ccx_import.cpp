// The importer on small runs of the real CalculiX: numbering, point order, and values against
// hand computations, for plane-stress (CPS3/CPS4) and shell (S3/S4) elements.

#include "cli/ccx/CcxImport.h"
#include "cli/ccx/InpWriter.h"
#include "tests/support/ccx.h"

#include <array>
#include <cmath>
#include <sstream>
#include <vector>

using namespace slabadapt::ccx;
using ccxtest::Close;
using ccxtest::TempDir;

namespace {

const double kA = 1.0 / std::sqrt(3.0);

struct Elem {
    long tag;
    int physical;
    std::vector<long> nodes; // Gmsh node tags
};

/// A project P = dir/name: P.msh (MSH 2.2, node tag i+1 at xy[i]) and P.toml.
void WriteProject(const TempDir& dir, const std::string& name,
                  const std::vector<std::array<double, 2>>& xy, const std::vector<Elem>& elems,
                  const std::string& toml,
                  const std::vector<std::pair<std::string, std::vector<long>>>& curves = {}) {
    std::ostringstream m;
    m << "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n$PhysicalNames\n" << curves.size() << '\n';
    for (std::size_t c = 0; c < curves.size(); ++c)
        m << "1 " << 100 + c << " \"" << curves[c].first << "\"\n";
    m << "$EndPhysicalNames\n$Nodes\n" << xy.size() << '\n';
    for (std::size_t i = 0; i < xy.size(); ++i)
        m << i + 1 << ' ' << xy[i][0] << ' ' << xy[i][1] << " 0\n";
    std::size_t lines = 0;
    for (const auto& c : curves)
        lines += c.second.size() - 1;
    m << "$EndNodes\n$Elements\n" << elems.size() + lines << '\n';
    for (const auto& e : elems) {
        m << e.tag << ' ' << (e.nodes.size() == 3 ? 2 : 3) << " 2 " << e.physical << " 1";
        for (long n : e.nodes)
            m << ' ' << n;
        m << '\n';
    }
    long tag = 10000;
    for (std::size_t c = 0; c < curves.size(); ++c)
        for (std::size_t k = 0; k + 1 < curves[c].second.size(); ++k)
            m << ++tag << " 1 2 " << 100 + c << " 9 " << curves[c].second[k] << ' '
              << curves[c].second[k + 1] << '\n';
    m << "$EndElements\n";
    ccxtest::WriteText(dir / (name + ".msh"), m.str());
    ccxtest::WriteText(dir / (name + ".toml"), toml);
}

std::string Deck(const std::string& part, const std::string& section, double young, double nu,
                 const std::string& boundary, const std::vector<std::string>& stepLoads) {
    std::ostringstream d;
    d << "*INCLUDE, INPUT=" << part << "\n*MATERIAL, NAME=M\n*ELASTIC\n"
      << young << ", " << nu << '\n'
      << section << "\n*BOUNDARY\n"
      << boundary;
    for (const auto& loads : stepLoads)
        d << "*STEP\n*STATIC\n" << loads << "*EL PRINT, ELSET=EALL\nS, E, COORD\n*END STEP\n";
    return d.str();
}

std::string Toml(double thickness, int slabs = 1, int cases = 1) {
    std::ostringstream t;
    for (int s = 1; s <= slabs; ++s)
        t << "[[slab]]\ntag = " << s << "\nthickness = " << thickness << '\n';
    for (int c = 1; c <= cases; ++c)
        t << "[[load_case]]\nid = " << 100 + c << "\nindex = " << c << '\n';
    return t.str();
}

/// Position of module point p of a quadrilateral with corners c (module order, bilinear map).
std::array<double, 2> QuadPoint(const std::array<std::array<double, 2>, 4>& c, int p) {
    static const double xi[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
    const double s = xi[p][0] * kA, r = xi[p][1] * kA;
    const double N[4] = {0.25 * (1 - s) * (1 - r), 0.25 * (1 + s) * (1 - r),
                         0.25 * (1 + s) * (1 + r), 0.25 * (1 - s) * (1 + r)};
    std::array<double, 2> x{};
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 2; ++k)
            x[k] += N[i] * c[i][k];
    return x;
}

/// A strip 0 <= x <= L, 0 <= y <= 1 of n quadrilaterals (nodes 1..n+1 below, n+2..2n+2 above),
/// clamped at x = 0 ("CLAMP"), tip nodes "TIP".
void WriteStrip(const TempDir& dir, const std::string& name, int n, double L, double t,
                bool triangles) {
    std::vector<std::array<double, 2>> xy;
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i <= n; ++i)
            xy.push_back({i * L / n, static_cast<double>(j)});
    std::vector<Elem> elems;
    long tag = 1;
    for (int i = 0; i < n; ++i) {
        const long a = i + 1, b = i + 2, c = i + 2 + n + 1, d = i + 1 + n + 1;
        if (triangles) {
            elems.push_back({tag++, 1, {a, b, c}});
            elems.push_back({tag++, 1, {a, c, d}});
        } else {
            elems.push_back({tag++, 1, {a, b, c, d}});
        }
    }
    WriteProject(dir, name, xy, elems, Toml(t),
                 {{"clamp", {1, n + 2}}, {"tip", {n + 1, 2L * n + 2}}});
}

} // namespace

// Uniform tension of a wall: two slabs, triangles (slab 1) and a quadrilateral (slab 2).
// Hand computation: nx = F / b, ex = s / E, ey = -nu s / E, everything else 0.
TEST(CcxImport, PlaneStressUniformTensionBothFamilies) {
    TempDir dir;
    const double E = 1000.0, nu = 0.3, t = 0.1, s = 2.0, F = s * t * 1.0;
    // Quad on 0 <= x <= 1 (physical 2), two triangles on 1 <= x <= 2 (physical 1).
    WriteProject(dir, "w", {{0, 0}, {1, 0}, {1, 1}, {0, 1}, {2, 0}, {2, 1}},
                 {{1, 2, {1, 2, 3, 4}}, {2, 1, {2, 5, 6}}, {3, 1, {2, 6, 3}}}, Toml(t, 2),
                 {{"left", {1, 4}}, {"right", {5, 6}}});
    ExportInp(dir / "w", dir / "w_mesh.inp", InpFamily::PlaneStress);
    ccxtest::WriteText(dir / "w.inp",
                       Deck("w_mesh.inp", "*SOLID SECTION, ELSET=EALL, MATERIAL=M\n0.1", E, nu,
                            "LEFT, 1, 1\n1, 2, 2\n",
                            {"*CLOAD\nRIGHT, 1, " + std::to_string(F / 2) + "\n"}));
    ccxtest::RunCcx(dir.path(), "w");
    const auto written = ImportCcx(dir / "w", dir / "w.dat", {});
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(written[0].file, dir / "w.STRINTG0001");
    const auto table = ReadStrintg(written[0].file);
    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(table[0].size(), 3u); // slab 1: the triangles come first
    EXPECT_EQ(table[1].size(), 3u);
    EXPECT_EQ(table[2].size(), 4u);
    for (const auto& elem : table)
        for (const auto& p : elem) {
            EXPECT_TRUE(Close(p.forces[5], F, 1e-9, 1e-5)); // nx
            EXPECT_TRUE(Close(p.forces[6], 0.0, 1e-7, 0));  // ny
            EXPECT_TRUE(Close(p.forces[7], 0.0, 1e-7, 0));  // nxy
            EXPECT_TRUE(Close(p.deformations[5], s / E, 1e-12, 1e-5));
            EXPECT_TRUE(Close(p.deformations[6], -nu * s / E, 1e-12, 1e-5));
            EXPECT_TRUE(Close(p.deformations[7], 0.0, 1e-9, 0));
            for (int k = 0; k < 5; ++k) { // a wall has no moments, shear forces or curvatures
                EXPECT_EQ(p.forces[k], 0.0);
                EXPECT_EQ(p.deformations[k], 0.0);
            }
        }
    // Triangle points at the area coordinates (1/6,1/6,2/3), (2/3,1/6,1/6), (1/6,2/3,1/6) of
    // element 1 = Gmsh element 2 with nodes (1,0), (2,0), (2,1).
    EXPECT_TRUE(Close(table[0][0].xyz[0], (1.0 + 2.0 + 2 * 4.0) / 6.0, 1e-7, 0));
    EXPECT_TRUE(Close(table[0][0].xyz[1], 4.0 / 6.0, 1e-7, 0));
    EXPECT_TRUE(Close(table[0][1].xyz[0], (4.0 + 2.0 + 2.0) / 6.0, 1e-7, 0));
    EXPECT_TRUE(Close(table[0][1].xyz[1], 1.0 / 6.0, 1e-7, 0));
    EXPECT_TRUE(Close(table[0][2].xyz[0], (1.0 + 8.0 + 2.0) / 6.0, 1e-7, 0));
    EXPECT_TRUE(Close(table[0][2].xyz[1], 1.0 / 6.0, 1e-7, 0));
}

// The module's quadrilateral points (-a,-a), (a,-a), (a,a), (-a,a) are CalculiX's 1, 2, 4, 3
// (and 5, 6, 8, 7 on the upper face); checked against the raw printed values of a wall
// bent in its plane, where the lower points (y small) are compressed.
TEST(CcxImport, QuadrilateralPointOrderIsCcx1243) {
    TempDir dir;
    const double t = 0.1;
    WriteStrip(dir, "c", 4, 4.0, t, false);
    ExportInp(dir / "c", dir / "c_mesh.inp", InpFamily::PlaneStress);
    ccxtest::WriteText(dir / "c.inp",
                       Deck("c_mesh.inp", "*SOLID SECTION, ELSET=EALL, MATERIAL=M\n0.1", 1000.0,
                            0.0, "CLAMP, 1, 2\n", {"*CLOAD\nTIP, 2, -0.0005\n"}));
    ccxtest::RunCcx(dir.path(), "c");
    ImportCcx(dir / "c", dir / "c.dat", {});
    const auto table = ReadStrintg(dir / "c.STRINTG0001");
    const auto raw = ReadDat(dir / "c.dat");
    ASSERT_EQ(raw.size(), 1u);
    ASSERT_EQ(table.size(), 4u);
    const int ccx[4] = {0, 1, 3, 2};
    for (std::size_t e = 0; e < 4; ++e) {
        const DatElement& d = raw[0].elements.at(static_cast<long>(e + 1));
        const double x0 = static_cast<double>(e);
        const auto corners =
            std::array<std::array<double, 2>, 4>{{{x0, 0}, {x0 + 1, 0}, {x0 + 1, 1}, {x0, 1}}};
        for (int p = 0; p < 4; ++p) {
            const auto& lo = d.stress[ccx[p]];
            const auto& up = d.stress[ccx[p] + 4];
            const auto& elo = d.strain[ccx[p]];
            const auto& eup = d.strain[ccx[p] + 4];
            const auto& got = table[e][p];
            EXPECT_TRUE(Close(got.forces[5], t * (lo[0] + up[0]) / 2, 1e-10, 1e-6));
            EXPECT_TRUE(Close(got.forces[7], t * (lo[3] + up[3]) / 2, 1e-10, 1e-6));
            EXPECT_TRUE(Close(got.deformations[7], elo[3] + eup[3], 1e-12, 1e-6)); // 2 exy
            const auto x = QuadPoint(corners, p);
            EXPECT_TRUE(Close(got.xyz[0], x[0], 1e-7, 0));
            EXPECT_TRUE(Close(got.xyz[1], x[1], 1e-7, 0));
            EXPECT_TRUE(Close(d.coords[ccx[p]][0], x[0], 1e-6, 0));
            EXPECT_TRUE(Close(d.coords[ccx[p]][1], x[1], 1e-6, 0));
        }
        // Bending in the plane: tension above the axis, compression below.
        EXPECT_LT(table[e][0].forces[5], 0.0);
        EXPECT_LT(table[e][1].forces[5], 0.0);
        EXPECT_GT(table[e][2].forces[5], 0.0);
        EXPECT_GT(table[e][3].forces[5], 0.0);
    }
}

// A cantilever strip of S4 shells with a tip load P: statics gives, per unit width b,
// mx = P (L - x) / b (upper face in tension), qx = dmx/dx = -P / b, and with nu = 0
// kx = 12 mx / (E t^3). CalculiX's S4 gives the moment of the element centre at its points.
TEST(CcxImport, ShellCantileverMomentShearAndCurvature) {
    TempDir dir;
    const double E = 1000.0, t = 0.1, L = 4.0, P = 0.001;
    WriteStrip(dir, "s", 4, L, t, false);
    ExportInp(dir / "s", dir / "s_mesh.inp", InpFamily::Shell);
    ccxtest::WriteText(dir / "s.inp",
                       Deck("s_mesh.inp", "*SHELL SECTION, ELSET=EALL, MATERIAL=M\n0.1", E, 0.0,
                            "CLAMP, 1, 6\n", {"*CLOAD\nTIP, 3, " + std::to_string(-P / 2) + "\n"}));
    ccxtest::RunCcx(dir.path(), "s");
    ImportCcx(dir / "s", dir / "s.dat", {});
    const auto table = ReadStrintg(dir / "s.STRINTG0001");
    ASSERT_EQ(table.size(), 4u);
    for (std::size_t e = 0; e < 4; ++e) {
        const double xc = static_cast<double>(e) + 0.5;
        const double mx = P * (L - xc);
        for (const auto& p : table[e]) {
            EXPECT_TRUE(Close(p.forces[0], mx, 1e-9, 1e-4)) << "element " << e + 1;
            EXPECT_TRUE(Close(p.forces[1], 0.0, 1e-9, 0));
            EXPECT_TRUE(Close(p.forces[2], 0.0, 1e-9, 0));
            EXPECT_TRUE(Close(p.forces[3], -P, 1e-9, 1e-4));
            EXPECT_TRUE(Close(p.forces[4], 0.0, 1e-9, 0));
            EXPECT_TRUE(Close(p.forces[5], 0.0, 1e-9, 0));
            EXPECT_TRUE(Close(p.deformations[0], 12.0 * mx / (E * t * t * t), 1e-9, 1e-4));
            // Transverse shear strain: q = G t g with G = E / 2 for nu = 0 (CalculiX's
            // expanded shell carries the shear uniformly through the thickness).
            EXPECT_TRUE(Close(p.deformations[3], -P / (E / 2.0 * t), 1e-12, 1e-4));
            EXPECT_TRUE(Close(p.xyz[2], 0.0, 1e-12, 0));
        }
    }
}

// S3: membrane values are exact for a uniform state; every point of a triangle carries the
// single centroid value; bending has the right sign and order (the linear wedge is stiff).
TEST(CcxImport, ShellTrianglesTensionAndBending) {
    TempDir dir;
    const double E = 1000.0, t = 0.1, L = 4.0, P = 0.001;
    WriteStrip(dir, "s", 4, L, t, true);
    ExportInp(dir / "s", dir / "s_mesh.inp", InpFamily::Shell);
    ccxtest::WriteText(dir / "s.inp",
                       Deck("s_mesh.inp", "*SHELL SECTION, ELSET=EALL, MATERIAL=M\n0.1", E, 0.0,
                            "CLAMP, 1, 6\n",
                            {"*CLOAD\nTIP, 1, " + std::to_string(P / 2) + "\n",
                             "*CLOAD\nTIP, 1, 0\nTIP, 3, " + std::to_string(-P / 2) + "\n"}));
    ccxtest::RunCcx(dir.path(), "s");
    ccxtest::WriteText(dir / "s.toml", Toml(t, 1, 2));
    const auto written = ImportCcx(dir / "s", dir / "s.dat", {});
    ASSERT_EQ(written.size(), 2u);
    const auto tension = ReadStrintg(dir / "s.STRINTG0001");
    const auto bending = ReadStrintg(dir / "s.STRINTG0002");
    ASSERT_EQ(tension.size(), 8u);
    for (std::size_t e = 0; e < 8; ++e) {
        ASSERT_EQ(tension[e].size(), 3u);
        for (const auto& p : tension[e]) {
            EXPECT_TRUE(Close(p.forces[5], P, 1e-9, 1e-4)) << "element " << e + 1;
            EXPECT_TRUE(Close(p.deformations[5], P / (E * t), 1e-12, 1e-4));
            EXPECT_TRUE(Close(p.forces[0], 0.0, 1e-8, 0));
        }
        for (int k = 1; k < 3; ++k) {
            EXPECT_EQ(bending[e][static_cast<std::size_t>(k)].forces, bending[e][0].forces);
            EXPECT_EQ(bending[e][static_cast<std::size_t>(k)].deformations,
                      bending[e][0].deformations);
        }
        // Hogging everywhere: positive mx, of the order of P (L - x).
        EXPECT_GT(bending[e][0].forces[0], 0.0);
        EXPECT_LT(bending[e][0].forces[0], 1.5 * P * L);
        EXPECT_GT(bending[e][0].deformations[0], 0.0);
    }
}

// An element whose project node order runs clockwise is written anticlockwise into the deck;
// its module points still follow the project's corners (matched by position).
TEST(CcxImport, ClockwiseProjectElementsKeepTheirCornerOrder) {
    TempDir dir;
    const double t = 0.1;
    // Strip of two quadrilaterals, the second one clockwise and starting at another corner.
    WriteProject(dir, "k", {{0, 0}, {1, 0}, {2, 0}, {0, 1}, {1, 1}, {2, 1}},
                 {{1, 1, {1, 2, 5, 4}}, {2, 1, {3, 2, 5, 6}}}, Toml(t),
                 {{"clamp", {1, 4}}, {"tip", {3, 6}}});
    ExportInp(dir / "k", dir / "k_mesh.inp", InpFamily::PlaneStress);
    const std::string part = ccxtest::ReadText(dir / "k_mesh.inp");
    EXPECT_NE(part.find("\n2, 3, 6, 5, 2\n"), std::string::npos) << part;
    ccxtest::WriteText(dir / "k.inp",
                       Deck("k_mesh.inp", "*SOLID SECTION, ELSET=EALL, MATERIAL=M\n0.1", 1000.0,
                            0.0, "CLAMP, 1, 2\n", {"*CLOAD\nTIP, 2, -0.0005\n"}));
    ccxtest::RunCcx(dir.path(), "k");
    ImportCcx(dir / "k", dir / "k.dat", {});
    const auto table = ReadStrintg(dir / "k.STRINTG0001");
    const auto raw = ReadDat(dir / "k.dat");
    ASSERT_EQ(table.size(), 2u);
    // Project corners of element 2: (2,0), (1,0), (1,1), (2,1); deck order (2,0), (2,1),
    // (1,1), (1,0): CalculiX's points 1..4 lie near (2,0), (2,1), (1,0), (1,1).
    const std::array<std::array<double, 2>, 4> corners = {{{2, 0}, {1, 0}, {1, 1}, {2, 1}}};
    const int ccx[4] = {0, 2, 3, 1};
    const DatElement& d = raw[0].elements.at(2);
    for (int p = 0; p < 4; ++p) {
        const auto x = QuadPoint(corners, p);
        EXPECT_TRUE(Close(table[1][p].xyz[0], x[0], 1e-7, 0));
        EXPECT_TRUE(Close(table[1][p].xyz[1], x[1], 1e-7, 0));
        EXPECT_TRUE(Close(d.coords[ccx[p]][0], x[0], 1e-6, 0));
        EXPECT_TRUE(Close(d.coords[ccx[p]][1], x[1], 1e-6, 0));
        EXPECT_TRUE(Close(table[1][p].forces[5],
                          t * (d.stress[ccx[p]][0] + d.stress[ccx[p] + 4][0]) / 2, 1e-10, 1e-6));
    }
    EXPECT_LT(table[1][0].forces[5], 0.0); // below the axis
    EXPECT_GT(table[1][2].forces[5], 0.0);
}

// Shells written clockwise by hand (not through export): CalculiX prints them in the shell's
// local axes (x, -y, -z); the importer turns them back into global axes, so a clockwise deck
// and an anticlockwise one give the same STRINTG values.
TEST(CcxImport, ClockwiseShellDeckGivesGlobalAxes) {
    TempDir dir;
    const double t = 0.1;
    WriteStrip(dir, "a", 2, 2.0, t, false);
    WriteStrip(dir, "b", 2, 2.0, t, false);
    // Corner loads that bend, twist and stretch: every force component is non-zero.
    const std::vector<std::string> loads = {
        "*CLOAD\n3, 3, -0.001\n6, 3, 0.0004\n6, 1, 0.002\n6, 2, 0.001\n"};
    for (const char* name : {"a", "b"}) {
        std::ostringstream part;
        part << "*NODE, NSET=NALL\n1, 0, 0, 0\n2, 1, 0, 0\n3, 2, 0, 0\n4, 0, 1, 0\n5, 1, 1, 0\n"
                "6, 2, 1, 0\n*ELEMENT, TYPE=S4, ELSET=EALL\n";
        if (std::string(name) == "a")
            part << "1, 1, 2, 5, 4\n2, 2, 3, 6, 5\n";
        else
            part << "1, 1, 4, 5, 2\n2, 2, 5, 6, 3\n";
        part << "*NSET, NSET=CLAMP\n1, 4\n";
        ccxtest::WriteText(dir / (std::string(name) + "_mesh.inp"), part.str());
        ccxtest::WriteText(dir / (std::string(name) + ".inp"),
                           Deck(std::string(name) + "_mesh.inp",
                                "*SHELL SECTION, ELSET=EALL, MATERIAL=M\n0.1", 1000.0, 0.3,
                                "CLAMP, 1, 6\n", loads));
        ccxtest::RunCcx(dir.path(), name);
        ImportCcx(dir / name, dir / (std::string(name) + ".dat"), {});
    }
    const auto a = ReadStrintg(dir / "a.STRINTG0001");
    const auto b = ReadStrintg(dir / "b.STRINTG0001");
    ASSERT_EQ(a.size(), 2u);
    ASSERT_EQ(b.size(), 2u);
    for (std::size_t e = 0; e < 2; ++e)
        for (std::size_t p = 0; p < 4; ++p) {
            for (std::size_t k = 0; k < 8; ++k) {
                EXPECT_TRUE(Close(b[e][p].forces[k], a[e][p].forces[k], 1e-9, 1e-4))
                    << "element " << e + 1 << " point " << p + 1 << " force " << k;
                EXPECT_TRUE(Close(b[e][p].deformations[k], a[e][p].deformations[k], 1e-9, 1e-4))
                    << "element " << e + 1 << " point " << p + 1 << " deformation " << k;
            }
            EXPECT_NE(a[e][p].forces[2], 0.0); // twisted
            EXPECT_NE(a[e][p].forces[4], 0.0);
        }
}

// Steps go to the load cases of P.toml in ascending index, named by that index; the
// plane-stress option recomputes the stresses from the printed strains.
TEST(CcxImport, StepsToLoadCaseIndicesAndPlaneStressOption) {
    TempDir dir;
    const double E = 1000.0, nu = 0.3, t = 0.1;
    WriteStrip(dir, "m", 2, 2.0, t, true);
    ccxtest::WriteText(dir / "m.toml", "[[slab]]\ntag = 1\nthickness = 0.1\n"
                                       "[[load_case]]\nid = 7\nindex = 5\n"
                                       "[[load_case]]\nid = 8\nindex = 3\n");
    ExportInp(dir / "m", dir / "m_mesh.inp", InpFamily::Shell);
    ccxtest::WriteText(dir / "m.inp",
                       Deck("m_mesh.inp", "*SHELL SECTION, ELSET=EALL, MATERIAL=M\n0.1", E, nu,
                            "CLAMP, 1, 6\n",
                            {"*CLOAD\nTIP, 3, -0.0005\n", "*CLOAD\nTIP, 3, -0.001\n"}));
    ccxtest::RunCcx(dir.path(), "m");
    const auto written = ImportCcx(dir / "m", dir / "m.dat", {});
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[0].loadCase.id, 8);
    EXPECT_EQ(written[0].file, dir / "m.STRINTG0003");
    EXPECT_EQ(written[1].loadCase.id, 7);
    EXPECT_EQ(written[1].file, dir / "m.STRINTG0005");
    // Linear analysis: the second step (twice the load) gives twice the values.
    const auto one = ReadStrintg(dir / "m.STRINTG0003");
    const auto two = ReadStrintg(dir / "m.STRINTG0005");
    for (std::size_t e = 0; e < one.size(); ++e)
        for (std::size_t k = 0; k < 8; ++k)
            EXPECT_TRUE(Close(two[e][0].forces[k], 2.0 * one[e][0].forces[k], 1e-12, 1e-5));

    // Plane stress from the printed strains, E and nu read from the deck.
    ImportOptions options;
    options.stress = StressSource::PlaneStress;
    ImportCcx(dir / "m", dir / "m.dat", options);
    const auto ps = ReadStrintg(dir / "m.STRINTG0003");
    const auto raw = ReadDat(dir / "m.dat");
    const double c = E / (1 - nu * nu), g2 = E / (1 + nu), s3 = std::sqrt(3.0);
    for (std::size_t e = 0; e < ps.size(); ++e) {
        const DatElement& d = raw[0].elements.at(static_cast<long>(e + 1));
        const bool zeroLow = d.coords[0][2] < d.coords[1][2];
        const auto& lo = d.strain[zeroLow ? 0 : 1];
        const auto& up = d.strain[zeroLow ? 1 : 0];
        const double sxxLo = c * (lo[0] + nu * lo[1]), sxxUp = c * (up[0] + nu * up[1]);
        const double sxyLo = g2 * lo[3], sxyUp = g2 * up[3];
        EXPECT_TRUE(Close(ps[e][0].forces[0], t * t * (sxxUp - sxxLo) / (4 * s3), 1e-12, 1e-6));
        EXPECT_TRUE(Close(ps[e][0].forces[2], t * t * (sxyUp - sxyLo) / (4 * s3), 1e-12, 1e-6));
        EXPECT_TRUE(Close(ps[e][0].forces[3], t * g2 * (lo[4] + up[4]) / 2, 1e-12, 1e-6));
        // The deformations are the printed ones either way.
        EXPECT_TRUE(Close(ps[e][0].deformations[0], one[e][0].deformations[0], 1e-12, 1e-6));
    }
    // Explicit constants win over the deck's.
    options.young = 2 * E;
    options.poisson = nu;
    ImportCcx(dir / "m", dir / "m.dat", options);
    const auto ps2 = ReadStrintg(dir / "m.STRINTG0003");
    EXPECT_TRUE(Close(ps2[0][0].forces[0], 2 * ps[0][0].forces[0], 1e-12, 1e-6));
}

// Results that do not fit the project give errors naming the element and what differs.
TEST(CcxImport, MismatchesAreClearErrors) {
    TempDir dir;
    WriteStrip(dir, "x", 2, 2.0, 0.1, false);
    ExportInp(dir / "x", dir / "x_mesh.inp", InpFamily::Shell);
    // Elements renumbered in the deck (1 <-> 2).
    std::string part = ccxtest::ReadText(dir / "x_mesh.inp");
    part.replace(part.find("\n1, 1, 2, 5, 4\n"), 14, "\n2, 1, 2, 5, 4\n");
    part.replace(part.find("\n2, 2, 3, 6, 5\n"), 14, "\n1, 2, 3, 6, 5\n");
    ccxtest::WriteText(dir / "swapped_mesh.inp", part);
    const std::string section = "*SHELL SECTION, ELSET=EALL, MATERIAL=M\n0.1";
    const std::vector<std::string> load = {"*CLOAD\nTIP, 3, -0.0005\n"};
    ccxtest::WriteText(dir / "swapped.inp",
                       Deck("swapped_mesh.inp", section, 1000, 0.3, "CLAMP, 1, 6\n", load));
    ccxtest::RunCcx(dir.path(), "swapped");
    auto expectError = [&](const std::filesystem::path& dat, const std::string& what) {
        try {
            ImportCcx(dir / "x", dat, {});
            ADD_FAILURE() << "no error, expected: " << what;
        } catch (const ImportError& e) {
            EXPECT_NE(std::string(e.what()).find(what), std::string::npos) << e.what();
        }
    };
    expectError(dir / "swapped.dat", "element 1: the printed integration points do not lie");

    // A thickness different from the project's.
    ccxtest::WriteText(dir / "thick.inp",
                       Deck("x_mesh.inp", "*SHELL SECTION, ELSET=EALL, MATERIAL=M\n0.2", 1000, 0.3,
                            "CLAMP, 1, 6\n", load));
    ccxtest::RunCcx(dir.path(), "thick");
    expectError(dir / "thick.dat", "thickness");

    // COORD not printed; more steps than load cases; elements missing from the output.
    std::string deck = Deck("x_mesh.inp", section, 1000, 0.3, "CLAMP, 1, 6\n", {load[0], load[0]});
    ccxtest::WriteText(dir / "twosteps.inp", deck);
    ccxtest::RunCcx(dir.path(), "twosteps");
    expectError(dir / "twosteps.dat", "2 steps but 1 load cases");
    std::string nocoord = Deck("x_mesh.inp", section, 1000, 0.3, "CLAMP, 1, 6\n", load);
    nocoord.replace(nocoord.find("S, E, COORD"), 11, "S, E");
    ccxtest::WriteText(dir / "nocoord.inp", nocoord);
    ccxtest::RunCcx(dir.path(), "nocoord");
    expectError(dir / "nocoord.dat", "8 integration points of S, E and COORD");
    std::string partial =
        Deck("x_mesh.inp", section + "\n*ELSET, ELSET=ONE\n1", 1000, 0.3, "CLAMP, 1, 6\n", load);
    partial.replace(partial.find("*EL PRINT, ELSET=EALL"), 21, "*EL PRINT, ELSET=ONE");
    ccxtest::WriteText(dir / "partial.inp", partial);
    ccxtest::RunCcx(dir.path(), "partial");
    expectError(dir / "partial.dat", "element 2 has no results");
}
