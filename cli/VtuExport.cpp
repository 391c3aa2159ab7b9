#include "cli/VtuExport.h"

#include "cli/StoredResults.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>

namespace slabadapt::cli {

namespace {

// The Float64 arrays are written in VTK's inline binary form, because ASCII has no spelling of
// NaN (a cell without a stored value) that every VTK XML reader accepts, and because it keeps
// every value exactly. The form: base64 of one stream made of the byte count of the values
// (an integer of the file's header_type, UInt64) followed by the values, all in the file's
// byte order (little-endian).
constexpr const char* kHeaderType = "UInt64";

void AppendLittleEndian(std::string& bytes, std::uint64_t value) {
    for (int i = 0; i < 8; ++i)
        bytes += static_cast<char>((value >> (8 * i)) & 0xFFu);
}

std::string Base64(std::string_view bytes) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t n = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = (group << 8) | (k < n ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= n ? kDigits[(group >> (18 - 6 * k)) & 0x3Fu] : '=';
    }
    return text;
}

// One Float64 DataArray; `attributes` go between the type and the format.
void WriteFloat64Array(std::ostream& out, const std::string& attributes,
                       const std::vector<double>& values) {
    std::string bytes;
    bytes.reserve(8 * (values.size() + 1));
    AppendLittleEndian(bytes, 8 * static_cast<std::uint64_t>(values.size()));
    for (const double v : values)
        AppendLittleEndian(bytes, std::bit_cast<std::uint64_t>(v));
    out << "        <DataArray type=\"Float64\" " << attributes << " format=\"binary\">\n"
        << "          " << Base64(bytes) << "\n"
        << "        </DataArray>\n";
}

constexpr int kVtkTriangle = 5;
constexpr int kVtkQuad = 9;

} // namespace

void WriteVtu(const std::filesystem::path& file, const host::outcome::Mesh& mesh,
              const std::vector<std::array<double, 4>>& elementColumns,
              const std::vector<double>& nodalSizes,
              const std::vector<std::pair<std::string, std::vector<double>>>& extraCellArrays) {
    std::ofstream out(file, std::ios::binary);
    if (!out)
        throw std::runtime_error("cannot write " + file.string());
    out << "<?xml version=\"1.0\"?>\n"
        << "<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\" "
           "header_type=\""
        << kHeaderType << "\">\n"
        << "  <UnstructuredGrid>\n"
        << "    <Piece NumberOfPoints=\"" << mesh.nodes.size() << "\" NumberOfCells=\""
        << mesh.elements.size() << "\">\n";

    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> values(mesh.nodes.size(), nan);
    for (std::size_t n = 0; n < values.size() && n < nodalSizes.size(); ++n)
        values[n] = nodalSizes[n];
    out << "      <PointData Scalars=\"nodal_size\">\n";
    WriteFloat64Array(out, "Name=\"nodal_size\"", values);
    out << "      </PointData>\n";

    out << "      <CellData Scalars=\"local_error\">\n"
        << "        <DataArray type=\"Int32\" Name=\"slab\" format=\"ascii\">\n";
    for (const auto& e : mesh.elements)
        out << "          " << e.slab << '\n';
    out << "        </DataArray>\n";
    for (std::size_t c = 0; c < kColumns.size(); ++c) {
        values.assign(mesh.elements.size(), nan);
        for (std::size_t e = 0; e < values.size() && e < elementColumns.size(); ++e)
            values[e] = elementColumns[e][c];
        WriteFloat64Array(out, std::string("Name=\"") + kColumns[c].name + '"', values);
    }
    for (const auto& [name, array] : extraCellArrays) {
        values.assign(mesh.elements.size(), nan);
        for (std::size_t e = 0; e < values.size() && e < array.size(); ++e)
            values[e] = array[e];
        WriteFloat64Array(out, "Name=\"" + name + '"', values);
    }
    out << "      </CellData>\n";

    values.clear();
    for (const auto& n : mesh.nodes) {
        values.push_back(n.position.x);
        values.push_back(n.position.y);
        values.push_back(n.position.z);
    }
    out << "      <Points>\n";
    WriteFloat64Array(out, "NumberOfComponents=\"3\"", values);
    out << "      </Points>\n";

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
