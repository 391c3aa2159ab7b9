#pragma once
// Helpers of the CalculiX importer tests: a scratch folder, file writing, running the real
// CalculiX (ccx, Debian package calculix-ccx) and a mixed absolute/relative comparison.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace ccxtest {

/// A fresh folder under the system's temporary directory, removed with the object.
class TempDir {
public:
    TempDir() {
        std::random_device rd;
        path_ = std::filesystem::temp_directory_path() /
                ("slabadapt_ccx_" + std::to_string(rd()) + std::to_string(rd()));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline void WriteText(const std::filesystem::path& file, const std::string& text) {
    std::ofstream out(file);
    out << text;
    ASSERT_TRUE(out.good()) << file;
}

inline std::string ReadText(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

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

/// |actual - expected| <= abs + rel * |expected|, printing both values.
inline ::testing::AssertionResult Close(double actual, double expected, double abs, double rel) {
    const double diff = std::abs(actual - expected);
    if (diff <= abs + rel * std::abs(expected) && diff <= abs + rel * std::abs(actual))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "actual " << actual << " vs expected " << expected << " (difference " << diff
           << ", tolerance abs " << abs << " rel " << rel << ")";
}

} // namespace ccxtest
