// Reading CalculiX's *EL PRINT output and picking the increment that ends each step.

#include "cli/ccx/DatFile.h"
#include "cli/ccx/ProjectMesh.h"
#include "tests/support/ccx.h"

using namespace slabadapt::ccx;

namespace {

const char* kTwoTimes = R"(
 displacements (vx,vy,vz) for set NALL and time  0.1000000E+01

         1  1.000000E+00  2.000000E+00  3.000000E+00

 stresses (elem, integ.pnt.,sxx,syy,szz,sxy,sxz,syz) for set EALL and time  0.1000000E+01

         7   1  1.0E+00  2.0E+00  3.0E+00  4.0E+00  5.0E+00  6.0E+00 _shell_0000000007   
         7   2 -1.0E+00 -2.0E+00 -3.0E+00 -4.0E+00 -5.0E+00 -6.0E+00 _shell_0000000007   

 strains (elem, integ.pnt.,exx,eyy,ezz,exy,exz,eyz) for set EALL and time  0.1000000E+01

         7   1  1.1E-03  1.2E-03  1.3E-03  1.4E-03  1.5E-03  1.6E-03 _shell_0000000007   
         7   2  2.1E-03  2.2E-03  2.3E-03  2.4E-03  2.5E-03  2.6E-03 _shell_0000000007   

 global coordinates (elem, integ.pnt.,x,y,z) for set EALL and time  0.1000000E+01

         7   1  1.000000E-01  2.000000E-01 -3.000000E-02
         7   2  1.000000E-01  2.000000E-01  3.000000E-02

 stresses (elem, integ.pnt.,sxx,syy,szz,sxy,sxz,syz) for set EALL and time  0.2000000E+01

         7   1  9.0E+00  0.0E+00  0.0E+00  0.0E+00  0.0E+00  0.0E+00
)";

} // namespace

TEST(DatFile, ReadsStressStrainAndCoordinatesGroupedByTime) {
    ccxtest::TempDir dir;
    ccxtest::WriteText(dir / "job.dat", kTwoTimes);
    const auto inc = ReadDat(dir / "job.dat");
    ASSERT_EQ(inc.size(), 2u);
    EXPECT_EQ(inc[0].time, 1.0);
    EXPECT_EQ(inc[1].time, 2.0);
    ASSERT_EQ(inc[0].elements.size(), 1u); // the displacement block is skipped
    const DatElement& e = inc[0].elements.at(7);
    ASSERT_EQ(e.stress.size(), 2u);
    ASSERT_EQ(e.strain.size(), 2u);
    ASSERT_EQ(e.coords.size(), 2u);
    EXPECT_EQ(e.stress[1][5], -6.0);
    EXPECT_EQ(e.strain[0][3], 1.4e-3);
    EXPECT_EQ(e.coords[1][2], 0.03);
    EXPECT_EQ(e.orientation, "_shell_0000000007");
    EXPECT_EQ(inc[1].elements.at(7).stress[0][0], 9.0);
    EXPECT_TRUE(inc[1].elements.at(7).orientation.empty());
}

TEST(DatFile, MalformedRowNamesFileAndLine) {
    ccxtest::TempDir dir;
    ccxtest::WriteText(dir / "bad.dat",
                       "\n stresses (elem, integ.pnt.,sxx,syy,szz,sxy,sxz,syz) for set EALL and "
                       "time  0.1000000E+01\n\n         1   1  1.0E+00  2.0E+00\n");
    try {
        ReadDat(dir / "bad.dat");
        FAIL() << "no error";
    } catch (const ImportError& e) {
        EXPECT_NE(std::string(e.what()).find("bad.dat:4"), std::string::npos) << e.what();
    }
}

TEST(DatFile, OverlappingElementSetsAreReported) {
    ccxtest::TempDir dir;
    const std::string header = " stresses (elem, integ.pnt.,sxx,syy,szz,sxy,sxz,syz) for set S%d "
                               "and time  0.1000000E+01\n";
    std::string text = "\n" + header + "\n 1 1 1 2 3 4 5 6\n 1 2 1 2 3 4 5 6\n\n" + header +
                       "\n 1 1 1 2 3 4 5 6\n";
    ccxtest::WriteText(dir / "twice.dat", text);
    EXPECT_THROW(ReadDat(dir / "twice.dat"), ImportError);
}

TEST(DatFile, MissingFileIsAnError) {
    EXPECT_THROW(ReadDat("/nonexistent/job.dat"), ImportError);
    EXPECT_TRUE(ReadSta("/nonexistent/job.sta").empty());
}

TEST(DatFile, StaSummarySelectsTheLastIncrementOfEachStep) {
    ccxtest::TempDir dir;
    ccxtest::WriteText(dir / "job.sta",
                       "SUMMARY OF JOB INFORMATION\n"
                       "  STEP      INC     ATT  ITRS     TOT TIME     STEP TIME      INC TIME\n"
                       "     1          1     1     1  0.500000E+00  0.500000E+00  0.500000E+00\n"
                       "     1          2     1     1  0.100000E+01  0.100000E+01  0.500000E+00\n"
                       "     2          1     1     1  0.200000E+01  0.100000E+01  0.100000E+01\n");
    const auto steps = ReadSta(dir / "job.sta");
    ASSERT_EQ(steps.size(), 2u);
    EXPECT_EQ(steps[0].step, 1);
    EXPECT_EQ(steps[0].totalTime, 1.0);
    EXPECT_EQ(steps[1].totalTime, 2.0);

    std::vector<DatIncrement> inc(3);
    inc[0].time = 0.5;
    inc[1].time = 1.0;
    inc[2].time = 2.0;
    const auto selected = SelectSteps(inc, steps);
    ASSERT_EQ(selected.size(), 2u);
    EXPECT_EQ(selected[0], &inc[1]);
    EXPECT_EQ(selected[1], &inc[2]);

    // Without a summary every printed increment counts as a step.
    EXPECT_EQ(SelectSteps(inc, {}).size(), 3u);
    // A step whose end was not printed is an error.
    inc.pop_back();
    EXPECT_THROW(SelectSteps(inc, steps), ImportError);
}
