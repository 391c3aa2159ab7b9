#include "cli/ccx/ProjectMesh.h"

#include "host/outcome/project.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace slabadapt::ccx {

namespace {

/// Line-counting reader of the MSH sections, so that every error names its line.
class MshReader {
public:
    explicit MshReader(const std::filesystem::path& file) : m_file(file), m_in(file) {
        if (!m_in)
            throw ImportError(file.string() + ": cannot open the mesh file");
    }

    bool NextLine(std::string& line) {
        while (std::getline(m_in, line)) {
            ++m_line;
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            if (line.find_first_not_of(" \t") != std::string::npos)
                return true;
        }
        return false;
    }

    std::string Line() {
        std::string line;
        if (!NextLine(line))
            Fail("unexpected end of file");
        return line;
    }

    std::istringstream Fields() { return std::istringstream(Line()); }

    [[noreturn]] void Fail(const std::string& what) const {
        throw ImportError(m_file.string() + ":" + std::to_string(m_line) + ": " + what);
    }

    template <class T> T Read(std::istringstream& s, const char* what) {
        T value{};
        if (!(s >> value))
            Fail(std::string("expected ") + what);
        return value;
    }

    void SkipTo(const std::string& endMarker) {
        std::string line;
        while (NextLine(line))
            if (line.rfind(endMarker, 0) == 0)
                return;
        Fail("missing " + endMarker);
    }

private:
    std::filesystem::path m_file;
    std::ifstream m_in;
    long m_line = 0;
};

struct RawElement {
    long tag = 0;
    int type = 0;
    std::vector<long> nodes;
    std::vector<int> physicals; ///< physical tags of the element (of its entity in 4.1)
    int dimension = 0;
};

struct RawMesh {
    std::map<long, std::array<double, 3>> nodes;
    std::vector<RawElement> elements;
    std::map<std::pair<int, int>, std::string> physicalNames; ///< (dim, tag) -> name
};

int ElementDimension(int type) {
    switch (type) {
    case 15:
        return 0; // point
    case 1:
    case 8:
        return 1; // lines
    case 2:
    case 3:
    case 9:
    case 10:
    case 16:
        return 2;
    default:
        return 3;
    }
}

int ElementNodeCount(MshReader& r, int type) {
    switch (type) {
    case 15:
        return 1;
    case 1:
        return 2;
    case 2:
        return 3;
    case 3:
        return 4;
    case 8:
        return 3;
    case 9:
        return 6;
    case 10:
        return 9;
    case 16:
        return 8;
    case 4:
        return 4;
    case 5:
        return 8;
    case 6:
        return 6;
    case 7:
        return 5;
    default:
        r.Fail("unsupported Gmsh element type " + std::to_string(type));
    }
}

void ReadPhysicalNames(MshReader& r, RawMesh& mesh) {
    auto head = r.Fields();
    const auto n = r.Read<long>(head, "the number of physical names");
    for (long i = 0; i < n; ++i) {
        const std::string line = r.Line();
        std::istringstream s(line);
        const int dim = r.Read<int>(s, "the dimension of a physical name");
        const int tag = r.Read<int>(s, "the tag of a physical name");
        const auto open = line.find('"');
        const auto close = line.rfind('"');
        mesh.physicalNames[{dim, tag}] = (open != std::string::npos && close > open)
                                             ? line.substr(open + 1, close - open - 1)
                                             : std::string();
    }
    r.SkipTo("$EndPhysicalNames");
}

void ReadMsh22(MshReader& r, RawMesh& mesh, const std::string& section) {
    if (section == "$Nodes") {
        auto head = r.Fields();
        const auto n = r.Read<long>(head, "the number of nodes");
        for (long i = 0; i < n; ++i) {
            auto s = r.Fields();
            const auto tag = r.Read<long>(s, "a node tag");
            std::array<double, 3> x{};
            for (auto& c : x)
                c = r.Read<double>(s, "three node coordinates");
            mesh.nodes[tag] = x;
        }
        r.SkipTo("$EndNodes");
    } else if (section == "$Elements") {
        auto head = r.Fields();
        const auto n = r.Read<long>(head, "the number of elements");
        for (long i = 0; i < n; ++i) {
            auto s = r.Fields();
            RawElement e;
            e.tag = r.Read<long>(s, "an element tag");
            e.type = r.Read<int>(s, "an element type");
            const int ntags = r.Read<int>(s, "the number of element tags");
            for (int k = 0; k < ntags; ++k) {
                const int t = r.Read<int>(s, "an element tag value");
                if (k == 0 && t != 0)
                    e.physicals.push_back(t);
            }
            e.dimension = ElementDimension(e.type);
            const int nn = ElementNodeCount(r, e.type);
            for (int k = 0; k < nn; ++k)
                e.nodes.push_back(r.Read<long>(s, "the element's nodes"));
            mesh.elements.push_back(std::move(e));
        }
        r.SkipTo("$EndElements");
    } else {
        r.SkipTo("$End" + section.substr(1));
    }
}

void ReadMsh41(MshReader& r, RawMesh& mesh, const std::string& section,
               std::map<std::pair<int, int>, std::vector<int>>& entityPhysicals) {
    if (section == "$Entities") {
        auto head = r.Fields();
        std::array<long, 4> counts{};
        for (auto& c : counts)
            c = r.Read<long>(head, "four entity counts");
        for (int dim = 0; dim < 4; ++dim) {
            for (long i = 0; i < counts[static_cast<std::size_t>(dim)]; ++i) {
                auto s = r.Fields();
                const int tag = r.Read<int>(s, "an entity tag");
                const int nbox = dim == 0 ? 3 : 6;
                for (int k = 0; k < nbox; ++k)
                    r.Read<double>(s, "the entity's bounding box");
                const long nphys = r.Read<long>(s, "the number of physical tags");
                auto& list = entityPhysicals[{dim, tag}];
                for (long k = 0; k < nphys; ++k)
                    list.push_back(r.Read<int>(s, "a physical tag"));
            }
        }
        r.SkipTo("$EndEntities");
    } else if (section == "$Nodes") {
        auto head = r.Fields();
        const auto blocks = r.Read<long>(head, "the number of node blocks");
        for (long b = 0; b < blocks; ++b) {
            auto bh = r.Fields();
            r.Read<int>(bh, "the block's entity dimension");
            r.Read<int>(bh, "the block's entity tag");
            const int parametric = r.Read<int>(bh, "the parametric flag");
            const auto n = r.Read<long>(bh, "the block's node count");
            std::vector<long> tags;
            for (long i = 0; i < n; ++i) {
                auto s = r.Fields();
                tags.push_back(r.Read<long>(s, "a node tag"));
            }
            for (long i = 0; i < n; ++i) {
                auto s = r.Fields();
                std::array<double, 3> x{};
                for (auto& c : x)
                    c = r.Read<double>(s, "three node coordinates");
                (void)parametric; // parametric coordinates follow and are not needed
                mesh.nodes[tags[static_cast<std::size_t>(i)]] = x;
            }
        }
        r.SkipTo("$EndNodes");
    } else if (section == "$Elements") {
        auto head = r.Fields();
        const auto blocks = r.Read<long>(head, "the number of element blocks");
        for (long b = 0; b < blocks; ++b) {
            auto bh = r.Fields();
            const int dim = r.Read<int>(bh, "the block's entity dimension");
            const int entity = r.Read<int>(bh, "the block's entity tag");
            const int type = r.Read<int>(bh, "the block's element type");
            const auto n = r.Read<long>(bh, "the block's element count");
            const auto it = entityPhysicals.find({dim, entity});
            const int nn = ElementNodeCount(r, type);
            for (long i = 0; i < n; ++i) {
                auto s = r.Fields();
                RawElement e;
                e.tag = r.Read<long>(s, "an element tag");
                e.type = type;
                e.dimension = dim;
                for (int k = 0; k < nn; ++k)
                    e.nodes.push_back(r.Read<long>(s, "the element's nodes"));
                if (it != entityPhysicals.end())
                    e.physicals = it->second;
                mesh.elements.push_back(std::move(e));
            }
        }
        r.SkipTo("$EndElements");
    } else {
        r.SkipTo("$End" + section.substr(1));
    }
}

RawMesh ReadRawMsh(const std::filesystem::path& file) {
    MshReader r(file);
    RawMesh mesh;
    std::string line;
    std::string version;
    std::map<std::pair<int, int>, std::vector<int>> entityPhysicals;
    while (r.NextLine(line)) {
        const auto end = line.find_last_not_of(" \t");
        const std::string section = line.substr(0, end + 1);
        if (section == "$MeshFormat") {
            auto s = r.Fields();
            version = r.Read<std::string>(s, "the MSH version");
            const int binary = r.Read<int>(s, "the file type");
            if (binary != 0)
                r.Fail("binary MSH files are not supported; save the mesh as ASCII");
            if (version != "2.2" && version.rfind("4.1", 0) != 0)
                r.Fail("unsupported MSH version " + version + " (expected 2.2 or 4.1)");
            r.SkipTo("$EndMeshFormat");
        } else if (section == "$PhysicalNames") {
            ReadPhysicalNames(r, mesh);
        } else if (!section.empty() && section[0] == '$') {
            if (version.empty())
                r.Fail("expected $MeshFormat first");
            if (version == "2.2")
                ReadMsh22(r, mesh, section);
            else
                ReadMsh41(r, mesh, section, entityPhysicals);
        } else {
            r.Fail("expected a section ($...), found '" + section + "'");
        }
    }
    if (version.empty())
        throw ImportError(file.string() + ": not a Gmsh MSH file (no $MeshFormat)");
    return mesh;
}

} // namespace

std::filesystem::path ProjectFile(const std::filesystem::path& project, const std::string& suffix) {
    return std::filesystem::path(project.string() + suffix);
}

namespace {

/// Nodes of the physical curves and points, mapped to project node indices through their
/// Gmsh tags (a node no slab element uses has no project number and is left out).
std::vector<NodeGroup> ReadNodeGroups(const std::filesystem::path& mshFile,
                                      const std::map<long, std::size_t>& nodeIndex) {
    const RawMesh raw = ReadRawMsh(mshFile);
    std::map<std::pair<int, int>, std::set<std::size_t>> groups;
    std::map<std::pair<int, int>, std::vector<std::array<std::size_t, 2>>> segments;
    for (const auto& e : raw.elements) {
        if (e.dimension >= 2)
            continue;
        for (int phys : e.physicals) {
            auto& group = groups[{e.dimension, phys}];
            for (long n : e.nodes)
                if (const auto it = nodeIndex.find(n); it != nodeIndex.end())
                    group.insert(it->second);
            if (e.dimension == 1 && e.nodes.size() >= 2) {
                const auto a = nodeIndex.find(e.nodes[0]);
                const auto b = nodeIndex.find(e.nodes[1]);
                if (a != nodeIndex.end() && b != nodeIndex.end())
                    segments[{e.dimension, phys}].push_back({a->second, b->second});
            }
        }
    }
    std::vector<NodeGroup> out;
    for (auto& [key, nodes] : groups) {
        NodeGroup g;
        g.dimension = key.first;
        g.physicalTag = key.second;
        if (auto it = raw.physicalNames.find(key); it != raw.physicalNames.end())
            g.name = it->second;
        g.nodes.assign(nodes.begin(), nodes.end());
        if (auto it = segments.find(key); it != segments.end())
            g.segments = std::move(it->second);
        out.push_back(std::move(g));
    }
    return out;
}

ProjectMesh FromHost(const host::outcome::Project& project) {
    ProjectMesh mesh;
    mesh.project = project.path;
    const auto& hm = project.mesh;
    std::map<long, std::size_t> nodeIndex;
    mesh.nodes.reserve(hm.nodes.size());
    for (const auto& n : hm.nodes) {
        nodeIndex[static_cast<long>(n.gmshTag)] = mesh.nodes.size();
        mesh.nodes.push_back({n.position.X(), n.position.Y(), n.position.Z()});
    }
    for (const auto& e : hm.elements) {
        MeshElement me;
        me.gmshTag = static_cast<long>(e.gmshTag);
        me.slab = e.slab - 1;
        for (unsigned long n : e.nodes)
            me.nodes.push_back(n - 1);
        mesh.elements.push_back(std::move(me));
    }
    for (std::size_t s = 0; s < hm.slabs.size(); ++s) {
        Slab slab;
        slab.physicalTag = hm.slabs[s].physicalTag;
        slab.name = hm.slabs[s].physicalName;
        slab.firstElement = hm.slabs[s].firstElement - 1;
        slab.elementCount = hm.slabs[s].elementCount;
        if (const auto* data = project.SlabDataOf(s + 1)) {
            slab.thickness = data->thickness;
            if (!data->name.empty())
                slab.name = data->name;
        }
        mesh.slabs.push_back(std::move(slab));
    }
    if (project.data) {
        mesh.title = project.data->title;
        // A combination is no solver's step: the host kit derives its file from its components.
        for (const auto& lc : project.data->loadCases)
            if (!lc.IsCombination())
                mesh.loadCases.push_back({lc.id, lc.index, lc.valid, lc.name});
        std::sort(mesh.loadCases.begin(), mesh.loadCases.end(),
                  [](const LoadCase& a, const LoadCase& b) { return a.index < b.index; });
    }
    mesh.nodeGroups = ReadNodeGroups(ProjectFile(project.path, ".msh"), nodeIndex);
    return mesh;
}

} // namespace

ProjectMesh ReadProjectMesh(const std::filesystem::path& project) {
    try {
        return FromHost(host::outcome::LoadProject(project));
    } catch (const host::outcome::ProjectError& e) {
        throw ImportError(e.what());
    }
}

ProjectMesh ReadProject(const std::filesystem::path& project) {
    ProjectMesh mesh = ReadProjectMesh(project);
    if (!std::filesystem::exists(ProjectFile(project, ".toml")))
        throw ImportError(ProjectFile(project, ".toml").string() +
                          ": missing; the slab thicknesses and load cases are needed");
    return mesh;
}

double ProjectMesh::ElementArea(std::size_t element) const {
    const auto& n = elements[element].nodes;
    auto sub = [&](std::size_t a, std::size_t b) {
        const auto& p = nodes[n[a]];
        const auto& q = nodes[n[b]];
        return std::array<double, 3>{p[0] - q[0], p[1] - q[1], p[2] - q[2]};
    };
    // Triangle: half the cross product of two edges; quadrilateral: of its diagonals.
    const auto u = n.size() == 3 ? sub(1, 0) : sub(2, 0);
    const auto v = n.size() == 3 ? sub(2, 0) : sub(3, 1);
    const double cx = u[1] * v[2] - u[2] * v[1];
    const double cy = u[2] * v[0] - u[0] * v[2];
    const double cz = u[0] * v[1] - u[1] * v[0];
    return 0.5 * std::sqrt(cx * cx + cy * cy + cz * cz);
}

std::array<double, 3> ProjectMesh::ElementCentroid(std::size_t element) const {
    std::array<double, 3> c{};
    const auto& n = elements[element].nodes;
    for (std::size_t i : n)
        for (int k = 0; k < 3; ++k)
            c[static_cast<std::size_t>(k)] += nodes[i][static_cast<std::size_t>(k)];
    for (auto& v : c)
        v /= static_cast<double>(n.size());
    return c;
}

} // namespace slabadapt::ccx
