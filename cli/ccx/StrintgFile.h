#pragma once
// Writer (and a reader for checks) of STRINTG files: integration-point results of one load
// case, per unit width of the slab.
//
//   line 1  title                                   (not read by the module)
//   line 2  what the values are                     (not read)
//   line 3  column header: 20 characters, then one 15-character field per column name
//   line 4  a rule                                  (not read)
//   line 5+ records: element (8 characters), point (8), then one 15-character field per column
//
// The writer always writes all nineteen columns, igx igy igz, mx my mxy qx qy nx ny nxy,
// kx ky kxy gxz gyz ex ey gxy, so every value is explicit.

#include <array>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace slabadapt::ccx {

/// One integration point: position, forces (mx, my, mxy, qx, qy, nx, ny, nxy) and
/// deformations (kx, ky, kxy, gxz, gyz, ex, ey, gxy; gxy and kxy engineering, i.e. twice
/// the tensor components, so that each deformation times its force is an energy density).
struct StrintgPoint {
    std::array<double, 3> xyz{};
    std::array<double, 8> forces{};
    std::array<double, 8> deformations{};
};

/// One element's points, in the module's order.
using StrintgElement = std::vector<StrintgPoint>;

/// "P.STRINTG0007" for load-case index 7; indices of more than four digits are written in full.
std::filesystem::path StrintgFileName(const std::filesystem::path& project, long loadCaseIndex);

/// Writes the file; element e of `elements` is written as element number e + 1.
/// `title` and `description` go to lines 1 and 2 (line ends inside them are replaced).
void WriteStrintg(const std::filesystem::path& file, std::span<const StrintgElement> elements,
                  const std::string& title, const std::string& description);

/// Reads a file written in this layout back (columns located by the header), for checks.
std::vector<StrintgElement> ReadStrintg(const std::filesystem::path& file);

} // namespace slabadapt::ccx
