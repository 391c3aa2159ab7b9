#pragma once
// Whole files as strings, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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

} // namespace slabadapt::test
