#pragma once
// Shared by the host kit's tests: a fresh folder per test, files written into it, the test
// data folder, and the real Gmsh.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace hosttest {

namespace fs = std::filesystem;

inline fs::path SourceDir() {
    const char* dir = std::getenv("SLABADAPT_SOURCE_DIR");
    return dir != nullptr ? fs::path(dir) : fs::path(SLABADAPT_TEST_SOURCE_DIR);
}

inline fs::path DataDir() { return SourceDir() / "tests" / "data"; }

// Mixed absolute/relative closeness, symmetric in a and b.
inline bool Near(double a, double b, double abs = 1e-12, double rel = 1e-12) {
    return std::fabs(a - b) <= abs + rel * std::max(std::fabs(a), std::fabs(b));
}

class ProjectFixture : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        m_dir = fs::temp_directory_path() / ("slabadapt_host_" + std::to_string(::getpid()) + "_" +
                                             info->test_suite_name() + "_" + info->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override {
        if (!HasFailure())
            fs::remove_all(m_dir);
    }

    fs::path Dir() const { return m_dir; }
    fs::path Project(const std::string& name = "proj") const { return m_dir / name; }

    fs::path Write(const std::string& name, const std::string& content) const {
        fs::path file = m_dir / name;
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

    static std::string Read(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    // Runs the real Gmsh; the test fails when it is missing or fails.
    void Gmsh(const std::string& arguments) const {
        fs::path log = m_dir / "gmsh.log";
        std::string command = "gmsh " + arguments + " > \"" + log.string() + "\" 2>&1";
        int rc = std::system(command.c_str());
        ASSERT_EQ(rc, 0) << command << "\n" << Read(log);
    }

    // Meshes a .geo of the test data into `target` as MSH "4.1" or "2.2".
    void MeshGeo(const std::string& geo, const fs::path& target, const std::string& version) const {
        std::string format = version == "2.2" ? "msh22" : "msh41";
        Gmsh("\"" + (DataDir() / geo).string() + "\" -2 -format " + format + " -o \"" + target.string() + "\"");
    }

private:
    fs::path m_dir;
};

} // namespace hosttest
