#pragma once
// Helpers of the end-to-end and command tests: temporary project folders, projects meshed with
// the real Gmsh, STRINTG files from the example's generator, and running programs.
//
// The including target defines SLABADAPT_SOURCE_DIR, GMSH_EXECUTABLE and PYTHON_EXECUTABLE
// (and SLABADAPT_EXECUTABLE for the command's tests).
#include "tests/support/near.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace fixture {

namespace fs = std::filesystem;

inline fs::path SourceDir() {
    return fs::path(SLABADAPT_SOURCE_DIR);
}
inline fs::path ExampleDir() {
    return SourceDir() / "examples" / "floor";
}

using slabadapt::test::TempDir;

inline std::string Quote(const fs::path& p) {
    std::string quoted = "'";
    for (char c : p.string())
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

inline std::string ReadFile(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void WriteFile(const fs::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out << text;
}

inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

inline void WriteLines(const fs::path& file, const std::vector<std::string>& lines) {
    std::ofstream out(file, std::ios::binary);
    for (const auto& l : lines)
        out << l << '\n';
}

struct Outcome {
    bool exited = false; // false: ended by a signal (a crash)
    int code = -1;
    std::string out;
    std::string err;
};

// Runs a shell command with its standard output and error captured.
inline Outcome Shell(const std::string& command) {
    static int counter = 0;
    const fs::path base =
        fs::temp_directory_path() /
        ("slabadapt-run-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
    const fs::path out = base.string() + ".out", err = base.string() + ".err";
    const int status = std::system((command + " >" + Quote(out) + " 2>" + Quote(err)).c_str());
    Outcome o;
    o.exited = WIFEXITED(status);
    o.code = o.exited ? WEXITSTATUS(status) : -1;
    o.out = ReadFile(out);
    o.err = ReadFile(err);
    std::error_code ec;
    fs::remove(out, ec);
    fs::remove(err, ec);
    return o;
}

// Copies the example project's files (P = dir/floor).
inline fs::path CopyExample(const fs::path& dir) {
    for (const char* suffix : {".geo", ".msh", ".toml", ".STRINTG0001", ".STRINTG0002"})
        fs::copy_file(ExampleDir() / (std::string("floor") + suffix),
                      dir / (std::string("floor") + suffix), fs::copy_options::overwrite_existing);
    return dir / "floor";
}

// Meshes P.geo with Gmsh into P.msh (MSH 4.1).
inline void Mesh(const fs::path& project) {
    const Outcome o = Shell(std::string(GMSH_EXECUTABLE) + " " + Quote(project.string() + ".geo") +
                            " -2 -format msh41 -o " + Quote(project.string() + ".msh"));
    ASSERT_EQ(o.code, 0) << o.out << o.err;
}

// Writes P.STRINTG<index> for every load case of P.toml with the example's generator.
inline void GenerateStrintg(const fs::path& project, const std::string& field) {
    const Outcome o =
        Shell(std::string(PYTHON_EXECUTABLE) + " " + Quote(ExampleDir() / "make_strintg.py") + " " +
              Quote(project) + " --field " + field);
    ASSERT_EQ(o.code, 0) << o.out << o.err;
}

// The patch-test project: a square of 4 x 4 quadrilaterals in the plane z = 0 (slab 1) and,
// sharing its edge x = 2, a tilted rectangle of 4 x 4 x 2 triangles (slab 2); one load case,
// id 7, index 3.
inline fs::path MakePatchProject(const fs::path& dir) {
    const fs::path p = dir / "patch";
    WriteFile(p.string() + ".geo",
              R"(// Two flat slabs meeting at an edge, uniform structured meshes.
Point(1) = {0, 0, 0}; Point(2) = {2, 0, 0}; Point(3) = {2, 2, 0}; Point(4) = {0, 2, 0};
Point(5) = {4, 0, 1}; Point(6) = {4, 2, 1};
Line(1) = {1, 2}; Line(2) = {2, 3}; Line(3) = {3, 4}; Line(4) = {4, 1};
Line(5) = {2, 5}; Line(6) = {5, 6}; Line(7) = {6, 3};
Curve Loop(1) = {1, 2, 3, 4}; Plane Surface(1) = {1};
Curve Loop(2) = {5, 6, 7, -2}; Plane Surface(2) = {2};
Transfinite Curve{1, 2, 3, 4, 5, 6, 7} = 5;
Transfinite Surface{1}; Transfinite Surface{2};
Recombine Surface{1};
Physical Surface("flat", 1) = {1};
Physical Surface("tilted", 2) = {2};
)");
    WriteFile(p.string() + ".toml", R"(title = "patch test"
[[slab]]
tag = 1
thickness = 0.2
[[slab]]
tag = 2
thickness = 0.3
[[load_case]]
id = 7
index = 3
valid = true
)");
    Mesh(p);
    GenerateStrintg(p, "linear");
    return p;
}

// A fan of `count` single-triangle surfaces round one centre point: the centre node belongs to
// `count` elements. One load case, id 1, index 1, linear fields.
inline fs::path MakeFanProject(const fs::path& dir, int count) {
    const fs::path p = dir / "fan";
    std::ostringstream geo;
    geo << "Point(1) = {0, 0, 0};\n";
    const double pi = 3.141592653589793;
    for (int k = 0; k < count; ++k)
        geo << "Point(" << 2 + k << ") = {" << std::cos(2 * pi * k / count) << ", "
            << std::sin(2 * pi * k / count) << ", 0};\n";
    for (int k = 0; k < count; ++k) {
        geo << "Line(" << 1 + k << ") = {1, " << 2 + k << "};\n";
        geo << "Line(" << 1001 + k << ") = {" << 2 + k << ", " << 2 + (k + 1) % count << "};\n";
    }
    for (int k = 0; k < count; ++k) {
        geo << "Curve Loop(" << 1 + k << ") = {" << 1 + k << ", " << 1001 + k << ", "
            << -(1 + (k + 1) % count) << "};\n";
        geo << "Plane Surface(" << 1 + k << ") = {" << 1 + k << "};\n";
    }
    geo << "Transfinite Curve{:} = 2;\nTransfinite Surface{:};\n"
        << "Physical Surface(\"fan\", 1) = {1:" << count << "};\n";
    WriteFile(p.string() + ".geo", geo.str());
    WriteFile(p.string() + ".toml",
              "[[slab]]\ntag = 1\nthickness = 0.2\n[[load_case]]\nid = 1\nindex = 1\n");
    Mesh(p);
    GenerateStrintg(p, "linear");
    return p;
}

// The values of a Gmsh list-based view (P.refine.pos): per entry its coordinates and values.
struct PosEntry {
    std::vector<double> coords;
    std::vector<double> values;
};
inline std::vector<PosEntry> ReadPos(const fs::path& file) {
    std::vector<PosEntry> entries;
    const std::string text = ReadFile(file);
    std::size_t at = 0;
    while (true) {
        const std::size_t open = text.find('(', at);
        if (open == std::string::npos || open < 2)
            break;
        const std::string tag = text.substr(open - 2, 2);
        if (tag != "ST" && tag != "SQ") {
            at = open + 1;
            continue;
        }
        const std::size_t close = text.find(')', open);
        const std::size_t brace = text.find('{', close);
        const std::size_t end = text.find('}', brace);
        PosEntry e;
        auto parse = [](const std::string& list, std::vector<double>& v) {
            std::string item;
            std::istringstream in(list);
            while (std::getline(in, item, ','))
                v.push_back(std::strtod(item.c_str(), nullptr));
        };
        parse(text.substr(open + 1, close - open - 1), e.coords);
        parse(text.substr(brace + 1, end - brace - 1), e.values);
        entries.push_back(e);
        at = end + 1;
    }
    return entries;
}

using slabadapt::test::Near;

} // namespace fixture
