#pragma once
// The project on disk, P: the mesh P.msh (Gmsh MSH ASCII 4.1 or 2.2) and the solver data
// P.toml, read into one model with the project's numbering:
//   - slabs 1..S in ascending physical surface tag;
//   - elements 1..M slab by slab, within a slab in ascending Gmsh element tag, so that every
//     slab owns one contiguous range;
//   - nodes 1..N in ascending Gmsh node tag, counting the nodes that slab elements use (nodes
//     no slab element uses are left out).
// STRINTG element numbers and P.GAR element ids are these numbers.
#include "host/shapekit/point3d.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace host::outcome {

// A project that cannot be read. what() is the whole message "file:line: text"; the parts are
// kept for callers that present them otherwise. line is 0 when the error has no line.
class ProjectError : public std::runtime_error {
public:
    ProjectError(std::filesystem::path file, std::size_t line, const std::string& message);

    const std::filesystem::path& file() const { return m_file; }
    std::size_t line() const { return m_line; }
    const std::string& message() const { return m_message; }

private:
    std::filesystem::path m_file;
    std::size_t m_line;
    std::string m_message;
};

struct MeshNode {
    std::uint64_t gmshTag = 0;
    CKQPoint3D position;
};

struct MeshElement {
    std::uint64_t gmshTag = 0;
    int gmshType = 0;                 // 2 = 3-node triangle, 3 = 4-node quadrilateral
    std::vector<unsigned long> nodes; // one-based project node ids, in Gmsh's node order
    unsigned long slab = 0;           // one-based slab id
};

struct MeshSlab {
    int physicalTag = 0;
    std::string physicalName;       // from $PhysicalNames, "" when none
    unsigned long firstElement = 0; // one-based id of its first element
    unsigned long elementCount = 0;
};

// The mesh in project numbering: nodes[i] is node i+1, elements[i] element i+1, slabs[i] slab
// i+1.
struct Mesh {
    std::string formatVersion; // "4.1" or "2.2", as read
    std::vector<MeshNode> nodes;
    std::vector<MeshElement> elements;
    std::vector<MeshSlab> slabs;

    // Area of element id (one-based): a triangle half the norm of the cross product of two
    // edges, a quadrilateral half the norm of the cross product of its diagonals.
    double ElementArea(unsigned long id) const;
};

// Reads P.msh. Throws ProjectError naming the file and line for: a file that cannot be opened,
// an unknown MSH version or a binary file, a malformed or truncated section, an element type
// other than 3-node triangles and 4-node quadrilaterals inside a physical surface (second-order
// and volume elements; in version 4.1 lines or points in a surface's block), an element that
// references a missing
// node, a surface element in no physical surface (or in several), a node tag defined twice,
// non-finite coordinates, and a mesh without any physical surface.
//
// With EmptyMesh::Accept, a mesh without any element and without any physical surface (what
// Gmsh saves for an empty model; version 4.1 then has no $Nodes and $Elements sections) is read
// as a mesh with no nodes, elements or slabs instead. Only LoadProject decides whether such a
// mesh is a model; everything else about the file is checked as before.
enum class EmptyMesh { Refuse, Accept };
Mesh ReadMesh(const std::filesystem::path& mshFile, EmptyMesh empty = EmptyMesh::Refuse);

struct SlabData {
    int tag = 0; // physical surface tag in P.msh
    std::string name;
    double thickness = 0.0;
    // The material, for a solver deck; any consistent unit system.
    std::optional<double> young;   // Young's modulus, positive
    std::optional<double> poisson; // Poisson's ratio, in (-1, 0.5)
    std::optional<double> density; // mass per volume, for self weight
    std::size_t line = 0;          // where it was defined in P.toml
};

// A support: the degrees of freedom fixed at the nodes of a named physical curve or point.
struct SupportData {
    std::string group;     // a physical curve or point name of the geometry
    std::vector<int> dofs; // ascending, unique, 1..6 = ux uy uz rx ry rz
    std::size_t line = 0;
};

// A distributed load on a slab: force per area.
struct PressureLoad {
    int slab = 0; // the slab's tag
    double value = 0.0;
};

// A load on a named group: force per length on a curve, force on each point of a point group.
struct GroupLoad {
    std::string group;
    std::array<double, 3> value{}; // global x, y, z components
};

struct LoadCaseData {
    long id = 0;    // the host's load-case identifier
    long index = 0; // one-based: selects P.STRINTG0001 ...
    bool valid = true;
    std::string name;
    // What a solver deck applies in this load case.
    bool selfWeight = false; // gravity along -z
    double g = 9.81;         // the acceleration of gravity for selfWeight
    std::vector<PressureLoad> pressure;
    std::vector<GroupLoad> lineLoads;
    std::vector<GroupLoad> pointLoads;
    // A combination of other load cases: (component id, factor), in ascending id. Its STRINTG
    // file is the factored sum of the components' (host/outcome/combinations.h).
    std::vector<std::pair<long, double>> combination;
    std::size_t line = 0;

    bool IsCombination() const { return !combination.empty(); }

    bool HasLoads() const {
        return selfWeight || !pressure.empty() || !lineLoads.empty() || !pointLoads.empty();
    }
};

struct ProjectData {
    std::string title;
    std::vector<SlabData> slabs; // in file order
    std::vector<SupportData> supports;
    std::vector<LoadCaseData> loadCases;
};

// Reads P.toml. Throws ProjectError for a TOML syntax error, a missing or wrongly typed key
// (slab tag, thickness; load case id, index), a thickness that is not a positive finite
// number, an index below 1, duplicate slab tags, load-case ids or indices, and unknown keys.
// A file without any [[slab]] is read (no slabs); LoadProject accepts it for an empty mesh only.
ProjectData ReadProjectData(const std::filesystem::path& tomlFile);

// P.msh and P.toml together; the slabs of P.toml must be exactly the physical surfaces.
struct Project {
    std::filesystem::path path; // P, without extension
    Mesh mesh;
    std::optional<ProjectData> data; // empty when P.toml does not exist

    // Thickness of slab id (one-based); std::logic_error without P.toml.
    double SlabThickness(unsigned long slabId) const;
    // The P.toml entry of slab id, null without P.toml.
    const SlabData* SlabDataOf(unsigned long slabId) const;
};

// P + suffix, e.g. ProjectFile(P, ".msh").
std::filesystem::path ProjectFile(const std::filesystem::path& projectPath,
                                  const std::string& suffix);

// Reads P.msh and, when it exists, P.toml, and checks that every physical surface has a slab
// entry and the reverse. A P.msh without elements and physical surfaces together with a P.toml
// that lists no [[slab]] is an empty model (no nodes, elements or slabs); an empty P.msh without
// P.toml, or with slabs in P.toml, is refused. Throws ProjectError.
Project LoadProject(const std::filesystem::path& projectPath);

// The project as LoadProject reads it, read once per process and shared: the check, the result
// store, the size-field writer and the command's summary borrow one model instead of parsing
// P.msh and P.toml each. The last project read is kept while P.msh and P.toml are unchanged
// (same size and modification time; a file written since is read again). Throws as
// LoadProject does.
std::shared_ptr<const Project> SharedProject(const std::filesystem::path& projectPath);

enum class MshVersion { V41, V22 };

// Writes the mesh in project numbering (node tags 1..N, element tags 1..M, one surface entity
// per slab with the slab id as its tag and the slab's physical tag), so that solvers and
// importers produce files that match the project's element numbers. Throws std::runtime_error
// when the file cannot be written.
void WriteMesh(const Mesh& mesh, const std::filesystem::path& mshFile, MshVersion version);

} // namespace host::outcome
