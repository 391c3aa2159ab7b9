// How a test is written here: copy this file next to the code's mirror folder under tests/
// (tests/host/outcome/ for host/outcome/, ...), rename it test_<what>.cpp, and list it in that
// folder's CMakeLists.txt with slabadapt_test(...) (it then runs in `ctest` of every preset).
//
// The rules, each shown below:
//   - One behaviour per test, named as a sentence: Suite.WhatHappensWhenSomething.
//   - Files in a fresh folder (slabadapt::test::TempDir), never in the source tree or a fixed path.
//   - Floating-point values through slabadapt::test::Near with a stated tolerance; it compares
//     symmetrically and prints both values and both tolerances when it fails.
//   - A failure message says what was expected and what was found: stream the context into the
//     assertion (`<< "element " << e`), so the log alone explains the failure.
//   - Numbers from exact reasoning, not copied from a run: the area below is 12 because the
//     quadrilateral is 4 x 3.
#include "host/outcome/project.h"
#include "tests/support/files.h"
#include "tests/support/near.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

namespace {

using slabadapt::test::Near;

// A fixture when several tests share a set-up; a plain TEST otherwise.
class TemplateTest : public ::testing::Test {
protected:
    // A one-element project: a 4 x 3 quadrilateral in slab 1, 0.2 thick.
    void SetUp() override {
        slabadapt::test::WriteText(m_dir / "p.msh", "$MeshFormat\n2.2 0 8\n$EndMeshFormat\n"
                                                    "$Nodes\n4\n1 0 0 0\n2 4 0 0\n3 4 3 0\n"
                                                    "4 0 3 0\n$EndNodes\n$Elements\n1\n"
                                                    "1 3 2 1 1 1 2 3 4\n$EndElements\n");
        slabadapt::test::WriteText(m_dir / "p.toml", "[[slab]]\ntag = 1\nthickness = 0.2\n");
    }

    slabadapt::test::TempDir m_dir{"template"};
};

TEST_F(TemplateTest, AQuadrilateralsAreaIsHalfTheCrossProductOfItsDiagonals) {
    const host::outcome::Project project = host::outcome::LoadProject(m_dir / "p");
    ASSERT_EQ(project.mesh.elements.size(), 1u); // ASSERT when the rest would make no sense
    EXPECT_TRUE(Near(12.0, project.mesh.ElementArea(1), 1e-12, 1e-12));
}

TEST_F(TemplateTest, AMissingMeshIsReportedWithTheFileName) {
    std::filesystem::remove(m_dir / "p.msh");
    try {
        host::outcome::LoadProject(m_dir / "p");
        FAIL() << "a project without P.msh was opened";
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("p.msh"), std::string::npos) << e.what();
    }
}

} // namespace
