#pragma once
// Helpers of the CalculiX importer tests: running the real CalculiX (ccx, Debian package
// calculix-ccx); the scratch folder, files and comparison are the shared ones.

#include "tests/support/files.h"
#include "tests/support/near.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace ccxtest {

using slabadapt::test::ReadText;
using slabadapt::test::TempDir;
using slabadapt::test::WriteText;

/// Runs `ccx -i job` in `dir`; fails the test (with CalculiX's output) when it does not end
/// with a results file.
inline void RunCcx(const std::filesystem::path& dir, const std::string& job) {
    const std::string cmd =
        "cd '" + dir.string() + "' && ccx -i " + job + " > " + job + ".log 2>&1";
    const int rc = std::system(cmd.c_str());
    const std::string log = ReadText(dir / (job + ".log"));
    ASSERT_EQ(rc, 0) << "ccx failed:\n" << log;
    ASSERT_EQ(log.find("*ERROR"), std::string::npos) << log;
    ASSERT_TRUE(std::filesystem::exists(dir / (job + ".dat"))) << log;
}

/// The shared comparison with the arguments in this suite's order (actual first).
inline ::testing::AssertionResult Close(double actual, double expected, double abs, double rel) {
    return slabadapt::test::Near(expected, actual, abs, rel);
}

} // namespace ccxtest
