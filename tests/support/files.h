#pragma once
// Whole files as strings, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace slabadapt::test {

// Writes `text` to `file`, replacing it; fails the test when it cannot.
inline void WriteText(const std::filesystem::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out << text;
    ASSERT_TRUE(out.good()) << "cannot write " << file;
}

// The file's bytes; empty when it cannot be read.
inline std::string ReadText(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The names in `folder` that are temporary files of a writer (".tmp" in the name): a writer
// that has ended, well or not, leaves none.
inline std::vector<std::string> TemporaryFilesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ec))
        if (entry.path().filename().string().find(".tmp") != std::string::npos)
            names.push_back(entry.path().filename().string());
    return names;
}

} // namespace slabadapt::test
