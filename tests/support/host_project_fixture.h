#pragma once
// The fixture of the host kit's tests: a fresh folder per test, files written into it, the
// test data folder, and the real Gmsh.
#include "tests/support/files.h"
#include "tests/support/near.h"
#include "tests/support/temp_dir.h"

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

inline fs::path DataDir() {
    return SourceDir() / "tests" / "data";
}

using slabadapt::test::Near;

class ProjectFixture : public ::testing::Test {
protected:
    fs::path Dir() const { return m_dir.path(); }
    fs::path Project(const std::string& name = "proj") const { return Dir() / name; }

    fs::path Write(const std::string& name, const std::string& content) const {
        fs::path file = Dir() / name;
        slabadapt::test::WriteText(file, content);
        return file;
    }

    static std::string Read(const fs::path& file) { return slabadapt::test::ReadText(file); }

    // Runs the real Gmsh; the test fails when it is missing or fails.
    void Gmsh(const std::string& arguments) const {
        fs::path log = Dir() / "gmsh.log";
        std::string command = "gmsh " + arguments + " > \"" + log.string() + "\" 2>&1";
        int rc = std::system(command.c_str());
        ASSERT_EQ(rc, 0) << command << "\n" << Read(log);
    }

    // Meshes a .geo of the test data into `target` as MSH "4.1" or "2.2".
    void MeshGeo(const std::string& geo, const fs::path& target, const std::string& version) const {
        std::string format = version == "2.2" ? "msh22" : "msh41";
        Gmsh("\"" + (DataDir() / geo).string() + "\" -2 -format " + format + " -o \"" +
             target.string() + "\"");
    }

private:
    slabadapt::test::TempDir m_dir{"host"};
};

} // namespace hosttest
