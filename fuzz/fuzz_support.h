#pragma once
// What every fuzz target shares: a scratch folder in memory where the input becomes a file,
// and the rule for exceptions. A reader may refuse its input by throwing a std::exception with a
// message; an allocation failure (std::bad_alloc, std::length_error) means a count from the
// file was trusted, and anything else thrown is a bug: both abort, which the fuzzer reports.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace slabadapt::fuzz {

// A folder of this process, in memory where the machine has /dev/shm.
inline const std::filesystem::path& ScratchFolder() {
    static const std::filesystem::path folder = [] {
        std::error_code ec;
        const std::filesystem::path base = std::filesystem::is_directory("/dev/shm", ec)
                                               ? "/dev/shm"
                                               : std::filesystem::temp_directory_path();
        std::filesystem::path f = base / ("slabadapt-fuzz-" + std::to_string(::getpid()));
        std::filesystem::create_directories(f);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(ScratchFolder(), ignored);
        });
        return f;
    }();
    return folder;
}

inline void WriteBytes(const std::filesystem::path& file, const std::uint8_t* data,
                       std::size_t size) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

inline void WriteBytes(const std::filesystem::path& file, const std::string& text) {
    WriteBytes(file, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

[[noreturn]] inline void Finding(const char* what, const char* detail) {
    std::fprintf(stderr, "fuzz finding: %s: %s\n", what, detail);
    std::abort();
}

// Runs a reader on the input: a refusal with a message is fine, the rest is a finding.
template <typename Read> void Refusable(Read read) {
    try {
        read();
    } catch (const std::bad_alloc& e) {
        Finding("an allocation failed (a count from the file was trusted)", e.what());
    } catch (const std::length_error& e) {
        Finding("a length beyond the container's range (a count from the file was trusted)",
                e.what());
    } catch (const std::exception& e) {
        if (std::string(e.what()).empty())
            Finding("a refusal without a message", typeid(e).name());
    } catch (...) {
        Finding("something that is no std::exception was thrown", "");
    }
}

// A small valid model: two quadrilaterals and a triangle on one slab (P.msh) with its data
// (P.toml), for targets whose input is one of the other files of a project.
inline constexpr const char* kSmallMesh = R"($MeshFormat
2.2 0 8
$EndMeshFormat
$PhysicalNames
1
2 1 "slab"
$EndPhysicalNames
$Nodes
7
1 0 0 0
2 1 0 0
3 2 0 0
4 0 1 0
5 1 1 0
6 2 1 0
7 1 2 0
$EndNodes
$Elements
3
1 3 2 1 1 1 2 5 4
2 3 2 1 1 2 3 6 5
3 2 2 1 1 4 5 7
$EndElements
)";

inline constexpr const char* kSmallData = R"(title = "fuzz"
[[slab]]
tag = 1
name = "slab"
thickness = 0.2
young = 3.0e10
poisson = 0.2
[[load_case]]
id = 1
index = 1
name = "one"
)";

} // namespace slabadapt::fuzz
