#include "cli/ccx/InpWriter.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <locale>
#include <set>
#include <vector>

namespace slabadapt::ccx {

namespace {

/// Twice the signed area in the x-y plane (positive: anticlockwise seen from +z).
double SignedArea2(const ProjectMesh& mesh, const MeshElement& e) {
    double a = 0.0;
    for (std::size_t i = 0; i < e.nodes.size(); ++i) {
        const auto& p = mesh.nodes[e.nodes[i]];
        const auto& q = mesh.nodes[e.nodes[(i + 1) % e.nodes.size()]];
        a += p[0] * q[1] - q[0] * p[1];
    }
    return a;
}

/// Writes `items` as comma-separated data lines of at most 16 entries (CalculiX's limit).
template <class Range> void WriteList(std::ostream& out, const Range& items) {
    std::size_t k = 0;
    for (const auto& item : items) {
        out << (k % 16 == 0 ? (k == 0 ? "" : ",\n") : ", ") << item;
        ++k;
    }
    if (k)
        out << '\n';
}

} // namespace

std::string CcxNumber(double v) {
    if (v == 0.0)
        v = 0.0; // no "-0"
    char buf[40];
    const auto r = std::to_chars(buf, buf + sizeof buf, v); // shortest round trip, any locale
    if (r.ptr - buf <= kCcxFieldWidth)
        return std::string(buf, r.ptr);
    // CalculiX refuses a field of more than 20 characters: as many digits as fit.
    for (int digits = 16; digits > 1; --digits) {
        const auto p = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, digits);
        if (p.ptr - buf <= kCcxFieldWidth)
            return std::string(buf, p.ptr);
    }
    return std::string(buf, r.ptr);
}

std::string NodeSetName(const NodeGroup& group) {
    if (group.name.empty())
        return (group.dimension == 1 ? "CURVE" : "POINT") + std::to_string(group.physicalTag);
    std::string name;
    for (unsigned char c : group.name)
        name += std::isalnum(c) ? static_cast<char>(std::toupper(c)) : '_';
    if (!std::isalpha(static_cast<unsigned char>(name[0])))
        name = "N" + name;
    return name.substr(0, 80);
}

std::vector<std::string> NodeSetNames(const ProjectMesh& mesh) {
    std::set<std::string> used;
    std::vector<std::string> names;
    for (const auto& group : mesh.nodeGroups) {
        std::string name = NodeSetName(group);
        while (!used.insert(name).second || name == "NALL")
            name += "_" + std::to_string(group.physicalTag);
        names.push_back(name);
    }
    return names;
}

void WriteInp(const ProjectMesh& mesh, InpFamily family, std::ostream& out) {
    out << "** Written by slabadapt export --inp"
        << (mesh.project.empty() ? std::string() : " from " + mesh.project.filename().string())
        << ": nodes and elements in the project's numbering.\n"
        << "** Element sets SLAB1..SLAB" << mesh.slabs.size()
        << " are the slabs; EALL holds every element, NALL every node.\n";
    out << "*NODE, NSET=NALL\n";
    for (std::size_t i = 0; i < mesh.nodes.size(); ++i)
        out << i + 1 << ", " << CcxNumber(mesh.nodes[i][0]) << ", " << CcxNumber(mesh.nodes[i][1])
            << ", " << CcxNumber(mesh.nodes[i][2]) << '\n';

    const char* tri = family == InpFamily::Shell ? "S3" : "CPS3";
    const char* quad = family == InpFamily::Shell ? "S4" : "CPS4";
    std::size_t e = 0;
    while (e < mesh.elements.size()) {
        // One *ELEMENT block per run of equal node count (mixed slabs give several).
        const std::size_t corners = mesh.elements[e].nodes.size();
        out << "*ELEMENT, TYPE=" << (corners == 3 ? tri : quad) << '\n';
        for (; e < mesh.elements.size() && mesh.elements[e].nodes.size() == corners; ++e) {
            const auto& elem = mesh.elements[e];
            std::vector<std::size_t> n = elem.nodes;
            if (SignedArea2(mesh, elem) < 0.0)
                std::reverse(n.begin() + 1, n.end());
            out << e + 1;
            for (std::size_t node : n)
                out << ", " << node + 1;
            out << '\n';
        }
    }
    for (std::size_t s = 0; s < mesh.slabs.size(); ++s) {
        const auto& slab = mesh.slabs[s];
        out << "** slab " << s + 1 << ": physical surface " << slab.physicalTag
            << (slab.name.empty() ? std::string() : " \"" + slab.name + "\"");
        if (slab.thickness > 0.0)
            out << ", thickness " << CcxNumber(slab.thickness);
        out << "\n*ELSET, ELSET=SLAB" << s + 1 << ", GENERATE\n"
            << slab.firstElement + 1 << ", " << slab.firstElement + slab.elementCount << ", 1\n";
    }
    out << "*ELSET, ELSET=EALL\n";
    std::vector<std::string> slabSets;
    for (std::size_t s = 0; s < mesh.slabs.size(); ++s)
        slabSets.push_back("SLAB" + std::to_string(s + 1));
    WriteList(out, slabSets);

    const std::vector<std::string> names = NodeSetNames(mesh);
    for (std::size_t g = 0; g < mesh.nodeGroups.size(); ++g) {
        const NodeGroup& group = mesh.nodeGroups[g];
        const std::string& name = names[g];
        out << "** " << (group.dimension == 1 ? "physical curve " : "physical point ")
            << group.physicalTag << (group.name.empty() ? std::string() : " \"" + group.name + "\"")
            << "\n*NSET, NSET=" << name << '\n';
        std::vector<std::size_t> numbers;
        for (std::size_t n : group.nodes)
            numbers.push_back(n + 1);
        WriteList(out, numbers);
    }
}

void ExportInp(const std::filesystem::path& project, const std::filesystem::path& file,
               InpFamily family) {
    const ProjectMesh mesh = ReadProjectMesh(project);
    std::ofstream out(file);
    if (!out)
        throw WriteError(file.string() + ": cannot write the CalculiX input file");
    out.imbue(std::locale::classic());
    WriteInp(mesh, family, out);
    out.flush();
    if (!out)
        throw WriteError(file.string() + ": error while writing the CalculiX input file");
}

} // namespace slabadapt::ccx
