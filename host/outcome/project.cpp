#include "host/outcome/project.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unordered_map>

namespace host::outcome {

namespace {

const char* const c_noPhysicalSurface =
    "the mesh has no physical surface; define each slab as a Physical Surface";

std::string lineMessage(const std::filesystem::path& file, std::size_t line,
                        const std::string& message) {
    std::string where = file.string();
    if (line > 0)
        where += ":" + std::to_string(line);
    return where + ": " + message;
}

// What Gmsh's element types are, as far as a slab mesh needs to know: dimension, node count
// and a name for messages.
struct ElementTypeInfo {
    int dimension;
    int nodes;
    const char* name;
};

const ElementTypeInfo* elementType(int type) {
    static const std::map<int, ElementTypeInfo> types = {
        {1, {1, 2, "2-node line"}},
        {2, {2, 3, "3-node triangle"}},
        {3, {2, 4, "4-node quadrilateral"}},
        {4, {3, 4, "4-node tetrahedron"}},
        {5, {3, 8, "8-node hexahedron"}},
        {6, {3, 6, "6-node prism"}},
        {7, {3, 5, "5-node pyramid"}},
        {8, {1, 3, "3-node second-order line"}},
        {9, {2, 6, "6-node second-order triangle"}},
        {10, {2, 9, "9-node second-order quadrilateral"}},
        {11, {3, 10, "10-node second-order tetrahedron"}},
        {12, {3, 27, "27-node second-order hexahedron"}},
        {13, {3, 18, "18-node second-order prism"}},
        {14, {3, 14, "14-node second-order pyramid"}},
        {15, {0, 1, "1-node point"}},
        {16, {2, 8, "8-node second-order quadrilateral"}},
        {17, {3, 20, "20-node second-order hexahedron"}},
        {18, {3, 15, "15-node second-order prism"}},
        {19, {3, 13, "13-node second-order pyramid"}},
        {20, {2, 9, "9-node third-order incomplete triangle"}},
        {21, {2, 10, "10-node third-order triangle"}},
        {22, {2, 12, "12-node fourth-order incomplete triangle"}},
        {23, {2, 15, "15-node fourth-order triangle"}},
        {24, {2, 15, "15-node fifth-order incomplete triangle"}},
        {25, {2, 21, "21-node fifth-order triangle"}},
        {26, {1, 4, "4-node third-order line"}},
        {27, {1, 5, "5-node fourth-order line"}},
        {28, {1, 6, "6-node fifth-order line"}},
        {29, {3, 20, "20-node third-order tetrahedron"}},
        {30, {3, 35, "35-node fourth-order tetrahedron"}},
        {31, {3, 56, "56-node fifth-order tetrahedron"}},
        {36, {2, 16, "16-node third-order quadrilateral"}},
        {37, {2, 25, "25-node fourth-order quadrilateral"}},
        {38, {2, 36, "36-node fifth-order quadrilateral"}},
    };
    auto it = types.find(type);
    return it == types.end() ? nullptr : &it->second;
}

// The lines of a text file with their numbers, read token by token or line by line.
class MshLines {
public:
    explicit MshLines(const std::filesystem::path& file) : m_file(file) {
        std::ifstream in(file, std::ios::binary);
        std::error_code ec;
        if (!in)
            throw ProjectError(file, 0,
                               std::filesystem::exists(file, ec)
                                   ? "cannot open the mesh file (" +
                                         std::string(std::strerror(errno)) + ")"
                                   : std::string("cannot open the mesh file: it does not exist"));
        // The whole file in one piece, its lines views into it: no allocation per line.
        in.seekg(0, std::ios::end);
        const std::streamoff size = in.tellg();
        in.seekg(0, std::ios::beg);
        if (size > 0 && in) {
            m_text.resize(static_cast<std::size_t>(size));
            in.read(m_text.data(), size);
            m_text.resize(static_cast<std::size_t>(in.gcount()));
        } else { // no size to be had: read to the end
            in.clear();
            m_text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
        m_lines.reserve(static_cast<std::size_t>(std::count(m_text.begin(), m_text.end(), '\n')) +
                        1);
        std::size_t at = 0;
        while (at < m_text.size()) {
            const std::size_t end = m_text.find('\n', at);
            std::string_view line(m_text.data() + at,
                                  (end == std::string::npos ? m_text.size() : end) - at);
            if (!line.empty() && line.back() == '\r')
                line.remove_suffix(1);
            m_lines.push_back(line);
            if (end == std::string::npos)
                break;
            at = end + 1;
        }
    }

    [[noreturn]] void fail(std::size_t line, const std::string& message) const {
        throw ProjectError(m_file, line, message);
    }

    bool atEnd() {
        skipBlank();
        return m_next >= m_lines.size();
    }

    // The next non-blank line; `what` says what was expected when the file ends.
    std::string_view next(std::string_view what) {
        skipBlank();
        if (m_next >= m_lines.size())
            fail(m_lines.size(), "unexpected end of file: expected " + std::string(what));
        m_lineNo = m_next + 1;
        return m_lines[m_next++];
    }

    // The tokens of the next line, at least `minimum` of them.
    std::vector<std::string_view> tokens(std::string_view what, std::size_t minimum) {
        std::vector<std::string_view> out;
        tokens(out, what, minimum);
        return out;
    }
    // The same into `out`, whose storage is used again (for the lines of a long section).
    void tokens(std::vector<std::string_view>& out, std::string_view what, std::size_t minimum) {
        const std::string_view line = next(what);
        out.clear();
        std::size_t i = 0;
        while (i < line.size()) {
            while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
                ++i;
            std::size_t start = i;
            while (i < line.size() && line[i] != ' ' && line[i] != '\t')
                ++i;
            if (i > start)
                out.emplace_back(line.data() + start, i - start);
        }
        if (out.size() < minimum)
            fail(m_lineNo,
                 "expected " + std::string(what) + ", found \"" + std::string(line) + "\"");
    }

    std::size_t lineNo() const { return m_lineNo; }
    // Lines not yet read (blank ones included): a bound on what the rest of the file holds.
    std::size_t linesLeft() const { return m_lines.size() - m_next; }

    template <class Int> Int integer(std::string_view token, std::string_view what) const {
        Int value{};
        auto [end, ec] = std::from_chars(token.data(), token.data() + token.size(), value);
        if (ec != std::errc() || end != token.data() + token.size())
            fail(m_lineNo, "expected " + std::string(what) + " (an integer), found \"" +
                               std::string(token) + "\"");
        return value;
    }

    // A plain number, finite, read whole by from_chars: the usual coordinate, taken without
    // building the words a message would need.
    static bool plainReal(std::string_view token, double& value) {
        auto [end, ec] = std::from_chars(token.data(), token.data() + token.size(), value);
        return ec == std::errc() && end == token.data() + token.size() && std::isfinite(value);
    }

    double real(std::string_view token, const std::string& what) const {
        double value = 0.0;
        auto [end, ec] = std::from_chars(token.data(), token.data() + token.size(), value);
        if (ec != std::errc() || end != token.data() + token.size()) {
            // from_chars refuses a leading "+", which C's strtod (and so Gmsh) accepts.
            std::string text(token);
            char* stop = nullptr;
            value = std::strtod(text.c_str(), &stop);
            if (text.empty() || stop != text.c_str() + text.size())
                fail(m_lineNo, "expected " + what + " (a number), found \"" + text + "\"");
        }
        if (!std::isfinite(value))
            fail(m_lineNo, what + " is not a finite number: \"" + std::string(token) + "\"");
        return value;
    }

    // Skips the lines of a section up to and including its end marker.
    void skipSection(const std::string& name, std::size_t startLine) {
        const std::string end = "$End" + name;
        while (m_next < m_lines.size()) {
            m_lineNo = m_next + 1;
            if (trimmed(m_lines[m_next++]) == end)
                return;
        }
        fail(startLine, "section $" + name + " is not closed by " + end);
    }

    void expectEnd(const std::string& name) {
        const std::string_view line = next("$End" + name);
        if (trimmed(line) != "$End" + name)
            fail(m_lineNo, "expected $End" + name + ", found \"" + std::string(line) + "\"");
    }

    static std::string_view trimmed(std::string_view s) {
        while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
            s.remove_prefix(1);
        while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
            s.remove_suffix(1);
        return s;
    }

private:
    void skipBlank() {
        while (m_next < m_lines.size() && trimmed(m_lines[m_next]).empty())
            ++m_next;
    }

    std::filesystem::path m_file;
    std::string m_text;
    std::vector<std::string_view> m_lines;
    std::size_t m_next = 0;
    std::size_t m_lineNo = 0;
};

// "the coordinates of node N", what a coordinates line is called in messages, made without
// the heap (it is needed for every node and used only when the line is wrong).
class CoordinatesOf {
public:
    explicit CoordinatesOf(std::uint64_t tag) {
        constexpr std::string_view head = "the coordinates of node ";
        std::copy(head.begin(), head.end(), m_text);
        const auto result = std::to_chars(m_text + head.size(), m_text + sizeof m_text, tag);
        m_size = static_cast<std::size_t>(result.ptr - m_text);
    }
    operator std::string_view() const { return {m_text, m_size}; }

private:
    char m_text[48];
    std::size_t m_size = 0;
};

struct RawNode {
    CKQPoint3D position;
    std::size_t line;
};

// Values by Gmsh tag. Gmsh numbers nodes and elements densely from 1, so tags go to a table
// indexed by tag while they stay within a few times the number of entries read so far; other
// tags (a file numbered sparsely, or by hand) to a map. The table's bound grows with the
// entries actually read, never with a count the file announces.
template <class Value> class TagTable {
public:
    // False when the tag is there already.
    bool insert(std::uint64_t tag, const Value& value) {
        if (contains(tag))
            return false;
        if (tag < m_dense.size() || tag < 4 * (m_count + 1) + 4096) {
            if (tag >= m_dense.size()) {
                const std::size_t grown =
                    std::max<std::size_t>(static_cast<std::size_t>(tag) + 1, 2 * m_dense.size());
                m_dense.resize(grown);
                m_present.resize(grown, 0);
            }
            m_dense[static_cast<std::size_t>(tag)] = value;
            m_present[static_cast<std::size_t>(tag)] = 1;
        } else {
            m_sparse.emplace(tag, value);
        }
        ++m_count;
        return true;
    }
    bool contains(std::uint64_t tag) const {
        if (tag < m_dense.size() && m_present[static_cast<std::size_t>(tag)] != 0)
            return true;
        return !m_sparse.empty() && m_sparse.count(tag) != 0;
    }
    const Value& at(std::uint64_t tag) const {
        if (tag < m_dense.size() && m_present[static_cast<std::size_t>(tag)] != 0)
            return m_dense[static_cast<std::size_t>(tag)];
        return m_sparse.at(tag);
    }
    std::size_t size() const { return m_count; }

private:
    std::vector<Value> m_dense;
    std::vector<char> m_present;
    std::unordered_map<std::uint64_t, Value> m_sparse;
    std::size_t m_count = 0;
};

using NodeTable = TagTable<RawNode>;
// The element tags read, for their uniqueness alone.
struct Seen {};
using TagSet = TagTable<Seen>;

// An element as the file gives it. Its node tags lie in the reader's one array of them, its
// physical tags in a set shared by the elements that have the same (a block's, in 4.1): no
// heap of its own, as a mesh has millions of elements.
struct RawElement {
    std::uint64_t tag;
    int type;
    int dimension;
    std::size_t firstNode; // in the reader's node tags
    std::size_t nodeCount;
    const std::vector<int>* physicals;
    int entity;
    std::size_t line;
};

class MshReader {
public:
    MshReader(const std::filesystem::path& file, EmptyMesh empty)
        : m_in(file), m_file(file), m_acceptEmpty(empty == EmptyMesh::Accept) {}

    Mesh read() {
        if (m_in.atEnd())
            m_in.fail(0, "the mesh file is empty; expected $MeshFormat");
        const std::string_view first = m_in.next("$MeshFormat");
        if (MshLines::trimmed(first) != "$MeshFormat")
            m_in.fail(m_in.lineNo(),
                      "expected $MeshFormat at the start of a Gmsh MSH file, found \"" +
                          std::string(first) + "\"");
        readFormat();
        bool haveNodes = false;
        bool haveElements = false;
        while (!m_in.atEnd()) {
            std::string header(MshLines::trimmed(m_in.next("a section")));
            std::size_t line = m_in.lineNo();
            if (header.empty() || header[0] != '$')
                m_in.fail(line,
                          "expected a section header such as $Nodes, found \"" + header + "\"");
            std::string name = header.substr(1);
            if (name == "PhysicalNames") {
                readPhysicalNames();
            } else if (name == "Entities" && m_v4) {
                readEntities();
            } else if (name == "PartitionedEntities") {
                m_in.fail(line,
                          "partitioned meshes are not supported; save the mesh unpartitioned");
            } else if (name == "Nodes") {
                if (haveNodes)
                    m_in.fail(line, "a second $Nodes section");
                m_v4 ? readNodes4() : readNodes2();
                haveNodes = true;
            } else if (name == "Elements") {
                if (!haveNodes)
                    m_in.fail(line, "$Elements before $Nodes");
                if (haveElements)
                    m_in.fail(line, "a second $Elements section");
                m_v4 ? readElements4() : readElements2();
                haveElements = true;
            } else if (name.rfind("End", 0) == 0) {
                m_in.fail(line, "\"" + header + "\" closes no open section");
            } else {
                m_in.skipSection(name, line);
            }
        }
        // Gmsh saves an empty model in version 4.1 without $Nodes and $Elements: taken as no
        // nodes and no elements when an empty mesh is acceptable, and build() decides.
        const bool mayBeEmpty = m_acceptEmpty && m_elements.empty();
        if (!haveNodes && !mayBeEmpty)
            m_in.fail(0, "the mesh has no $Nodes section");
        if (!haveElements && !mayBeEmpty)
            m_in.fail(0, "the mesh has no $Elements section");
        return build();
    }

private:
    void readFormat() {
        auto t = m_in.tokens("version, file type and data size", 3);
        std::string version(t[0]);
        if (version == "4.1") {
            m_v4 = true;
        } else if (version == "2.2") {
            m_v4 = false;
        } else {
            m_in.fail(m_in.lineNo(), "unknown MSH version " + version + "; expected 4.1 or 2.2");
        }
        m_version = version;
        if (t[1] != "0")
            m_in.fail(
                m_in.lineNo(),
                "binary MSH files are not supported; save the mesh as ASCII (Mesh.Binary = 0)");
        m_in.expectEnd("MeshFormat");
    }

    void readPhysicalNames() {
        auto t = m_in.tokens("the number of physical names", 1);
        auto count = m_in.integer<std::size_t>(t[0], "the number of physical names");
        for (std::size_t i = 0; i < count; ++i) {
            auto p = m_in.tokens("a physical name: dimension, tag and \"name\"", 3);
            int dim = m_in.integer<int>(p[0], "the dimension of a physical group");
            int tag = m_in.integer<int>(p[1], "the tag of a physical group");
            // The name is quoted and may hold blanks: take everything between the quotes.
            std::string_view rest(
                p[2].data(),
                static_cast<std::size_t>(p.back().data() + p.back().size() - p[2].data()));
            std::string name(rest);
            if (name.size() >= 2 && name.front() == '"' && name.back() == '"')
                name = name.substr(1, name.size() - 2);
            m_physicalNames[{dim, tag}] = name;
        }
        m_in.expectEnd("PhysicalNames");
    }

    void readEntities() {
        auto t = m_in.tokens("the numbers of points, curves, surfaces and volumes", 4);
        std::size_t counts[4];
        for (int d = 0; d < 4; ++d)
            counts[d] =
                m_in.integer<std::size_t>(t[static_cast<std::size_t>(d)], "an entity count");
        for (int dim = 0; dim < 4; ++dim) {
            for (std::size_t i = 0; i < counts[dim]; ++i) {
                const std::size_t coords = dim == 0 ? 3 : 6;
                auto e =
                    m_in.tokens("an entity of dimension " + std::to_string(dim), 1 + coords + 1);
                int tag = m_in.integer<int>(e[0], "an entity tag");
                auto nPhys =
                    m_in.integer<std::size_t>(e[1 + coords], "the number of physical tags");
                // Compared without adding to the count read, which may be anything.
                if (nPhys > e.size() - (2 + coords))
                    m_in.fail(m_in.lineNo(), "entity " + std::to_string(tag) +
                                                 " lists fewer physical tags than its count");
                std::vector<int> phys;
                for (std::size_t k = 0; k < nPhys; ++k)
                    phys.push_back(
                        std::abs(m_in.integer<int>(e[2 + coords + k], "a physical tag")));
                m_entityPhysicals[{dim, tag}] = phys;
            }
        }
        m_in.expectEnd("Entities");
    }

    void addNode(std::uint64_t tag, const CKQPoint3D& p, std::size_t line) {
        if (!m_nodes.insert(tag, RawNode{p, line}))
            m_in.fail(line, "node " + std::to_string(tag) + " is defined twice");
    }

    CKQPoint3D readPoint(const std::vector<std::string_view>& t, std::size_t first,
                         std::uint64_t tag) {
        double x = 0.0, y = 0.0, z = 0.0;
        if (MshLines::plainReal(t[first], x) && MshLines::plainReal(t[first + 1], y) &&
            MshLines::plainReal(t[first + 2], z))
            return {x, y, z};
        const std::string what = "coordinate of node " + std::to_string(tag);
        return {m_in.real(t[first], "the x " + what), m_in.real(t[first + 1], "the y " + what),
                m_in.real(t[first + 2], "the z " + what)};
    }

    void readNodes2() {
        auto t = m_in.tokens("the number of nodes", 1);
        auto count = m_in.integer<std::size_t>(t[0], "the number of nodes");
        std::vector<std::string_view> n;
        for (std::size_t i = 0; i < count; ++i) {
            m_in.tokens(n, "a node: tag x y z", 4);
            auto tag = m_in.integer<std::uint64_t>(n[0], "a node tag");
            addNode(tag, readPoint(n, 1, tag), m_in.lineNo());
        }
        m_in.expectEnd("Nodes");
    }

    void readNodes4() {
        auto h = m_in.tokens("numEntityBlocks numNodes minNodeTag maxNodeTag", 4);
        auto blocks = m_in.integer<std::size_t>(h[0], "the number of node blocks");
        auto total = m_in.integer<std::size_t>(h[1], "the number of nodes");
        std::size_t headerLine = m_in.lineNo();
        std::size_t seen = 0;
        for (std::size_t b = 0; b < blocks; ++b) {
            auto bh =
                m_in.tokens("a node block: entityDim entityTag parametric numNodesInBlock", 4);
            int dim = m_in.integer<int>(bh[0], "the entity dimension");
            auto parametric = m_in.integer<int>(bh[2], "the parametric flag");
            auto n = m_in.integer<std::size_t>(bh[3], "the number of nodes in the block");
            // The count is the file's word: nothing is allocated for it in advance, so a count
            // that the file does not hold ends at its last line with a message.
            std::vector<std::uint64_t> tags;
            tags.reserve(std::min(n, m_in.linesLeft()));
            std::vector<std::string_view> c;
            for (std::size_t i = 0; i < n; ++i) {
                m_in.tokens(c, "a node tag", 1);
                tags.push_back(m_in.integer<std::uint64_t>(c[0], "a node tag"));
            }
            const std::size_t values =
                3 + (parametric != 0 ? static_cast<std::size_t>(std::max(dim, 0)) : 0);
            for (std::size_t i = 0; i < n; ++i) {
                m_in.tokens(c, CoordinatesOf(tags[i]), values);
                addNode(tags[i], readPoint(c, 0, tags[i]), m_in.lineNo());
            }
            seen += n;
        }
        if (seen != total)
            m_in.fail(headerLine, "$Nodes announces " + std::to_string(total) +
                                      " nodes, its blocks hold " + std::to_string(seen));
        m_in.expectEnd("Nodes");
    }

    // The element's Gmsh node tags.
    std::span<const std::uint64_t> nodesOf(const RawElement& e) const {
        return {m_elementNodes.data() + e.firstNode, e.nodeCount};
    }

    // The one shared copy of a set of physical tags.
    const std::vector<int>* physicalSet(const std::vector<int>& tags) {
        auto [it, added] = m_physicalSets.insert(tags);
        (void)added;
        return &*it;
    }

    RawElement element(const std::vector<std::string_view>& t, std::size_t first, std::uint64_t tag,
                       int type, const std::vector<int>* physicals, int entity) {
        const ElementTypeInfo* info = elementType(type);
        if (info == nullptr)
            m_in.fail(m_in.lineNo(), "element " + std::to_string(tag) +
                                         " has the unknown Gmsh element type " +
                                         std::to_string(type));
        if (t.size() < first + static_cast<std::size_t>(info->nodes))
            m_in.fail(m_in.lineNo(), "element " + std::to_string(tag) + " (" + info->name +
                                         ") needs " + std::to_string(info->nodes) +
                                         " node tags, the line has " +
                                         std::to_string(t.size() - std::min(t.size(), first)));
        RawElement e{tag, type,      info->dimension, m_elementNodes.size(),
                     0,   physicals, entity,          m_in.lineNo()};
        for (int k = 0; k < info->nodes; ++k)
            m_elementNodes.push_back(
                m_in.integer<std::uint64_t>(t[first + static_cast<std::size_t>(k)], "a node tag"));
        e.nodeCount = static_cast<std::size_t>(info->nodes);
        if (!m_elementTags.insert(tag, Seen{}))
            m_in.fail(m_in.lineNo(), "element " + std::to_string(tag) + " is defined twice");
        return e;
    }

    void readElements2() {
        auto t = m_in.tokens("the number of elements", 1);
        auto count = m_in.integer<std::size_t>(t[0], "the number of elements");
        std::vector<std::string_view> e;
        for (std::size_t i = 0; i < count; ++i) {
            m_in.tokens(e, "an element: tag type numTags tags... nodes...", 3);
            auto tag = m_in.integer<std::uint64_t>(e[0], "an element tag");
            int type = m_in.integer<int>(e[1], "an element type");
            auto nTags = m_in.integer<std::size_t>(e[2], "the number of element tags");
            if (nTags > e.size() - 3) // the count read may be anything: no sum with it
                m_in.fail(m_in.lineNo(),
                          "element " + std::to_string(tag) + " lists fewer tags than its count");
            std::vector<int> phys;
            int entity = 0;
            if (nTags >= 1) {
                int p = m_in.integer<int>(e[3], "a physical tag");
                if (p != 0)
                    phys.push_back(std::abs(p));
            }
            if (nTags >= 2)
                entity = m_in.integer<int>(e[4], "an entity tag");
            m_elements.push_back(element(e, 3 + nTags, tag, type, physicalSet(phys), entity));
        }
        m_in.expectEnd("Elements");
    }

    void readElements4() {
        auto h = m_in.tokens("numEntityBlocks numElements minElementTag maxElementTag", 4);
        auto blocks = m_in.integer<std::size_t>(h[0], "the number of element blocks");
        auto total = m_in.integer<std::size_t>(h[1], "the number of elements");
        std::size_t headerLine = m_in.lineNo();
        std::size_t seen = 0;
        for (std::size_t b = 0; b < blocks; ++b) {
            auto bh = m_in.tokens(
                "an element block: entityDim entityTag elementType numElementsInBlock", 4);
            int dim = m_in.integer<int>(bh[0], "the entity dimension");
            int entity = m_in.integer<int>(bh[1], "the entity tag");
            int type = m_in.integer<int>(bh[2], "the element type");
            auto n = m_in.integer<std::size_t>(bh[3], "the number of elements in the block");
            std::vector<int> phys;
            if (auto it = m_entityPhysicals.find({dim, entity}); it != m_entityPhysicals.end())
                phys = it->second;
            const std::vector<int>* blockPhysicals = physicalSet(phys);
            // Room for the block, as far as the lines left can hold it.
            const std::size_t room = std::min(n, m_in.linesLeft());
            m_elements.reserve(m_elements.size() + room);
            if (const ElementTypeInfo* info = elementType(type); info != nullptr)
                m_elementNodes.reserve(m_elementNodes.size() +
                                       room * static_cast<std::size_t>(info->nodes));
            std::vector<std::string_view> e;
            for (std::size_t i = 0; i < n; ++i) {
                m_in.tokens(e, "an element: tag and node tags", 1);
                auto tag = m_in.integer<std::uint64_t>(e[0], "an element tag");
                RawElement raw = element(e, 1, tag, type, blockPhysicals, entity);
                // A block holds elements of its entity's dimension. A line or point in the block
                // of a surface lies inside that surface, and so inside its slab.
                if (raw.dimension != dim) {
                    const ElementTypeInfo* info = elementType(type);
                    std::string id = "element " + std::to_string(tag) + " is a " + info->name;
                    if (dim == 2)
                        m_in.fail(m_in.lineNo(),
                                  id + " in surface " + std::to_string(entity) +
                                      (phys.empty()
                                           ? ""
                                           : " (physical surface " + std::to_string(phys.front()) +
                                                 ", a slab)") +
                                      "; slabs take 3-node triangles (type 2) and 4-node "
                                      "quadrilaterals (type 3) only");
                    m_in.fail(m_in.lineNo(),
                              id + " (dimension " + std::to_string(raw.dimension) +
                                  ") in a block of the dimension-" + std::to_string(dim) +
                                  " entity " + std::to_string(entity) +
                                  "; a block holds elements of its entity's dimension");
                }
                m_elements.push_back(std::move(raw));
            }
            seen += n;
        }
        if (seen != total)
            m_in.fail(headerLine, "$Elements announces " + std::to_string(total) +
                                      " elements, its blocks hold " + std::to_string(seen));
        m_in.expectEnd("Elements");
    }

    Mesh build() {
        // The slabs: the physical surfaces.
        std::set<int> surfaceTags;
        for (const auto& [key, name] : m_physicalNames)
            if (key.first == 2)
                surfaceTags.insert(key.second);
        for (const RawElement& e : m_elements)
            if (e.dimension == 2)
                surfaceTags.insert(e.physicals->begin(), e.physicals->end());

        std::map<int, std::vector<const RawElement*>> bySlab;
        std::size_t slabElements = 0;
        for (const RawElement& e : m_elements) {
            const ElementTypeInfo* info = elementType(e.type);
            // Only a message needs it.
            const auto id = [&e] { return "element " + std::to_string(e.tag); };
            if (e.dimension == 3)
                m_in.fail(e.line, id() + " is a " + info->name +
                                      "; a slab model has surface elements only");
            if (e.dimension < 2) {
                // Lines and points (supports, edges) do not concern the slabs and are left out.
                // A physical group has one dimension, so the tag of a line names a physical
                // curve even where it equals a physical surface's tag: version 2.2 writes no
                // dimension beside the tag, and Gmsh numbers each dimension's groups on their
                // own (Physical Curve(1) and Physical Surface(1) side by side are common). Only
                // version 4.1 can put a line inside a surface; readElements4 refuses that.
                continue;
            }
            if (e.physicals->empty())
                m_in.fail(e.line,
                          id() + " (surface " + std::to_string(e.entity) +
                              ") is in no physical surface; each slab must be a Physical Surface");
            if (e.physicals->size() > 1)
                m_in.fail(e.line, id() + " (surface " + std::to_string(e.entity) +
                                      ") is in more than one physical surface; a surface element "
                                      "belongs to one slab");
            if (e.type != 2 && e.type != 3)
                m_in.fail(e.line, id() + " is a " + info->name + " (Gmsh type " +
                                      std::to_string(e.type) +
                                      "); slabs take 3-node triangles (type 2) and 4-node "
                                      "quadrilaterals (type 3) only");
            const std::span<const std::uint64_t> nodes = nodesOf(e);
            for (std::size_t k = 0; k < nodes.size(); ++k) {
                if (!m_nodes.contains(nodes[k]))
                    m_in.fail(e.line, id() + " references node " + std::to_string(nodes[k]) +
                                          ", which $Nodes does not define");
                for (std::size_t j = 0; j < k; ++j)
                    if (nodes[j] == nodes[k])
                        m_in.fail(e.line,
                                  id() + " uses node " + std::to_string(nodes[k]) + " twice");
            }
            bySlab[e.physicals->front()].push_back(&e);
            ++slabElements;
        }
        if (surfaceTags.empty()) {
            // Nothing at all (no element of any dimension): an empty mesh, when the caller
            // accepts one. Lines or points without any surface stay an error.
            if (m_acceptEmpty && m_elements.empty()) {
                Mesh empty;
                empty.formatVersion = m_version;
                return empty;
            }
            m_in.fail(0, c_noPhysicalSurface);
        }
        for (int tag : surfaceTags)
            if (bySlab.count(tag) == 0)
                m_in.fail(0, "physical surface " + std::to_string(tag) + " has no elements");

        Mesh mesh;
        mesh.formatVersion = m_version;
        mesh.elements.reserve(slabElements);
        // Nodes used by slab elements, in ascending Gmsh tag, and the number each gets. Gmsh
        // numbers nodes densely, so a table indexed by tag does; sparse tags take the general
        // way (sort and a map).
        std::uint64_t largestTag = 0;
        std::size_t corners = 0;
        for (const auto& [tag, elements] : bySlab)
            for (const RawElement* e : elements) {
                corners += e->nodeCount;
                for (std::uint64_t n : nodesOf(*e))
                    largestTag = std::max(largestTag, n);
            }
        const bool dense = largestTag <= 4 * m_nodes.size() + 1024;
        std::vector<unsigned long> denseId; // by tag; 0 = unused
        std::unordered_map<std::uint64_t, unsigned long> nodeId;
        if (dense) {
            denseId.assign(static_cast<std::size_t>(largestTag) + 1, 0);
            for (const auto& [tag, elements] : bySlab)
                for (const RawElement* e : elements)
                    for (std::uint64_t n : nodesOf(*e))
                        denseId[static_cast<std::size_t>(n)] = 1;
            for (std::size_t tag = 0; tag < denseId.size(); ++tag) {
                if (denseId[tag] == 0)
                    continue;
                mesh.nodes.push_back({tag, m_nodes.at(tag).position});
                denseId[tag] = static_cast<unsigned long>(mesh.nodes.size());
            }
        } else {
            std::vector<std::uint64_t> used;
            used.reserve(corners);
            for (const auto& [tag, elements] : bySlab)
                for (const RawElement* e : elements) {
                    const auto nodes = nodesOf(*e);
                    used.insert(used.end(), nodes.begin(), nodes.end());
                }
            std::sort(used.begin(), used.end());
            used.erase(std::unique(used.begin(), used.end()), used.end());
            for (std::uint64_t tag : used) {
                mesh.nodes.push_back({tag, m_nodes.at(tag).position});
                nodeId[tag] = static_cast<unsigned long>(mesh.nodes.size());
            }
        }
        auto idOf = [&](std::uint64_t tag) {
            return dense ? denseId[static_cast<std::size_t>(tag)] : nodeId.at(tag);
        };
        for (auto& [tag, elements] : bySlab) {
            auto byTag = [](const RawElement* a, const RawElement* b) { return a->tag < b->tag; };
            if (!std::is_sorted(elements.begin(), elements.end(), byTag))
                std::sort(elements.begin(), elements.end(), byTag);
            MeshSlab slab;
            slab.physicalTag = tag;
            if (auto it = m_physicalNames.find({2, tag}); it != m_physicalNames.end())
                slab.physicalName = it->second;
            slab.firstElement = static_cast<unsigned long>(mesh.elements.size() + 1);
            slab.elementCount = static_cast<unsigned long>(elements.size());
            mesh.slabs.push_back(slab);
            for (const RawElement* e : elements) {
                MeshElement out;
                out.gmshTag = e->tag;
                out.gmshType = e->type;
                out.slab = static_cast<unsigned long>(mesh.slabs.size());
                out.nodes.reserve(e->nodeCount);
                for (std::uint64_t n : nodesOf(*e))
                    out.nodes.push_back(idOf(n));
                mesh.elements.push_back(std::move(out));
            }
        }
        return mesh;
    }

    MshLines m_in;
    std::filesystem::path m_file;
    bool m_acceptEmpty = false;
    bool m_v4 = false;
    std::string m_version;
    std::map<std::pair<int, int>, std::string> m_physicalNames;        // (dim, tag) -> name
    std::map<std::pair<int, int>, std::vector<int>> m_entityPhysicals; // (dim, entity) -> tags
    NodeTable m_nodes;
    TagSet m_elementTags;
    std::vector<RawElement> m_elements;
    std::vector<std::uint64_t> m_elementNodes; // the node tags of all elements, in file order
    std::set<std::vector<int>> m_physicalSets; // the distinct sets of physical tags
};

} // namespace

ProjectError::ProjectError(std::filesystem::path file, std::size_t line, const std::string& message)
    : std::runtime_error(lineMessage(file, line, message)), m_file(std::move(file)), m_line(line),
      m_message(message) {}

double Mesh::ElementArea(unsigned long id) const {
    if (id < 1 || id > elements.size())
        throw std::out_of_range("element id " + std::to_string(id) + " outside 1.." +
                                std::to_string(elements.size()));
    const MeshElement& e = elements[id - 1];
    auto p = [&](std::size_t k) { return nodes.at(e.nodes.at(k) - 1).position; };
    if (e.nodes.size() == 3)
        return 0.5 * (p(1) - p(0)).Cross(p(2) - p(0)).Length();
    return 0.5 * (p(2) - p(0)).Cross(p(3) - p(1)).Length();
}

Mesh ReadMesh(const std::filesystem::path& mshFile, EmptyMesh empty) {
    // A FIFO or a device would be read for ever, a folder not at all.
    std::error_code ec;
    if (std::filesystem::exists(mshFile, ec) && !std::filesystem::is_regular_file(mshFile, ec))
        throw ProjectError(mshFile, 0,
                           std::filesystem::is_directory(mshFile, ec)
                               ? "is a folder, not a mesh file"
                               : "is not a regular file (a pipe or a device?): a mesh is read "
                                 "from a file");
    return MshReader(mshFile, empty).read();
}

std::filesystem::path ProjectFile(const std::filesystem::path& projectPath,
                                  const std::string& suffix) {
    std::filesystem::path file = projectPath;
    file += suffix;
    return file;
}

double Project::SlabThickness(unsigned long slabId) const {
    const SlabData* slab = SlabDataOf(slabId);
    if (slab == nullptr)
        throw std::logic_error("the project " + path.string() + " has no " +
                               ProjectFile(path, ".toml").filename().string() +
                               ": no slab thickness");
    return slab->thickness;
}

const SlabData* Project::SlabDataOf(unsigned long slabId) const {
    if (slabId < 1 || slabId > mesh.slabs.size())
        throw std::out_of_range("slab id " + std::to_string(slabId) + " outside 1.." +
                                std::to_string(mesh.slabs.size()));
    if (!data)
        return nullptr;
    int tag = mesh.slabs[slabId - 1].physicalTag;
    for (const SlabData& s : data->slabs)
        if (s.tag == tag)
            return &s;
    return nullptr;
}

namespace {

// What identifies the files a project was read from: device, inode, size and modification
// time (a file replaced, rewritten or touched reads as another).
struct FileStamp {
    bool exists = false;
    std::uint64_t device = 0, inode = 0, size = 0;
    std::int64_t seconds = 0, nanoseconds = 0;
    bool operator==(const FileStamp&) const = default;
};

FileStamp StampOf(const std::filesystem::path& file) {
    struct stat status {};
    FileStamp stamp;
    if (::stat(file.c_str(), &status) != 0)
        return stamp;
    stamp.exists = true;
    stamp.device = static_cast<std::uint64_t>(status.st_dev);
    stamp.inode = static_cast<std::uint64_t>(status.st_ino);
    stamp.size = static_cast<std::uint64_t>(status.st_size);
    stamp.seconds = status.st_mtim.tv_sec;
    stamp.nanoseconds = status.st_mtim.tv_nsec;
    return stamp;
}

std::mutex g_sharedMutex;
struct SharedEntry {
    std::filesystem::path path;
    FileStamp msh, toml;
    std::shared_ptr<const Project> project;
} g_shared;

} // namespace

std::shared_ptr<const Project> SharedProject(const std::filesystem::path& projectPath) {
    const std::filesystem::path path = std::filesystem::absolute(projectPath).lexically_normal();
    const FileStamp msh = StampOf(ProjectFile(path, ".msh"));
    const FileStamp toml = StampOf(ProjectFile(path, ".toml"));
    std::lock_guard lock(g_sharedMutex);
    if (g_shared.project && g_shared.path == path && g_shared.msh == msh && g_shared.toml == toml)
        return g_shared.project;
    g_shared.project.reset(); // the old model goes before the new one is read
    auto project = std::make_shared<const Project>(LoadProject(path));
    g_shared = {path, msh, toml, project};
    return project;
}

Project LoadProject(const std::filesystem::path& projectPath) {
    Project project;
    project.path = projectPath;
    const auto msh = ProjectFile(projectPath, ".msh");
    project.mesh = ReadMesh(msh, EmptyMesh::Accept);
    // An empty mesh is a model only when P.toml says so by listing no slab: a model with no
    // slabs then opens with 0 nodes, elements and slabs, so that a pass over it runs through
    // with empty data instead of failing. An empty P.msh alone (no P.toml) is far more likely a
    // mesher run that went wrong, and keeps the mesh reader's error; a P.toml slab without its
    // physical surface is refused by the check below as for any other mesh.
    const bool emptyMesh = project.mesh.slabs.empty();
    auto toml = ProjectFile(projectPath, ".toml");
    std::error_code ec;
    if (!std::filesystem::exists(toml, ec)) {
        if (emptyMesh)
            throw ProjectError(msh, 0, c_noPhysicalSurface);
        return project;
    }
    project.data = ReadProjectData(toml);
    if (project.data->slabs.empty() && !emptyMesh)
        throw ProjectError(toml, 1,
                           "no [[slab]] entry; each physical surface of the mesh needs one with "
                           "its tag and thickness");
    std::set<int> meshTags;
    for (const MeshSlab& s : project.mesh.slabs)
        meshTags.insert(s.physicalTag);
    std::set<int> tomlTags;
    for (const SlabData& s : project.data->slabs) {
        tomlTags.insert(s.tag);
        if (meshTags.count(s.tag) == 0)
            throw ProjectError(toml, s.line,
                               "slab with tag " + std::to_string(s.tag) +
                                   " has no physical surface " + std::to_string(s.tag) + " in " +
                                   ProjectFile(projectPath, ".msh").filename().string());
    }
    for (const MeshSlab& s : project.mesh.slabs)
        if (tomlTags.count(s.physicalTag) == 0)
            throw ProjectError(
                toml, 0,
                "physical surface " + std::to_string(s.physicalTag) +
                    (s.physicalName.empty() ? "" : " (\"" + s.physicalName + "\")") + " of " +
                    ProjectFile(projectPath, ".msh").filename().string() +
                    " has no [[slab]] entry with tag = " + std::to_string(s.physicalTag));
    return project;
}

namespace {

// Bounding box of a set of nodes, for the entities of version 4.1.
struct Box {
    double lo[3] = {0, 0, 0};
    double hi[3] = {0, 0, 0};
};

} // namespace

void WriteMesh(const Mesh& mesh, const std::filesystem::path& mshFile, MshVersion version) {
    std::ofstream out(mshFile, std::ios::binary | std::ios::trunc);
    if (!out)
        throw std::runtime_error("cannot write " + mshFile.string());
    out.precision(17);
    const bool v4 = version == MshVersion::V41;
    out << "$MeshFormat\n" << (v4 ? "4.1" : "2.2") << " 0 8\n$EndMeshFormat\n";
    std::size_t named = 0;
    for (const MeshSlab& s : mesh.slabs)
        named += s.physicalName.empty() ? 0 : 1;
    if (named > 0) {
        out << "$PhysicalNames\n" << named << "\n";
        for (const MeshSlab& s : mesh.slabs)
            if (!s.physicalName.empty())
                out << "2 " << s.physicalTag << " \"" << s.physicalName << "\"\n";
        out << "$EndPhysicalNames\n";
    }
    const std::size_t nNodes = mesh.nodes.size();
    if (!v4) {
        out << "$Nodes\n" << nNodes << "\n";
        for (std::size_t i = 0; i < nNodes; ++i) {
            const CKQPoint3D& p = mesh.nodes[i].position;
            out << i + 1 << ' ' << p.x << ' ' << p.y << ' ' << p.z << "\n";
        }
        out << "$EndNodes\n$Elements\n" << mesh.elements.size() << "\n";
        for (std::size_t i = 0; i < mesh.elements.size(); ++i) {
            const MeshElement& e = mesh.elements[i];
            out << i + 1 << ' ' << e.gmshType << " 2 " << mesh.slabs.at(e.slab - 1).physicalTag
                << ' ' << e.slab;
            for (unsigned long n : e.nodes)
                out << ' ' << n;
            out << "\n";
        }
        out << "$EndElements\n";
    } else {
        // One surface entity per slab (tag = slab id). Each node goes with the first slab that
        // uses it.
        std::vector<unsigned long> owner(nNodes, 0);
        std::vector<Box> boxes(mesh.slabs.size());
        std::vector<bool> boxSet(mesh.slabs.size(), false);
        for (const MeshElement& e : mesh.elements)
            for (unsigned long n : e.nodes) {
                if (owner[n - 1] == 0)
                    owner[n - 1] = e.slab;
                const CKQPoint3D& p = mesh.nodes[n - 1].position;
                Box& b = boxes[e.slab - 1];
                const double c[3] = {p.x, p.y, p.z};
                for (int k = 0; k < 3; ++k) {
                    if (!boxSet[e.slab - 1] || c[k] < b.lo[k])
                        b.lo[k] = c[k];
                    if (!boxSet[e.slab - 1] || c[k] > b.hi[k])
                        b.hi[k] = c[k];
                }
                boxSet[e.slab - 1] = true;
            }
        out << "$Entities\n0 0 " << mesh.slabs.size() << " 0\n";
        for (std::size_t s = 0; s < mesh.slabs.size(); ++s) {
            const Box& b = boxes[s];
            out << s + 1 << ' ' << b.lo[0] << ' ' << b.lo[1] << ' ' << b.lo[2] << ' ' << b.hi[0]
                << ' ' << b.hi[1] << ' ' << b.hi[2] << " 1 " << mesh.slabs[s].physicalTag << " 0\n";
        }
        out << "$EndEntities\n";
        out << "$Nodes\n"
            << mesh.slabs.size() << ' ' << nNodes << ' ' << (nNodes > 0 ? 1 : 0) << ' ' << nNodes
            << "\n";
        for (std::size_t s = 0; s < mesh.slabs.size(); ++s) {
            std::vector<std::size_t> mine;
            for (std::size_t i = 0; i < nNodes; ++i)
                if (owner[i] == s + 1)
                    mine.push_back(i);
            out << "2 " << s + 1 << " 0 " << mine.size() << "\n";
            for (std::size_t i : mine)
                out << i + 1 << "\n";
            for (std::size_t i : mine) {
                const CKQPoint3D& p = mesh.nodes[i].position;
                out << p.x << ' ' << p.y << ' ' << p.z << "\n";
            }
        }
        out << "$EndNodes\n";
        // One block per slab and element type.
        std::vector<std::pair<std::size_t, int>> blocks;
        for (std::size_t s = 0; s < mesh.slabs.size(); ++s)
            for (int type : {2, 3}) {
                bool any = false;
                for (unsigned long i = 0; i < mesh.slabs[s].elementCount && !any; ++i)
                    any = mesh.elements[mesh.slabs[s].firstElement - 1 + i].gmshType == type;
                if (any)
                    blocks.emplace_back(s, type);
            }
        const std::size_t nElements = mesh.elements.size();
        out << "$Elements\n"
            << blocks.size() << ' ' << nElements << ' ' << (nElements > 0 ? 1 : 0) << ' '
            << nElements << "\n";
        for (const auto& [s, type] : blocks) {
            const MeshSlab& slab = mesh.slabs[s];
            std::size_t count = 0;
            for (unsigned long i = 0; i < slab.elementCount; ++i)
                count += mesh.elements[slab.firstElement - 1 + i].gmshType == type ? 1 : 0;
            out << "2 " << s + 1 << ' ' << type << ' ' << count << "\n";
            for (unsigned long i = 0; i < slab.elementCount; ++i) {
                const MeshElement& e = mesh.elements[slab.firstElement - 1 + i];
                if (e.gmshType != type)
                    continue;
                out << slab.firstElement + i;
                for (unsigned long n : e.nodes)
                    out << ' ' << n;
                out << "\n";
            }
        }
        out << "$EndElements\n";
    }
    out.flush();
    if (!out)
        throw std::runtime_error("cannot write " + mshFile.string());
}

} // namespace host::outcome
