#include "host/calclink/solver_writer.h"
#include "host/outcome/project.h"
#include "tests/support/files.h"
#include "tests/support/host_project_fixture.h"

#include <gmock/gmock.h>

#include <bit>
#include <charconv>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <set>

namespace {

// The view with every number in its shortest exact form, the entries in element order.
std::string ShortestView(const std::vector<std::vector<unsigned long>>& elements,
                         const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes) {
    auto printed = [](double v) {
        char buffer[64];
        return std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
    };
    std::string view = "View \"refinement\" {\n";
    for (const auto& element : elements) {
        view += element.size() == 3 ? "ST(" : "SQ(";
        for (std::size_t k = 0; k < element.size(); ++k) {
            const CKQPoint3D& p = nodes[element[k] - 1];
            view += (k > 0 ? "," : "") + printed(p.x) + "," + printed(p.y) + "," + printed(p.z);
        }
        view += "){";
        for (std::size_t k = 0; k < element.size(); ++k)
            view += (k > 0 ? "," : "") + printed(sizes[element[k] - 1]);
        view += "};\n";
    }
    return view + "};\n";
}

using host::outcome::Mesh;
using host::outcome::ReadMesh;
using hosttest::DataDir;
using hosttest::Near;
using ::testing::HasSubstr;

class SolverWriterTest : public hosttest::ProjectFixture {
protected:
    // P = Dir()/proj with the shuffled mesh: nodes 1..6, two triangles and one quadrilateral.
    Mesh MakeShuffledProject() {
        std::filesystem::copy_file(DataDir() / "shuffled41.msh", Dir() / "proj.msh");
        return ReadMesh(Dir() / "proj.msh");
    }
    static std::vector<CKQPoint3D> Coordinates(const Mesh& mesh) {
        std::vector<CKQPoint3D> nodes;
        for (const auto& n : mesh.nodes)
            nodes.push_back(n.position);
        return nodes;
    }
};

TEST_F(SolverWriterTest, OneEntryPerElementWithTheNodalSizes) {
    Mesh mesh = MakeShuffledProject();
    std::vector<double> sizes = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6};
    CSolverFEMcoWriter writer;
    writer.WriteMeshRefinements(CString(Project().string()), sizes, Coordinates(mesh));
    std::string pos = Read(Dir() / "proj.refine.pos");
    // Element 1 has nodes 1, 3, 6; element 2 nodes 1, 4, 3; element 3 nodes 4, 2, 5, 3.
    EXPECT_EQ(pos, "View \"refinement\" {\n"
                   "ST(0,0,0,2,2,0,0,2,0){0.1,0.3,0.6};\n"
                   "ST(0,0,0,2,0,0,2,2,0){0.1,0.4,0.3};\n"
                   "SQ(2,0,0,4,0,0,4,2,0,2,2,0){0.4,0.2,0.5,0.3};\n"
                   "};\n");
    EXPECT_THAT(slabadapt::test::TemporaryFilesIn(Dir()), testing::IsEmpty());
}

TEST_F(SolverWriterTest, CoordinatesAreTakenAsGiven) {
    Mesh mesh = MakeShuffledProject();
    auto nodes = Coordinates(mesh);
    nodes[0] = CKQPoint3D(-0.5, 0.25, 1e-3);
    CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()),
                                              std::vector<double>(6, 1.0), nodes);
    EXPECT_THAT(Read(Dir() / "proj.refine.pos"),
                HasSubstr("ST(-0.5,0.25,0.001,2,2,0,0,2,0){1,1,1};"));
}

TEST_F(SolverWriterTest, TheLocaleDoesNotChangeTheNumbers) {
    Mesh mesh = MakeShuffledProject();
    std::string saved = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr)
        GTEST_FAIL() << "the de_DE.UTF-8 locale is needed (scripts/install-deps.sh makes it)";
    CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()),
                                              std::vector<double>(6, 0.25), Coordinates(mesh));
    std::setlocale(LC_NUMERIC, saved.c_str());
    EXPECT_THAT(Read(Dir() / "proj.refine.pos"), HasSubstr("{0.25,0.25,0.25}"));
}

TEST_F(SolverWriterTest, SizesMustMatchTheMeshAndBePositive) {
    Mesh mesh = MakeShuffledProject();
    CSolverFEMcoWriter writer;
    CString p(Project().string());
    EXPECT_THROW(writer.WriteMeshRefinements(p, std::vector<double>(5, 1.0), Coordinates(mesh)),
                 std::invalid_argument);
    EXPECT_THROW(writer.WriteMeshRefinements(p, std::vector<double>(6, 1.0), {}),
                 std::invalid_argument);
    std::vector<double> sizes(6, 1.0);
    sizes[3] = 0.0;
    try {
        writer.WriteMeshRefinements(p, sizes, Coordinates(mesh));
        FAIL();
    } catch (const std::invalid_argument& e) {
        EXPECT_THAT(e.what(), HasSubstr("the size at node 4 is not a positive finite number"));
    }
    sizes[3] = std::nan("");
    EXPECT_THROW(writer.WriteMeshRefinements(p, sizes, Coordinates(mesh)), std::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(Dir() / "proj.refine.pos"));
}

// Written behind the caller's back: the same bytes; what is wrong with the arguments still
// throws at once (and nothing is started), what goes wrong in the writing throws from Finish.
TEST_F(SolverWriterTest, AFieldWrittenInTheBackgroundIsTheSameAndFailsWhereItShould) {
    Mesh mesh = MakeShuffledProject();
    const std::vector<double> sizes = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6};
    CSolverFEMcoWriter writer;
    const CString p(Project().string());
    writer.WriteMeshRefinements(p, sizes, Coordinates(mesh));
    const std::string direct = Read(Dir() / "proj.refine.pos");
    std::filesystem::remove(Dir() / "proj.refine.pos");
    {
        host::calclink::BackgroundSizeField background;
        EXPECT_THROW(host::calclink::BackgroundSizeField(), std::logic_error); // one at a time
        std::vector<double> given = sizes;
        writer.WriteMeshRefinements(p, given, Coordinates(mesh));
        given.assign(6, 99.0); // the writing has its own copy
        background.Finish();
        EXPECT_EQ(Read(Dir() / "proj.refine.pos"), direct);

        std::vector<double> bad = sizes;
        bad[3] = 0.0;
        EXPECT_THROW(writer.WriteMeshRefinements(p, bad, Coordinates(mesh)), std::invalid_argument);
        EXPECT_NO_THROW(background.Finish());
        EXPECT_EQ(Read(Dir() / "proj.refine.pos"), direct);

        // A folder where the field goes: the rename fails in the writing, not in the call.
        std::filesystem::remove(Dir() / "proj.refine.pos");
        std::filesystem::create_directory(Dir() / "proj.refine.pos");
        std::filesystem::create_directory(Dir() / "proj.refine.pos" / "inside");
        EXPECT_NO_THROW(writer.WriteMeshRefinements(p, sizes, Coordinates(mesh)));
        EXPECT_THROW(background.Finish(), std::runtime_error);
        EXPECT_THAT(slabadapt::test::TemporaryFilesIn(Dir()), testing::IsEmpty());
        std::filesystem::remove_all(Dir() / "proj.refine.pos");
        // The destructor waits for a field it was not asked to finish.
        writer.WriteMeshRefinements(p, sizes, Coordinates(mesh));
    }
    EXPECT_EQ(Read(Dir() / "proj.refine.pos"), direct);
    // Without a background object the call writes the field itself again.
    std::filesystem::remove(Dir() / "proj.refine.pos");
    writer.WriteMeshRefinements(p, sizes, Coordinates(mesh));
    EXPECT_EQ(Read(Dir() / "proj.refine.pos"), direct);
}

TEST_F(SolverWriterTest, AProjectWithoutMesh) {
    EXPECT_THROW(CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()), {}, {}),
                 host::outcome::ProjectError);
}

TEST_F(SolverWriterTest, AnEmptyModelGivesAViewWithoutEntries) {
    Write("proj.msh", "$MeshFormat\n4.1 0 8\n$EndMeshFormat\n$Entities\n0 0 0 0\n$EndEntities\n");
    CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()), {}, {});
    EXPECT_EQ(Read(Dir() / "proj.refine.pos"), "View \"refinement\" {\n};\n");
    // Sizes for nodes the empty mesh does not have are still refused.
    EXPECT_THROW(
        CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()), {0.5}, {{0, 0, 0}}),
        std::invalid_argument);
}

// What the hook saw of one call.
struct HookCall {
    CString projectPath;
    std::vector<double> refinement;
    std::vector<CKQPoint3D> nodes;
};

host::calclink::WriteMeshRefinementsHook Recorder(std::vector<HookCall>& calls) {
    return [&calls](const CString& projectPath, const std::vector<double>& refinement,
                    const std::vector<CKQPoint3D>& nodes) {
        calls.push_back({projectPath, refinement, nodes});
    };
}

TEST_F(SolverWriterTest, TheHookReceivesTheArgumentsInsteadOfTheFile) {
    std::vector<HookCall> calls;
    // No P.msh at all, sizes that the writer would refuse: the hook takes them as they are.
    const std::vector<double> refinement = {0.5, -1.0, 0.7};
    const std::vector<CKQPoint3D> nodes = {{1, 2, 3}, {4.5, 5, 6}};
    {
        host::calclink::ScopedWriteMeshRefinementsHook hook(Recorder(calls));
        CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()), refinement, nodes);
    }
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].projectPath, CString(Project().string()));
    EXPECT_EQ(calls[0].refinement, refinement);
    ASSERT_EQ(calls[0].nodes.size(), 2u);
    EXPECT_EQ(calls[0].nodes[1].x, 4.5);
    EXPECT_EQ(calls[0].nodes[1].y, 5.0);
    EXPECT_EQ(calls[0].nodes[1].z, 6.0);
    EXPECT_TRUE(std::filesystem::is_empty(Dir()));
    // Once the scope ends the writer writes again (and here finds no mesh).
    EXPECT_THROW(
        CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()), refinement, nodes),
        host::outcome::ProjectError);
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(SolverWriterTest, ScopedHooksNestAndSetReturnsThePreviousOne) {
    std::vector<HookCall> outer;
    std::vector<HookCall> inner;
    const CString p(Project().string());
    {
        host::calclink::ScopedWriteMeshRefinementsHook first(Recorder(outer));
        {
            host::calclink::ScopedWriteMeshRefinementsHook second(Recorder(inner));
            CSolverFEMcoWriter().WriteMeshRefinements(p, {1.0}, {{0, 0, 0}});
        }
        CSolverFEMcoWriter().WriteMeshRefinements(p, {2.0}, {});
    }
    ASSERT_EQ(inner.size(), 1u);
    EXPECT_EQ(inner[0].refinement, std::vector<double>{1.0});
    ASSERT_EQ(outer.size(), 1u);
    EXPECT_EQ(outer[0].refinement, std::vector<double>{2.0});
    EXPECT_TRUE(outer[0].nodes.empty());

    auto previous = host::calclink::SetWriteMeshRefinementsHook(Recorder(outer));
    EXPECT_FALSE(previous); // nothing was left installed
    auto mine = host::calclink::SetWriteMeshRefinementsHook(nullptr);
    ASSERT_TRUE(mine);
    mine(p, {3.0}, {});
    EXPECT_EQ(outer.size(), 2u);
    EXPECT_THROW(CSolverFEMcoWriter().WriteMeshRefinements(p, {}, {}), host::outcome::ProjectError);
}

TEST_F(SolverWriterTest, WhatTheHookThrowsReachesTheCaller) {
    host::calclink::ScopedWriteMeshRefinementsHook hook(
        [](const CString&, const std::vector<double>&, const std::vector<CKQPoint3D>&) {
            throw std::runtime_error("disk full");
        });
    try {
        CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()), {}, {});
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "disk full");
    }
}

TEST_F(SolverWriterTest, WriteSizeFieldChecksTheTopology) {
    std::vector<CKQPoint3D> nodes = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    std::vector<double> sizes = {1, 1, 1};
    auto pos = Dir() / "x.pos";
    EXPECT_THROW(host::calclink::WriteSizeField(pos, {{1, 2}}, sizes, nodes),
                 std::invalid_argument);
    EXPECT_THROW(host::calclink::WriteSizeField(pos, {{1, 2, 4}}, sizes, nodes),
                 std::invalid_argument);
    EXPECT_THROW(host::calclink::WriteSizeField(pos, {{0, 1, 2}}, sizes, nodes),
                 std::invalid_argument);
    host::calclink::WriteSizeField(pos, {{1, 2, 3}}, sizes, nodes);
    EXPECT_EQ(Read(pos), "View \"refinement\" {\nST(0,0,0,1,0,0,0,1,0){1,1,1};\n};\n");
}

// The size the remeshing test asks for: fine on the left, coarse on the right, a linear
// transition between.
double TargetSize(double x) {
    constexpr double fine = 0.25;
    constexpr double coarse = 1.0;
    if (x <= 3.0)
        return fine;
    if (x >= 7.0)
        return coarse;
    return fine + (coarse - fine) * (x - 3.0) / 4.0;
}

// Mean length of the edges of `mesh` whose midpoints lie in x0 <= x <= x1.
double MeanEdgeLength(const Mesh& mesh, double x0, double x1, std::size_t& count) {
    std::set<std::pair<unsigned long, unsigned long>> edges;
    for (const auto& e : mesh.elements)
        for (std::size_t k = 0; k < e.nodes.size(); ++k) {
            unsigned long a = e.nodes[k];
            unsigned long b = e.nodes[(k + 1) % e.nodes.size()];
            edges.emplace(std::min(a, b), std::max(a, b));
        }
    double sum = 0.0;
    count = 0;
    for (const auto& [a, b] : edges) {
        const CKQPoint3D& p = mesh.nodes[a - 1].position;
        const CKQPoint3D& q = mesh.nodes[b - 1].position;
        double xm = 0.5 * (p.x + q.x);
        if (xm < x0 || xm > x1)
            continue;
        sum += (p - q).Length();
        ++count;
    }
    return count > 0 ? sum / static_cast<double>(count) : 0.0;
}

TEST_F(SolverWriterTest, GmshRemeshesFollowingTheWrittenField) {
    // The analysed mesh, size about 1 everywhere (the .geo has no size source of its own).
    Gmsh("\"" + (DataDir() / "remesh_square.geo").string() + "\" -2 -clmax 1 -format msh41 -o \"" +
         (Dir() / "proj.msh").string() + "\"");
    Mesh mesh = ReadMesh(Dir() / "proj.msh");
    ASSERT_GT(mesh.elements.size(), 50u);
    std::vector<double> sizes;
    for (const auto& n : mesh.nodes)
        sizes.push_back(TargetSize(n.position.x));
    CSolverFEMcoWriter().WriteMeshRefinements(CString(Project().string()), sizes,
                                              Coordinates(mesh));

    auto refined = Dir() / "refined.msh";
    Gmsh("\"" + (DataDir() / "remesh_square.geo").string() + "\" -2 -bgm \"" +
         (Dir() / "proj.refine.pos").string() + "\" -format msh41 -o \"" + refined.string() + "\"");
    Mesh next = ReadMesh(refined);

    std::size_t fineCount = 0;
    std::size_t coarseCount = 0;
    double fine = MeanEdgeLength(next, 0.0, 2.5, fineCount);
    double coarse = MeanEdgeLength(next, 7.5, 10.0, coarseCount);
    ASSERT_GT(fineCount, 100u);
    ASSERT_GT(coarseCount, 20u);
    RecordProperty("fine_mean_edge", std::to_string(fine));
    RecordProperty("coarse_mean_edge", std::to_string(coarse));
    // Within 30 % of each target, both ways.
    EXPECT_LE(std::fabs(fine - 0.25), 0.30 * 0.25)
        << "fine region: mean edge " << fine << " for a target of 0.25";
    EXPECT_LE(std::fabs(coarse - 1.0), 0.30 * 1.0)
        << "coarse region: mean edge " << coarse << " for a target of 1.0";
    EXPECT_GT(next.elements.size(), 2 * mesh.elements.size());
}

// Every number of the view is the shortest text that reads back as the very same double:
// extremes, subnormals, negative zero and ordinary values alike, never longer than "%.17g".
TEST_F(SolverWriterTest, NumbersAreTheShortestThatReadBackExactly) {
    const std::vector<double> values = {0.1,
                                        -0.0,
                                        1e-300,
                                        4.9e-324,
                                        2.2250738585072014e-308,
                                        1e300,
                                        -1.5e-7,
                                        12345678901234567.0,
                                        0.5,
                                        1.0 / 3.0,
                                        -2.5e22,
                                        6.02e23};
    std::vector<CKQPoint3D> nodes;
    std::vector<double> sizes;
    std::vector<std::vector<unsigned long>> elements;
    for (std::size_t i = 0; i + 2 < values.size(); i += 3) {
        nodes.emplace_back(values[i], values[i + 1], values[i + 2]);
        sizes.push_back(std::abs(values[i]) + 0.25);
    }
    for (unsigned long n = 1; n + 2 <= nodes.size(); ++n)
        elements.push_back({n, n + 1, n + 2});
    const auto file = Dir() / "numbers.pos";
    host::calclink::WriteSizeField(file, elements, sizes, nodes);

    const std::string text = Read(file);
    EXPECT_EQ(text, ShortestView(elements, sizes, nodes));
    for (const char* shortest : {"0.1,-0,1e-300", "5e-324,2.2250738585072014e-308,1e+300",
                                 "-1.5e-07,12345678901234568,0.5", "0.3333333333333333,-2.5e+22"})
        EXPECT_THAT(text, HasSubstr(shortest));
    // Read back in the C locale, each number is the double that was written.
    std::vector<double> written;
    for (std::size_t at = text.find('('); at < text.size();) {
        const std::size_t start = text.find_first_of("-0123456789", at);
        if (start == std::string::npos)
            break;
        char* end = nullptr;
        written.push_back(std::strtod(text.c_str() + start, &end));
        at = static_cast<std::size_t>(end - text.c_str());
        char printed[64];
        std::snprintf(printed, sizeof printed, "%.17g", written.back());
        EXPECT_LE(at - start, std::strlen(printed)) << text.substr(start, at - start);
    }
    std::vector<double> given;
    for (const auto& element : elements) {
        for (unsigned long n : element)
            for (double v : {nodes[n - 1].x, nodes[n - 1].y, nodes[n - 1].z})
                given.push_back(v);
        for (unsigned long n : element)
            given.push_back(sizes[n - 1]);
    }
    ASSERT_EQ(written.size(), given.size());
    for (std::size_t i = 0; i < given.size(); ++i)
        EXPECT_EQ(std::bit_cast<std::uint64_t>(written[i]), std::bit_cast<std::uint64_t>(given[i]))
            << "number " << i << ": " << given[i];
}

// A large field is formatted in blocks, two at a time on two threads: the file must still be
// the entries in element order, byte for byte, with triangles and quadrilaterals mixed, and the
// same whether the elements come as lists or as a mesh's elements.
TEST_F(SolverWriterTest, AFieldOfManyBlocksIsWrittenInElementOrder) {
    std::vector<CKQPoint3D> nodes;
    std::vector<double> sizes;
    std::uint64_t state = 5;
    auto next = [&state] {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(state >> 11) / static_cast<double>(1ULL << 53);
    };
    const unsigned long nodeCount = 1000;
    for (unsigned long n = 0; n < nodeCount; ++n) {
        nodes.emplace_back(100 * next() - 50, 1e-3 * next(), next() * 1e5);
        sizes.push_back(0.01 + next());
    }
    std::vector<std::vector<unsigned long>> elements;
    std::vector<host::outcome::MeshElement> meshElements;
    for (unsigned long e = 0; e < 20001; ++e) { // four pairs of blocks and a piece of a fifth
        std::vector<unsigned long> element;
        const unsigned long corners = e % 7 == 0 ? 3 : 4;
        for (unsigned long k = 0; k < corners; ++k)
            element.push_back(1 + (e * 13 + k * 101) % nodeCount);
        elements.push_back(element);
        host::outcome::MeshElement m;
        m.nodes = element;
        meshElements.push_back(m);
    }
    const std::string expected = ShortestView(elements, sizes, nodes);
    const auto lists = Dir() / "lists.pos";
    host::calclink::WriteSizeField(lists, elements, sizes, nodes);
    EXPECT_TRUE(Read(lists) == expected) << "the file differs from the entries in order";
    const auto mesh = Dir() / "mesh.pos";
    host::calclink::WriteMeshSizeField(mesh, meshElements, sizes, nodes);
    EXPECT_TRUE(Read(mesh) == expected);
}

} // namespace
