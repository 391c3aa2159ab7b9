#pragma once
// A real project on disk for the results access tests: a mesh made by Gmsh (or written by
// hand), P.toml, and STRINTG files that match the project's element numbering.
#include "host/outcome/outcome.h"
#include "tests/adaptivity/support/strintg.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace slabadapt::test {

// Two slabs side by side in the plane z = 1: slab 1 (physical tag 11) of quadrilaterals on
// [0,2]x[0,1], slab 2 (physical tag 12) of triangles on [2,3]x[0,1]. The size (0.25) comes from
// a background field alone, so that a size field given with -bgm governs a remeshing.
inline const char* TwoSlabGeo() {
    return R"(Mesh.MeshSizeExtendFromBoundary = 0;
Mesh.MeshSizeFromPoints = 0;
Mesh.MeshSizeFromCurvature = 0;
Field[1] = MathEval;
Field[1].F = "0.25";
Background Field = 1;
Point(1) = {0, 0, 1};
Point(2) = {2, 0, 1};
Point(3) = {2, 1, 1};
Point(4) = {0, 1, 1};
Point(5) = {3, 0, 1};
Point(6) = {3, 1, 1};
Line(1) = {1, 2};
Line(2) = {2, 3};
Line(3) = {3, 4};
Line(4) = {4, 1};
Line(5) = {2, 5};
Line(6) = {5, 6};
Line(7) = {6, 3};
Curve Loop(1) = {1, 2, 3, 4};
Plane Surface(1) = {1};
Curve Loop(2) = {5, 6, 7, -2};
Plane Surface(2) = {2};
Transfinite Surface{1};
Recombine Surface{1};
Physical Surface("floor", 11) = {1};
Physical Surface("strip", 12) = {2};
)";
}

inline const char* TwoSlabToml() {
    return R"(title = "Two slabs"

[[slab]]
tag = 11
name = "floor"
thickness = 0.25

[[slab]]
tag = 12
name = "strip"
thickness = 0.2

[[load_case]]
id = 101
index = 1
valid = true

[[load_case]]
id = 102
index = 2
valid = true

[[load_case]]
id = 103
index = 3
valid = false
)";
}

// Runs Gmsh on the .geo text and writes P.msh (MSH 4.1); false with Gmsh's output on failure.
inline ::testing::AssertionResult MeshWithGmsh(const std::filesystem::path& projectPath,
                                               const std::string& geo) {
    const std::filesystem::path geoFile = projectPath.string() + ".geo";
    const std::filesystem::path logFile = projectPath.string() + ".gmsh.log";
    WriteBytes(geoFile, geo);
    const std::string command = "gmsh -2 -format msh41 -o '" + projectPath.string() + ".msh' '" +
                                geoFile.string() + "' > '" + logFile.string() + "' 2>&1";
    if (std::system(command.c_str()) != 0)
        return ::testing::AssertionFailure() << "gmsh failed:\n" << ReadBytes(logFile);
    return ::testing::AssertionSuccess();
}

// The global position of an integration point from the element's natural coordinates: area
// coordinates (l1, l2, l3) for a triangle, (xi, eta) of the bilinear map for a quadrilateral.
inline CKQPoint3D MapToElement(const std::vector<CKQPoint3D>& corners, const CKQPoint3D& natural) {
    double x = 0, y = 0, z = 0;
    if (corners.size() == 3) {
        const double l[3] = {natural.x, natural.y, natural.z};
        for (int i = 0; i < 3; ++i) {
            x += l[i] * corners[static_cast<std::size_t>(i)].x;
            y += l[i] * corners[static_cast<std::size_t>(i)].y;
            z += l[i] * corners[static_cast<std::size_t>(i)].z;
        }
    } else {
        const double s[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
        for (int i = 0; i < 4; ++i) {
            const double n = 0.25 * (1 + s[i][0] * natural.x) * (1 + s[i][1] * natural.y);
            x += n * corners[static_cast<std::size_t>(i)].x;
            y += n * corners[static_cast<std::size_t>(i)].y;
            z += n * corners[static_cast<std::size_t>(i)].z;
        }
    }
    return {x, y, z};
}

// The 16 values written at an integration point of a load case: forces, then deformations.
using FieldFunction = std::function<double(int value, const CKQPoint3D& at)>;

// Writes P.STRINTG<loadCase> for the project's mesh with all 19 columns, the points of each
// element at the natural coordinates of the integration rule.
inline void WriteProjectStrintg(const host::outcome::Project& project, unsigned long loadCase,
                                const FieldFunction& field) {
    const double a = 1.0 / std::sqrt(3.0);
    const std::vector<CKQPoint3D> quad = {{-a, -a, 0}, {a, -a, 0}, {a, a, 0}, {-a, a, 0}};
    const std::vector<CKQPoint3D> triangle = {
        {1.0 / 6, 1.0 / 6, 2.0 / 3}, {2.0 / 3, 1.0 / 6, 1.0 / 6}, {1.0 / 6, 2.0 / 3, 1.0 / 6}};
    std::vector<std::string> records;
    for (std::size_t e = 0; e < project.mesh.elements.size(); ++e) {
        const auto& element = project.mesh.elements[e];
        std::vector<CKQPoint3D> corners;
        for (unsigned long node : element.nodes)
            corners.push_back(project.mesh.nodes[node - 1].position);
        const auto& rule = corners.size() == 4 ? quad : triangle;
        for (std::size_t p = 0; p < rule.size(); ++p) {
            const CKQPoint3D at = MapToElement(corners, rule[p]);
            std::vector<double> values = {at.x, at.y, at.z};
            for (int k = 0; k < 16; ++k)
                values.push_back(field(k, at));
            records.push_back(
                RecordLine(static_cast<int>(e + 1), static_cast<int>(p + 1), values, "%15.8E"));
        }
    }
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, ".STRINTG%0*lu", 4, loadCase);
    WriteBytes(project.path.string() + suffix, StrintgText(AllColumns(), records));
}

} // namespace slabadapt::test
