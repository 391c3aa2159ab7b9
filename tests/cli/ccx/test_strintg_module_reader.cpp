// The STRINTG files the importer writes, read by their real consumer: the module's
// CAdaptiveMeshData. Counts, element types, values, and positions that agree with the
// module's natural coordinates of each point (area coordinates on triangles, the bilinear
// map with the first corner at (-1, -1) on quadrilaterals).

#include "adaptivity/AdaptiveMeshData.h"
#include "cli/ccx/CcxImport.h"
#include "cli/ccx/InpWriter.h"
#include "tests/support/ccx.h"

using namespace slabadapt::ccx;
using ccxtest::Close;

TEST(StrintgModuleReader, ImportedFileReadsBackThroughTheModule) {
    ccxtest::TempDir dir;
    // A plate of a triangle slab and a quadrilateral slab, meshed by Gmsh, bent by pressure.
    ccxtest::WriteText(dir / "p.geo",
                       "Point(1) = {0,0,0,0.5}; Point(2) = {1,0,0,0.5}; Point(3) = {2,0,0,0.5};\n"
                       "Point(4) = {2,1,0,0.5}; Point(5) = {1,1,0,0.5}; Point(6) = {0,1,0,0.5};\n"
                       "Line(1) = {1,2}; Line(2) = {2,5}; Line(3) = {5,6}; Line(4) = {6,1};\n"
                       "Line(5) = {2,3}; Line(6) = {3,4}; Line(7) = {4,5};\n"
                       "Curve Loop(1) = {1,2,3,4}; Plane Surface(1) = {1};\n"
                       "Curve Loop(2) = {5,6,7,-2}; Plane Surface(2) = {2};\n"
                       "Recombine Surface{2};\n"
                       "Physical Surface(1) = {1}; Physical Surface(2) = {2};\n"
                       "Physical Curve(\"edge\", 3) = {1,4,5,6,3,7};\n");
    const std::string cmd =
        "cd '" + dir.path().string() + "' && gmsh p.geo -2 -format msh41 -o p.msh > gmsh.log 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << ccxtest::ReadText(dir / "gmsh.log");
    ccxtest::WriteText(dir / "p.toml", "[[slab]]\ntag = 1\nthickness = 0.05\n"
                                       "[[slab]]\ntag = 2\nthickness = 0.05\n"
                                       "[[load_case]]\nid = 11\nindex = 1\n");
    ExportInp(dir / "p", dir / "p_mesh.inp", InpFamily::Shell);
    ccxtest::WriteText(dir / "p.inp",
                       "*INCLUDE, INPUT=p_mesh.inp\n*MATERIAL, NAME=M\n*ELASTIC\n"
                       "1000, 0.3\n*SHELL SECTION, ELSET=EALL, MATERIAL=M\n0.05\n"
                       "*BOUNDARY\nEDGE, 1, 3\n*STEP\n*STATIC\n*DLOAD\nEALL, P, 0.01\n"
                       "*EL PRINT, ELSET=EALL\nS, E, COORD\n*END STEP\n");
    ccxtest::RunCcx(dir.path(), "p");
    ImportCcx(dir / "p", dir / "p.dat", {});
    const ProjectMesh mesh = ReadProject(dir / "p");
    const auto mine = ReadStrintg(dir / "p.STRINTG0001");

    CAdaptiveMeshData data;
    ASSERT_TRUE(data.PrepareResultsOnIntegrationPoints({1}, CString((dir / "p").string())));
    ASSERT_EQ(mine.size(), mesh.elements.size());
    bool sawTriangle = false, sawQuad = false;
    for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
        const auto& nodes = mesh.elements[e].nodes;
        const bool quad = nodes.size() == 4;
        (quad ? sawQuad : sawTriangle) = true;
        ASSERT_EQ(data.GetCountOfIntegrationPoints(e), quad ? 4 : 3);
        EXPECT_EQ(static_cast<int>(data.GetElementType(e)), quad ? 1 : 0);
        for (unsigned long p = 0; p < (quad ? 4ul : 3ul); ++p) {
            double f[8], d[8];
            data.GetIntegrationPointResults(
                e, p, static_cast<Outcome64Enums::eIntegrationPointDataType>(0), f);
            data.GetIntegrationPointResults(
                e, p, static_cast<Outcome64Enums::eIntegrationPointDataType>(1), d);
            for (int k = 0; k < 8; ++k) {
                EXPECT_EQ(f[k], mine[e][p].forces[static_cast<std::size_t>(k)]);
                EXPECT_EQ(d[k], mine[e][p].deformations[static_cast<std::size_t>(k)]);
            }
            // Position from the module's natural coordinates of the point.
            const CKQPoint3D nat = data.GetIntegrationPointLocalCoords(e, p);
            double N[4] = {};
            if (quad) {
                const double s = nat.X(), r = nat.Y();
                N[0] = 0.25 * (1 - s) * (1 - r);
                N[1] = 0.25 * (1 + s) * (1 - r);
                N[2] = 0.25 * (1 + s) * (1 + r);
                N[3] = 0.25 * (1 - s) * (1 + r);
            } else {
                N[0] = nat.X();
                N[1] = nat.Y();
                N[2] = nat.Z();
            }
            double x = 0, y = 0;
            for (std::size_t i = 0; i < nodes.size(); ++i) {
                x += N[i] * mesh.nodes[nodes[i]][0];
                y += N[i] * mesh.nodes[nodes[i]][1];
            }
            const CKQPoint3D g = data.GetIntegrationPointGlobalCoords(e, p);
            EXPECT_TRUE(Close(g.X(), x, 1e-7, 0)) << "element " << e + 1 << " point " << p;
            EXPECT_TRUE(Close(g.Y(), y, 1e-7, 0)) << "element " << e + 1 << " point " << p;
        }
    }
    EXPECT_TRUE(sawTriangle);
    EXPECT_TRUE(sawQuad);
    // Pressure bends the plate: sagging moments at its middle.
    double f[8];
    data.GetIntegrationPointResults(0, 0, static_cast<Outcome64Enums::eIntegrationPointDataType>(0),
                                    f);
    EXPECT_NE(f[0], 0.0);
}
