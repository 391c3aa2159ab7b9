#include "cli/VtuExport.h"

#include "cli/StoredResults.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace slabadapt::cli {

namespace {

// Full precision; VTK reads "nan" for a cell that holds no value.
void WriteNumber(std::ofstream& out, double value) {
    if (std::isnan(value)) {
        out << "nan";
        return;
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", value);
    out << buffer;
}

constexpr int kVtkTriangle = 5;
constexpr int kVtkQuad = 9;

} // namespace

void WriteVtu(const std::filesystem::path& file, const host::outcome::Mesh& mesh,
              const std::vector<std::array<double, 4>>& elementColumns,
              const std::vector<double>& nodalSizes) {
    std::ofstream out(file, std::ios::binary);
    if (!out)
        throw std::runtime_error("cannot write " + file.string());
    out << "<?xml version=\"1.0\"?>\n"
        << "<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\" "
           "header_type=\"UInt64\">\n"
        << "  <UnstructuredGrid>\n"
        << "    <Piece NumberOfPoints=\"" << mesh.nodes.size() << "\" NumberOfCells=\""
        << mesh.elements.size() << "\">\n";

    out << "      <PointData Scalars=\"nodal_size\">\n"
        << "        <DataArray type=\"Float64\" Name=\"nodal_size\" format=\"ascii\">\n";
    for (std::size_t n = 0; n < mesh.nodes.size(); ++n) {
        out << "          ";
        WriteNumber(out, n < nodalSizes.size() ? nodalSizes[n] : std::nan(""));
        out << '\n';
    }
    out << "        </DataArray>\n      </PointData>\n";

    out << "      <CellData Scalars=\"local_error\">\n"
        << "        <DataArray type=\"Int32\" Name=\"slab\" format=\"ascii\">\n";
    for (const auto& e : mesh.elements)
        out << "          " << e.slab << '\n';
    out << "        </DataArray>\n";
    for (std::size_t c = 0; c < kColumns.size(); ++c) {
        out << "        <DataArray type=\"Float64\" Name=\"" << kColumns[c].name
            << "\" format=\"ascii\">\n";
        for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
            out << "          ";
            WriteNumber(out, e < elementColumns.size() ? elementColumns[e][c] : std::nan(""));
            out << '\n';
        }
        out << "        </DataArray>\n";
    }
    out << "      </CellData>\n";

    out << "      <Points>\n"
        << "        <DataArray type=\"Float64\" NumberOfComponents=\"3\" format=\"ascii\">\n";
    for (const auto& n : mesh.nodes) {
        out << "          ";
        WriteNumber(out, n.position.x);
        out << ' ';
        WriteNumber(out, n.position.y);
        out << ' ';
        WriteNumber(out, n.position.z);
        out << '\n';
    }
    out << "        </DataArray>\n      </Points>\n";

    out << "      <Cells>\n"
        << "        <DataArray type=\"Int64\" Name=\"connectivity\" format=\"ascii\">\n";
    for (const auto& e : mesh.elements) {
        out << "         ";
        for (unsigned long n : e.nodes)
            out << ' ' << (n - 1);
        out << '\n';
    }
    out << "        </DataArray>\n"
        << "        <DataArray type=\"Int64\" Name=\"offsets\" format=\"ascii\">\n";
    std::size_t offset = 0;
    for (const auto& e : mesh.elements) {
        offset += e.nodes.size();
        out << "          " << offset << '\n';
    }
    out << "        </DataArray>\n"
        << "        <DataArray type=\"UInt8\" Name=\"types\" format=\"ascii\">\n";
    for (const auto& e : mesh.elements)
        out << "          " << (e.nodes.size() == 3 ? kVtkTriangle : kVtkQuad) << '\n';
    out << "        </DataArray>\n      </Cells>\n"
        << "    </Piece>\n  </UnstructuredGrid>\n</VTKFile>\n";
    out.close();
    if (!out)
        throw std::runtime_error("cannot write " + file.string());
}

} // namespace slabadapt::cli
