#pragma once
// A fresh folder per test under the system's temporary folder, removed with the object; set
// SLABADAPT_KEEP_TEMP to keep it for a look after the run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include <unistd.h>

namespace slabadapt::test {

class TempDir {
public:
    // `tag` goes into the folder's name beside the test's name, to tell folders apart.
    explicit TempDir(const std::string& tag = "slabadapt") {
        std::random_device random;
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        std::string name = tag + "-" + std::to_string(::getpid()) + "-";
        if (info != nullptr)
            name += std::string(info->test_suite_name()) + "-" + info->name() + "-";
        for (char& c : name)
            if (c == '/')
                c = '_'; // parameterised tests have "/" in their names
        m_path = std::filesystem::temp_directory_path() / (name + std::to_string(random()));
        std::filesystem::create_directories(m_path);
    }
    ~TempDir() {
        std::error_code ec;
        if (std::getenv("SLABADAPT_KEEP_TEMP") == nullptr)
            std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

} // namespace slabadapt::test
