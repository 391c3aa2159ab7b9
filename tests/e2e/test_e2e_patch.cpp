// The patch test through the whole road: a project meshed with Gmsh whose integration-point
// values are linear in position. Superconvergent patch recovery reproduces a linear field
// exactly, so the estimated error is zero (to the rounding of the STRINTG files' nine
// digits), every element may grow to twice its size, and every node gets the mean of twice
// the sizes of its elements.
#include "adaptivity/AdaptExecute.h"
#include "host/outcome/outcome.h"
#include "tests/support/example_project.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <exception>

using namespace fixture;

namespace {

// The characteristic size of an element: sqrt(2 A) for a triangle, sqrt(A) for a quadrilateral.
double ElementSize(const host::outcome::Mesh& mesh, unsigned long id) {
    const double area = mesh.ElementArea(id);
    return mesh.elements[id - 1].nodes.size() == 3 ? std::sqrt(2 * area) : std::sqrt(area);
}

// The stored result of the slab id, result case 1.
CKQ_Result StoredResult(const host::outcome::GarStore& store, long slab) {
    for (const auto& info : store.List())
        if (info.key.GetDsObject().GetID() == slab && info.key.GetResultCase().GetNumber() == 1)
            return *store.Load(info.key);
    ADD_FAILURE() << "no stored result for slab " << slab;
    return {};
}

} // namespace

TEST(E2EPatch, LinearFieldsGiveNoErrorAndDoubleEverySize) {
    TempDir dir;
    const fs::path p = MakePatchProject(dir.path());
    const host::outcome::Project project = host::outcome::LoadProject(p);
    const auto& mesh = project.mesh;
    ASSERT_EQ(mesh.slabs.size(), 2u);
    ASSERT_EQ(mesh.elements.size(), 16u + 32u);

    CAdaptExecute x;
    ASSERT_EQ(x.Execute(CString(p.string()), 0, 0, 0.05, {7}), Success);
    EXPECT_TRUE(Near(0.0, x.GetAdaptivityResult(), 1e-6)) << "global error";
    EXPECT_EQ(x.GetProblematicLoadCaseID(), -1);

    const host::outcome::GarStore store(p.string() + ".GAR", false);
    std::vector<double> newSize(mesh.elements.size(), std::nan(""));
    for (long slab = 1; slab <= 2; ++slab) {
        const CKQ_Result result = StoredResult(store, slab);
        ASSERT_EQ(result.GetCountOfRows(), mesh.slabs[slab - 1].elementCount);
        for (unsigned long r = 0; r < result.GetCountOfRows(); ++r) {
            const unsigned long id = result.GetElementId(r);
            ASSERT_GE(id, 1u);
            EXPECT_TRUE(Near(0.0, result.GetValue(0, r), 1e-6)) << "global error of element " << id;
            EXPECT_TRUE(Near(0.0, result.GetValue(1, r), 1e-6)) << "local error of element " << id;
            EXPECT_TRUE(Near(0.0, result.GetValue(2, r), 1e-9))
                << "error density of element " << id;
            EXPECT_TRUE(Near(2 * ElementSize(mesh, id), result.GetValue(3, r)))
                << "new size of element " << id;
            newSize[id - 1] = result.GetValue(3, r);
        }
    }

    // The size field: one entry per element, its values the nodal sizes of its corners.
    std::vector<double> sum(mesh.nodes.size(), 0.0);
    std::vector<int> count(mesh.nodes.size(), 0);
    for (std::size_t e = 0; e < mesh.elements.size(); ++e)
        for (unsigned long n : mesh.elements[e].nodes) {
            sum[n - 1] += 2 * ElementSize(mesh, e + 1);
            ++count[n - 1];
        }
    const std::vector<PosEntry> pos = ReadPos(p.string() + ".refine.pos");
    ASSERT_EQ(pos.size(), mesh.elements.size());
    for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
        const auto& nodes = mesh.elements[e].nodes;
        ASSERT_EQ(pos[e].values.size(), nodes.size());
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            const unsigned long n = nodes[i];
            EXPECT_TRUE(Near(sum[n - 1] / count[n - 1], pos[e].values[i])) << "node " << n;
            EXPECT_TRUE(Near(mesh.nodes[n - 1].position.x, pos[e].coords[3 * i]));
            EXPECT_TRUE(Near(mesh.nodes[n - 1].position.z, pos[e].coords[3 * i + 2]));
        }
    }
    // Away from the edge the slabs share, every node's size is twice its elements' size: the
    // flat quadrilaterals have h = 0.5, the tilted triangles (area sqrt 5 / 16) h = sqrt(sqrt 5 /
    // 8).
    const double h[2] = {0.5, std::sqrt(std::sqrt(5.0) / 8)};
    std::size_t interior = 0;
    for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
        const auto& element = mesh.elements[e];
        EXPECT_TRUE(Near(h[element.slab - 1], ElementSize(mesh, e + 1)));
        for (std::size_t i = 0; i < element.nodes.size(); ++i) {
            if (std::fabs(mesh.nodes[element.nodes[i] - 1].position.x - 2.0) < 1e-9)
                continue;
            ++interior;
            EXPECT_TRUE(Near(2 * h[element.slab - 1], pos[e].values[i]));
        }
    }
    EXPECT_GT(interior, 100u);
}

TEST(E2EPatch, TwoLoadCasesOfLinearFieldsAreStillExact) {
    TempDir dir;
    const fs::path p = MakePatchProject(dir.path());
    // A second load case, a copy of the first under index 4: the sum is linear too.
    std::string toml = ReadFile(p.string() + ".toml");
    toml += "[[load_case]]\nid = 8\nindex = 4\n";
    WriteFile(p.string() + ".toml", toml);
    fs::copy_file(p.string() + ".STRINTG0003", p.string() + ".STRINTG0004");
    CAdaptExecute x;
    ASSERT_EQ(x.Execute(CString(p.string()), 0, 0, 0.05, {7, 8}), Success);
    EXPECT_TRUE(Near(0.0, x.GetAdaptivityResult(), 1e-6));
}

TEST(E2EPatch, AProjectWithoutItsStrintgFileEndsWithCode2) {
    TempDir dir;
    const fs::path p = MakePatchProject(dir.path());
    fs::remove(p.string() + ".STRINTG0003");
    CAdaptExecute x;
    EXPECT_EQ(x.Execute(CString(p.string()), 0, 0, 0.05, {7}), MeshDataPreparationFailed);
    EXPECT_EQ(x.GetAdaptivityResult(), 0.0);
}

TEST(E2EPatch, AnUnknownLoadCaseIsSkippedSoNothingIsPrepared) {
    TempDir dir;
    const fs::path p = MakePatchProject(dir.path());
    CAdaptExecute x;
    EXPECT_EQ(x.Execute(CString(p.string()), 0, 0, 0.05, {99}), MeshDataPreparationFailed);
}

TEST(E2EPatch, AnEarlierResultFileIsRemovedBeforeThePass) {
    TempDir dir;
    const fs::path p = MakePatchProject(dir.path());
    CAdaptExecute x;
    ASSERT_EQ(x.Execute(CString(p.string()), 0, 0, 0.05, {7}), Success);
    // A pass that cannot prepare its data still removes the old P.GAR first.
    fs::remove(p.string() + ".STRINTG0003");
    ASSERT_TRUE(fs::exists(p.string() + ".GAR"));
    EXPECT_EQ(x.Execute(CString(p.string()), 0, 0, 0.05, {7}), MeshDataPreparationFailed);
    EXPECT_FALSE(fs::exists(p.string() + ".GAR"));
}

// A node of 70 elements is refused by the estimator's Init once the mesh has been copied; the
// estimator then has nodes without normals, and destroying it ends the process with the
// engine's internal-error report (`slabadapt check` finds such a node beforehand).
TEST(E2EPatchDeathTest, AFanOf70ElementsEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TempDir dir;
    const fs::path p = MakeFanProject(dir.path(), 70);
    EXPECT_DEATH(
        {
            // The dying process cannot unwind to its TempDir: remove the folder on the way out.
            static fs::path doomed;
            doomed = dir.path();
            std::set_terminate([] {
                std::error_code ec;
                fs::remove_all(doomed, ec);
                std::abort();
            });
            CAdaptExecute x;
            x.Execute(CString(p.string()), 0, 0, 0.05, {1});
        },
        "ERROR:  za ktery muze autor teto sqele utility, bezte ho vytahat za usi");
}

// A 64-element fan is within the estimator's limit and runs through.
TEST(E2EPatch, AFanOf64ElementsRuns) {
    TempDir dir;
    const fs::path p = MakeFanProject(dir.path(), 64);
    CAdaptExecute x;
    EXPECT_EQ(x.Execute(CString(p.string()), 0, 0, 0.05, {1}), Success);
    EXPECT_TRUE(fs::exists(p.string() + ".refine.pos"));
}

TEST(E2EPatch, AProjectThatDoesNotExistEndsWithCode1) {
    TempDir dir;
    CAdaptExecute x;
    EXPECT_EQ(x.Execute(CString((dir / "nothing").string()), 0, 0, 0.05, {1}),
              ResultsAccessInitFailed);
}
