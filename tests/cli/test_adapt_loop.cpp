// slabadapt adapt end to end, with the real Gmsh and CalculiX, on the cantilever strip of
// tests/data (a few hundred elements, well under a second a cycle): the loop reaches the
// target, keeps a record of every cycle, resumes after the last complete one, and stops with
// its documented codes.
#include "cli/ExitCodes.h"
#include "tests/support/example_project.h"

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using fixture::Outcome;
using fixture::Quote;
using fixture::Shell;

class AdaptLoop : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* suffix : {".geo", ".toml"})
            fs::copy_file(fixture::SourceDir() / "tests" / "data" / (std::string("strip") + suffix),
                          m_dir / (std::string("strip") + suffix));
    }

    Outcome Adapt(const std::string& arguments) {
        return Shell("cd " + Quote(m_dir.path()) + " && " + Quote(SLABADAPT_EXECUTABLE) +
                     " adapt strip " + arguments);
    }

    fs::path Record() const { return m_dir / "strip.adapt"; }
    std::vector<std::string> HistoryRows() const {
        return fixture::Lines(fixture::ReadFile(Record() / "history.csv"));
    }

    slabadapt::test::TempDir m_dir{"adapt"};
};

TEST_F(AdaptLoop, ReachesTheTargetAndKeepsEveryCycle) {
    const Outcome o = Adapt("--target 0.1 --load-case 1 --h0 0.5");
    ASSERT_EQ(o.code, 0) << o.out << o.err;
    EXPECT_NE(o.out.find("stop: the global error"), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("is within the target 10 %"), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("report: strip.adapt/report.html"), std::string::npos) << o.out;

    const auto rows = HistoryRows();
    ASSERT_GE(rows.size(), 3u) << "the header and at least two cycles";
    EXPECT_EQ(rows[0].rfind("cycle,elements,nodes,global_error,", 0), 0u) << rows[0];
    for (std::size_t i = 1; i < rows.size(); ++i) {
        const fs::path cycle = Record() / ("cycle-0" + std::to_string(i));
        for (const char* file :
             {"strip.msh", "strip.inp", "strip_mesh.inp", "ccx.log", "strip.STRINTG0001",
              "strip.STRINTG0002", "strip.GAR", "strip.refine.pos", "gmsh.log", "mesh.geo"})
            EXPECT_TRUE(fs::exists(cycle / file)) << cycle / file;
    }
    // The first mesh is uniform (h0), later ones follow the size field and have more elements.
    const auto first = fixture::ReadFile(Record() / "cycle-01" / "mesh.geo");
    EXPECT_NE(first.find("Mesh.MeshSizeMax = 0.5;"), std::string::npos) << first;
    const auto second = fixture::ReadFile(Record() / "cycle-02" / "mesh.geo");
    EXPECT_NE(second.find("Mesh.MeshSizeFromPoints = 0;"), std::string::npos) << second;
    EXPECT_LT(std::stoul(rows[1].substr(2)), std::stoul(rows[2].substr(2)));

    const std::string json = fixture::ReadFile(Record() / "history.json");
    for (const char* key : {"\"cycles\": [", "\"cycle\": 1", "\"elements\": ", "\"nodes\": ",
                            "\"global_error\": ", "\"stop\": {\"reason\": \"target\""})
        EXPECT_NE(json.find(key), std::string::npos) << key << "\n" << json;
    const std::string report = fixture::ReadFile(Record() / "report.html");
    EXPECT_NE(report.find("<svg id=\"mesh-cycle-1\""), std::string::npos);
    EXPECT_NE(report.find("final mesh, cycle"), std::string::npos);
    // The project's own files are left as they were.
    EXPECT_FALSE(fs::exists(m_dir / "strip.msh"));
    EXPECT_FALSE(fs::exists(m_dir / "strip.GAR"));

    // Resuming a record that met its target does nothing more.
    const Outcome again = Adapt("--target 0.1 --load-case 1 --resume");
    EXPECT_EQ(again.code, 0) << again.err;
    EXPECT_NE(again.out.find("nothing to do"), std::string::npos) << again.out;
    EXPECT_EQ(HistoryRows().size(), rows.size());

    // `report` writes the page again from the record.
    fs::remove(Record() / "report.html");
    const Outcome report2 =
        Shell("cd " + Quote(m_dir.path()) + " && " + Quote(SLABADAPT_EXECUTABLE) + " report strip");
    EXPECT_EQ(report2.code, 0) << report2.err;
    EXPECT_TRUE(fs::exists(Record() / "report.html"));
}

TEST_F(AdaptLoop, StopsAtMaxCyclesAndResumesAfterTheLastCompleteCycle) {
    const Outcome o = Adapt("--target 0.01 --load-case 2 --h0 1 --max-cycles 1");
    ASSERT_EQ(o.code, slabadapt::cli::kExitAdaptMaxCycles) << o.out << o.err;
    EXPECT_NE(o.out.find("(--max-cycles 1)"), std::string::npos) << o.out;
    EXPECT_EQ(HistoryRows().size(), 2u);

    // Without --resume or --fresh an existing record is not touched.
    const Outcome refused = Adapt("--target 0.01 --load-case 2");
    EXPECT_EQ(refused.code, slabadapt::cli::kExitUsage);
    EXPECT_NE(refused.err.find("--resume continues it, --fresh starts again"), std::string::npos)
        << refused.err;

    // A cycle that a killed run left half done is not taken for a complete one.
    fs::create_directories(Record() / "cycle-02");
    fixture::WriteFile(Record() / "cycle-02" / "strip.msh", "half written");
    const Outcome resumed = Adapt("--target 0.01 --load-case 2 --max-cycles 2 --resume");
    ASSERT_EQ(resumed.code, slabadapt::cli::kExitAdaptMaxCycles) << resumed.out << resumed.err;
    EXPECT_NE(resumed.out.find("resuming after cycle 1"), std::string::npos) << resumed.out;
    const auto rows = HistoryRows();
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[2].rfind("2,", 0), 0u) << rows[2];
    EXPECT_NE(fixture::ReadFile(Record() / "cycle-02" / "strip.msh"), "half written");

    // --fresh keeps the earlier record aside.
    const Outcome fresh = Adapt("--target 0.5 --load-case 2 --h0 1 --fresh");
    EXPECT_EQ(fresh.code, 0) << fresh.err;
    EXPECT_TRUE(fs::exists(m_dir / "strip.adapt.1" / "history.csv"));
}

TEST_F(AdaptLoop, StopsBeforeAMeshLargerThanMaxElements) {
    const Outcome o = Adapt("--target 0.01 --load-case 1 --h0 1 --max-elements 20");
    ASSERT_EQ(o.code, slabadapt::cli::kExitAdaptMaxElements) << o.out << o.err;
    EXPECT_NE(o.out.find("more than --max-elements 20"), std::string::npos) << o.out;
    EXPECT_EQ(HistoryRows().size(), 2u) << "no mesh beyond the limit was made";
    EXPECT_FALSE(fs::exists(Record() / "cycle-02"));
}

TEST_F(AdaptLoop, AMissingOrFailingToolIsNamedWithItsLog) {
    const Outcome missing = Adapt("--target 0.1 --load-case 1 --ccx /no/such/ccx");
    EXPECT_EQ(missing.code, slabadapt::cli::kExitToolFailed);
    EXPECT_NE(missing.err.find("/no/such/ccx cannot be found"), std::string::npos) << missing.err;

    // A solver that runs but fails: its exit code, the cycle and the log are named.
    fixture::WriteFile(m_dir / "fake-ccx", "#!/bin/sh\necho '*ERROR in the deck'\nexit 201\n");
    fs::permissions(m_dir / "fake-ccx", fs::perms::owner_all);
    const Outcome failing =
        Adapt("--target 0.1 --load-case 1 --h0 1 --ccx " + Quote(m_dir / "fake-ccx"));
    EXPECT_EQ(failing.code, slabadapt::cli::kExitToolFailed);
    EXPECT_NE(failing.err.find("failed to solve"), std::string::npos) << failing.err;
    EXPECT_NE(failing.err.find("(exit 201) in cycle 1: see"), std::string::npos) << failing.err;
    EXPECT_NE(failing.err.find("cycle-01/ccx.log"), std::string::npos) << failing.err;
    EXPECT_NE(fixture::ReadFile(Record() / "history.json").find("\"reason\": \"failed\""),
              std::string::npos);
}

TEST_F(AdaptLoop, GradationMeshesTheNextCycleWithTheGradedFieldAndKeepsTheModulesOwn) {
    const Outcome o = Adapt("--target 0.02 --load-case 1 --h0 0.5 --gradation 1.3 --max-cycles 2");
    ASSERT_EQ(o.code, slabadapt::cli::kExitAdaptMaxCycles) << o.out << o.err;
    const fs::path first = Record() / "cycle-01";
    ASSERT_TRUE(fs::exists(first / "strip.graded.pos"));
    EXPECT_TRUE(fs::exists(first / "strip.refine.pos"));
    EXPECT_NE(fixture::ReadFile(first / "strip.refine.pos"),
              fixture::ReadFile(first / "strip.graded.pos"));
    EXPECT_NE(fixture::ReadFile(Record() / "cycle-02" / "gmsh.log").find("strip.graded.pos"),
              std::string::npos);
}

TEST_F(AdaptLoop, ADeckCommandWritesEachCyclesDeck) {
    fixture::WriteFile(m_dir / "deck.inp", "*INCLUDE, INPUT=strip_mesh.inp\n*MATERIAL, NAME=M\n"
                                           "*ELASTIC\n3e10, 0.2\n*SHELL SECTION, ELSET=EALL, "
                                           "MATERIAL=M\n0.2\n*BOUNDARY\nCLAMP, 1, 6\n*STEP\n"
                                           "*STATIC\n*DLOAD\nEALL, P, -1000\n*EL PRINT, "
                                           "ELSET=EALL\nS, E, COORD\n*END STEP\n*STEP\n*STATIC\n"
                                           "*DLOAD, OP=NEW\n*EL PRINT, ELSET=EALL\nS, E, COORD\n"
                                           "*END STEP\n");
    const Outcome o = Adapt("--target 0.1 --load-case 1 --h0 0.5 --deck-command "
                            "'cp ../../deck.inp \"$SLABADAPT_P.inp\"'");
    ASSERT_EQ(o.code, 0) << o.out << o.err;
    EXPECT_EQ(fixture::ReadFile(Record() / "cycle-01" / "strip.inp"),
              fixture::ReadFile(m_dir / "deck.inp"));

    const Outcome failing = Adapt("--target 0.1 --load-case 1 --fresh --deck-command 'exit 3'");
    EXPECT_EQ(failing.code, slabadapt::cli::kExitToolFailed);
    EXPECT_NE(failing.err.find("the deck command did not write strip.inp (exit 3) in cycle 1"),
              std::string::npos)
        << failing.err;
}

TEST_F(AdaptLoop, EachGoesOnUntilEveryLoadCaseMeetsTheTargetOnTheEnvelopesMesh) {
    const Outcome o = Adapt("--target 0.1 --each --h0 0.5");
    ASSERT_EQ(o.code, 0) << o.out << o.err;
    EXPECT_NE(o.out.find("for every pass of the envelope of load cases 1, 2"), std::string::npos)
        << o.out;
    const std::string json = fixture::ReadFile(Record() / "history.json");
    EXPECT_NE(json.find("\"passes\": [{\"load_case\": 1, \"global_error\": "), std::string::npos)
        << json;
    // The last cycle's largest pass error is its global error and within the target; every
    // cycle before had a pass above it.
    const auto rows = HistoryRows();
    ASSERT_GE(rows.size(), 3u);
    const fs::path last = Record() / ("cycle-0" + std::to_string(rows.size() - 1));
    const Outcome store = Shell("sqlite3 " + Quote(last / "strip.GAR") +
                                " \"SELECT value FROM gar_info WHERE key = 'envelope_load_cases';"
                                " SELECT count(*) FROM gar_results WHERE envelope = 2;\"");
    EXPECT_EQ(store.out, "1,2\n1\n") << store.err;
}

TEST_F(AdaptLoop, AProjectThatCannotMakeADeckIsRefusedWithTheReason) {
    fixture::WriteFile(m_dir / "strip.toml",
                       "[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 1\nindex = 1\n");
    const Outcome o = Adapt("--target 0.1 --load-case 1 --h0 1");
    EXPECT_EQ(o.code, slabadapt::cli::kExitDataError) << o.out << o.err;
    EXPECT_NE(o.err.find("slab 1 has no young and poisson"), std::string::npos) << o.err;
    // A record without a complete cycle keeps nothing worth a --resume or --fresh.
    const Outcome again = Adapt("--target 0.1 --load-case 1 --h0 1");
    EXPECT_EQ(again.code, slabadapt::cli::kExitDataError) << again.err;

    const Outcome unknown = Adapt("--target 0.1 --load-case 9");
    EXPECT_EQ(unknown.code, slabadapt::cli::kExitDataError);
    EXPECT_NE(unknown.err.find("has no load case 9"), std::string::npos) << unknown.err;

    fs::remove(m_dir / "strip.geo");
    const Outcome noGeo = Adapt("--target 0.1 --load-case 1");
    EXPECT_EQ(noGeo.code, slabadapt::cli::kExitNoInput);
    EXPECT_NE(noGeo.err.find("strip.geo does not exist"), std::string::npos) << noGeo.err;
}

} // namespace
