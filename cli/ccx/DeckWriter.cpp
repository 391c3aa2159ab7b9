#include "cli/ccx/DeckWriter.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <locale>
#include <map>
#include <sstream>

namespace slabadapt::ccx {

namespace {

class Deck {
public:
    Deck(const ProjectMesh& mesh, const host::outcome::ProjectData& data,
         const DeckOptions& options)
        : m_mesh(mesh), m_data(data), m_options(options), m_setNames(NodeSetNames(mesh)),
          m_toml(ProjectFile(mesh.project, ".toml").string()) {}

    void Write(std::ostream& out) const {
        out << "** CalculiX deck of " << m_mesh.project.filename().string()
            << ", written by slabadapt from " << m_mesh.project.filename().string() << ".toml\n";
        if (!m_data.title.empty())
            out << "** " << m_data.title << '\n';
        out << "*INCLUDE, INPUT=" << m_options.meshPart << '\n';
        WriteMaterials(out);
        WriteSupports(out);
        std::vector<const host::outcome::LoadCaseData*> cases;
        for (const auto& lc : m_data.loadCases)
            if (!lc.IsCombination()) // derived from its components' results, not solved
                cases.push_back(&lc);
        std::sort(cases.begin(), cases.end(),
                  [](const auto* a, const auto* b) { return a->index < b->index; });
        for (const auto* lc : cases)
            WriteStep(*lc, out);
    }

private:
    bool Shell() const { return m_options.family == InpFamily::Shell; }

    [[noreturn]] void Fail(std::size_t line, const std::string& message) const {
        throw ImportError(m_toml + (line > 0 ? ":" + std::to_string(line) : std::string()) + ": " +
                          message);
    }

    // The zero-based mesh slab of a P.toml tag; -1 when the mesh has none.
    long SlabOfTag(int tag) const {
        for (std::size_t s = 0; s < m_mesh.slabs.size(); ++s)
            if (m_mesh.slabs[s].physicalTag == tag)
                return static_cast<long>(s);
        return -1;
    }

    const host::outcome::SlabData* SlabData(std::size_t s) const {
        for (const auto& slab : m_data.slabs)
            if (slab.tag == m_mesh.slabs[s].physicalTag)
                return &slab;
        return nullptr;
    }

    // The node groups of P.msh named `name` (a curve and a point may share a name).
    std::vector<std::size_t> Groups(const std::string& name, std::size_t line,
                                    const std::string& what) const {
        std::vector<std::size_t> found;
        for (std::size_t g = 0; g < m_mesh.nodeGroups.size(); ++g)
            if (m_mesh.nodeGroups[g].name == name)
                found.push_back(g);
        if (found.empty()) {
            std::string names;
            for (const auto& group : m_mesh.nodeGroups)
                if (!group.name.empty())
                    names += (names.empty() ? "" : ", ") + ("\"" + group.name + "\"");
            Fail(line, what + " names the group \"" + name +
                           "\", which is no physical curve or point of " +
                           ProjectFile(m_mesh.project, ".msh").string() +
                           (names.empty() ? std::string(" (it has none with a name)")
                                          : " (it has " + names + ")"));
        }
        return found;
    }

    void WriteMaterials(std::ostream& out) const {
        for (std::size_t s = 0; s < m_mesh.slabs.size(); ++s) {
            const auto* slab = SlabData(s);
            const std::string set = "SLAB" + std::to_string(s + 1);
            const std::size_t line = slab != nullptr ? slab->line : 0;
            const std::string which = "slab " + std::to_string(m_mesh.slabs[s].physicalTag);
            if (slab == nullptr || !slab->young || !slab->poisson)
                Fail(line, which + " has no young and poisson: the solver needs its material");
            out << "** " << which
                << (m_mesh.slabs[s].name.empty() ? std::string()
                                                 : " \"" + m_mesh.slabs[s].name + "\"")
                << "\n*MATERIAL, NAME=M" << set << "\n*ELASTIC\n"
                << CcxNumber(*slab->young) << ", " << CcxNumber(*slab->poisson) << '\n';
            if (slab->density)
                out << "*DENSITY\n" << CcxNumber(*slab->density) << '\n';
            out << (Shell() ? "*SHELL SECTION" : "*SOLID SECTION") << ", ELSET=" << set
                << ", MATERIAL=M" << set << '\n'
                << CcxNumber(slab->thickness) << '\n';
        }
    }

    void WriteSupports(std::ostream& out) const {
        if (m_data.supports.empty())
            return;
        out << "*BOUNDARY\n";
        for (const auto& support : m_data.supports) {
            std::vector<int> dofs;
            for (int d : support.dofs)
                if (Shell() || d <= 2) // plane-stress elements have ux and uy only
                    dofs.push_back(d);
            for (std::size_t g : Groups(support.group, support.line, "a [[support]]")) {
                out << "** support of \"" << support.group << "\"\n";
                // Runs of consecutive degrees of freedom in one line each.
                for (std::size_t i = 0; i < dofs.size();) {
                    std::size_t j = i;
                    while (j + 1 < dofs.size() && dofs[j + 1] == dofs[j] + 1)
                        ++j;
                    out << m_setNames[g] << ", " << dofs[i] << ", " << dofs[j] << '\n';
                    i = j + 1;
                }
            }
        }
    }

    void WriteStep(const host::outcome::LoadCaseData& lc, std::ostream& out) const {
        const std::string name = "load case " + std::to_string(lc.id);
        out << "** " << name << " (index " << lc.index << ")"
            << (lc.name.empty() ? std::string() : ": " + lc.name) << "\n*STEP\n*STATIC\n";
        std::ostringstream dload;
        for (const auto& p : lc.pressure) {
            if (!Shell())
                Fail(lc.line, "the pressure of " + name +
                                  " needs shell elements; a plane-stress deck takes line and "
                                  "point loads only");
            const long s = SlabOfTag(p.slab);
            if (s < 0)
                Fail(lc.line, "the pressure of " + name + " is on slab " + std::to_string(p.slab) +
                                  ", which P.msh does not have");
            dload << "SLAB" << s + 1 << ", P, " << CcxNumber(-p.value) << '\n';
        }
        if (lc.selfWeight) {
            if (!Shell())
                Fail(lc.line, "the self weight of " + name +
                                  " acts along -z, across a plane-stress model: it needs shell "
                                  "elements");
            for (std::size_t s = 0; s < m_mesh.slabs.size(); ++s) {
                const auto* slab = SlabData(s);
                if (slab == nullptr || !slab->density)
                    Fail(slab != nullptr ? slab->line : lc.line,
                         "slab " + std::to_string(m_mesh.slabs[s].physicalTag) +
                             " has no density, which the self weight of " + name + " needs");
                dload << "SLAB" << s + 1 << ", GRAV, " << CcxNumber(lc.g) << ", 0., 0., -1.\n";
            }
        }
        // OP=NEW: loads carry over into the next step in CalculiX unless a step replaces them,
        // so every step starts from none and each load case stands alone.
        out << "*DLOAD, OP=NEW\n" << dload.str();
        WriteNodalLoads(lc, name, out);
        out << "*EL PRINT, ELSET=EALL\nS, E, COORD\n";
        if (m_options.printDisplacements)
            out << "*NODE PRINT, NSET=NALL\nU\n";
        out << "*END STEP\n";
    }

    // Line loads lumped onto the curve's nodes (half of each segment's share to either end, exact
    // for the linear elements along it) and point loads, summed per node.
    void WriteNodalLoads(const host::outcome::LoadCaseData& lc, const std::string& name,
                         std::ostream& out) const {
        std::map<std::size_t, std::array<double, 3>> forces;
        for (const auto& load : lc.lineLoads)
            for (std::size_t g : Groups(load.group, lc.line, "a line_load of " + name)) {
                const NodeGroup& group = m_mesh.nodeGroups[g];
                if (group.dimension != 1)
                    Fail(lc.line, "a line_load of " + name + " is on \"" + load.group +
                                      "\", a physical point: a line load needs a curve");
                for (const auto& [a, b] : group.segments) {
                    const auto& p = m_mesh.nodes[a];
                    const auto& q = m_mesh.nodes[b];
                    const double length = std::hypot(q[0] - p[0], q[1] - p[1], q[2] - p[2]);
                    for (std::size_t c = 0; c < 3; ++c) {
                        forces[a][c] += 0.5 * length * load.value[c];
                        forces[b][c] += 0.5 * length * load.value[c];
                    }
                }
            }
        for (const auto& load : lc.pointLoads)
            for (std::size_t g : Groups(load.group, lc.line, "a point_load of " + name)) {
                const NodeGroup& group = m_mesh.nodeGroups[g];
                if (group.dimension != 0)
                    Fail(lc.line, "a point_load of " + name + " is on \"" + load.group +
                                      "\", a physical curve: a point load needs points");
                for (std::size_t n : group.nodes)
                    for (std::size_t c = 0; c < 3; ++c)
                        forces[n][c] += load.value[c];
            }
        out << "*CLOAD, OP=NEW\n";
        for (const auto& [node, f] : forces)
            for (std::size_t c = 0; c < 3; ++c)
                if (f[c] != 0.0 && (Shell() || c < 2))
                    out << node + 1 << ", " << c + 1 << ", " << CcxNumber(f[c]) << '\n';
    }

    const ProjectMesh& m_mesh;
    const host::outcome::ProjectData& m_data;
    const DeckOptions& m_options;
    std::vector<std::string> m_setNames;
    std::string m_toml;
};

} // namespace

void WriteDeck(const ProjectMesh& mesh, const host::outcome::ProjectData& data,
               const DeckOptions& options, std::ostream& out) {
    Deck(mesh, data, options).Write(out);
}

void WriteDeckFile(const std::filesystem::path& project, const std::filesystem::path& file,
                   const DeckOptions& options) {
    const ProjectMesh mesh = ReadProject(project);
    host::outcome::ProjectData data;
    try {
        data = host::outcome::ReadProjectData(ProjectFile(project, ".toml"));
    } catch (const host::outcome::ProjectError& e) {
        throw ImportError(e.what());
    }
    std::ostringstream text;
    text.imbue(std::locale::classic());
    WriteDeck(mesh, data, options, text);
    std::ofstream out(file);
    if (!out)
        throw WriteError(file.string() + ": cannot write the CalculiX deck");
    out << text.str();
    out.flush();
    if (!out)
        throw WriteError(file.string() + ": error while writing the CalculiX deck");
}

} // namespace slabadapt::ccx
