#pragma once
// The project's mesh and settings as the CalculiX importer and the input-deck writer need
// them, read by the host kit (host/outcome) so that the numbering is the project's own:
//   slabs 1..S in ascending physical-surface tag,
//   elements 1..M slab by slab, within a slab in ascending Gmsh element tag,
//   nodes 1..N in ascending Gmsh node tag (nodes that no slab element uses have no number).
// Added here: the nodes of P.msh's physical curves and points, which a CalculiX deck uses for
// its boundary conditions and loads.
// Indices in these structures are zero-based (element e here is project element e + 1).

#include <array>
#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace slabadapt::ccx {

/// A malformed or inconsistent project, or a results file that does not fit it.
/// The message names the file (and line or element) and what was expected.
class ImportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file that cannot be written (STRINTG files, the CalculiX part).
class WriteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct MeshElement {
    std::vector<std::size_t> nodes; ///< zero-based project node indices, in the file's order
    std::size_t slab = 0;           ///< zero-based slab index
    long gmshTag = 0;
};

struct Slab {
    int physicalTag = 0;
    std::string name; ///< from P.toml, else the physical name, else empty
    double thickness = 0.0;
    std::size_t firstElement = 0; ///< zero-based index of its first element
    std::size_t elementCount = 0;
};

struct LoadCase {
    long id = 0;
    long index = 0; ///< one-based: selects P.STRINTG<index>
    bool valid = true;
    std::string name;
};

/// Nodes of a physical curve or point: boundary conditions and loads of a deck refer to them.
struct NodeGroup {
    int dimension = 0;
    int physicalTag = 0;
    std::string name;               ///< the physical name, empty when the group has none
    std::vector<std::size_t> nodes; ///< zero-based, ascending, unique
    /// A curve's line elements (end nodes, zero-based) whose nodes slab elements use.
    std::vector<std::array<std::size_t, 2>> segments;
};

struct ProjectMesh {
    std::filesystem::path project; ///< P, the path without extension
    std::string title;
    std::vector<std::array<double, 3>> nodes;
    std::vector<MeshElement> elements;
    std::vector<Slab> slabs;
    std::vector<LoadCase> loadCases; ///< in ascending load-case index
    std::vector<NodeGroup> nodeGroups;

    double ElementArea(std::size_t element) const;
    std::array<double, 3> ElementCentroid(std::size_t element) const;
    double Thickness(std::size_t element) const { return slabs[elements[element].slab].thickness; }
};

/// P + suffix, e.g. ProjectFile("/x/plate", ".msh") = "/x/plate.msh".
std::filesystem::path ProjectFile(const std::filesystem::path& project, const std::string& suffix);

/// Reads P.msh and P.toml (which must exist). Throws ImportError naming the file and line.
ProjectMesh ReadProject(const std::filesystem::path& project);

/// Reads P.msh and, when it exists, P.toml; without it slabs have thickness 0 and there are
/// no load cases.
ProjectMesh ReadProjectMesh(const std::filesystem::path& project);

} // namespace slabadapt::ccx
