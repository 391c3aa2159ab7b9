#include "host/calclink/solver_writer.h"

#include "host/framework/stage_clock.h"
#include "host/outcome/project.h"
#include "host/win32/files.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace {

std::mutex g_hookMutex;
host::calclink::WriteMeshRefinementsHook g_writeHook;

host::calclink::WriteMeshRefinementsHook currentWriteHook() {
    std::lock_guard lock(g_hookMutex);
    return g_writeHook;
}

} // namespace

namespace host::calclink {

WriteMeshRefinementsHook SetWriteMeshRefinementsHook(WriteMeshRefinementsHook hook) {
    std::lock_guard lock(g_hookMutex);
    std::swap(g_writeHook, hook);
    return hook;
}

namespace {

// The nodes of element e, one-based.
using NodesOf = std::function<std::span<const unsigned long>(std::size_t)>;

void CheckSizeField(std::size_t elements, const NodesOf& nodesOf, const std::vector<double>& sizes,
                    const std::vector<CKQPoint3D>& nodes) {
    if (sizes.size() != nodes.size())
        throw std::invalid_argument("the size field has " + std::to_string(sizes.size()) +
                                    " values for " + std::to_string(nodes.size()) + " nodes");
    for (std::size_t i = 0; i < sizes.size(); ++i)
        if (!std::isfinite(sizes[i]) || sizes[i] <= 0.0)
            throw std::invalid_argument(
                "the size at node " + std::to_string(i + 1) +
                " is not a positive finite number: " + std::to_string(sizes[i]));
    for (std::size_t e = 0; e < elements; ++e) {
        const std::span<const unsigned long> element = nodesOf(e);
        if (element.size() != 3 && element.size() != 4)
            throw std::invalid_argument("element " + std::to_string(e + 1) + " has " +
                                        std::to_string(element.size()) + " nodes; expected 3 or 4");
        for (unsigned long n : element)
            if (n < 1 || n > nodes.size())
                throw std::invalid_argument("element " + std::to_string(e + 1) +
                                            " references node " + std::to_string(n) +
                                            " outside 1.." + std::to_string(nodes.size()));
    }
}

// Each number is the shortest text that reads back as the same double (std::to_chars): exact,
// about half the bytes of 17 significant digits, no locale (Gmsh wants a full stop whatever the
// caller's).
void AppendNumber(std::string& text, double v) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, v).ptr;
    text.append(digits, end);
}

// The coordinates ("x,y,z") and the size of nodes [first, last), formatted once each: a node
// is a corner of several elements (four, in a mesh of quadrilaterals).
class NodeTexts {
public:
    NodeTexts(std::size_t first, std::size_t last, const std::vector<double>& sizes,
              const std::vector<CKQPoint3D>& nodes)
        : m_first(first) {
        m_start.reserve(last - first + 1);
        m_sizeStart.reserve(last - first);
        m_text.reserve((last - first) * 32);
        for (std::size_t i = first; i < last; ++i) {
            m_start.push_back(m_text.size());
            AppendNumber(m_text, nodes[i].x);
            m_text += ',';
            AppendNumber(m_text, nodes[i].y);
            m_text += ',';
            AppendNumber(m_text, nodes[i].z);
            m_sizeStart.push_back(m_text.size());
            AppendNumber(m_text, sizes[i]);
        }
        m_start.push_back(m_text.size());
    }
    std::string_view Coordinates(std::size_t node) const {
        const std::size_t i = node - m_first;
        return {m_text.data() + m_start[i], m_sizeStart[i] - m_start[i]};
    }
    std::string_view Size(std::size_t node) const {
        const std::size_t i = node - m_first;
        return {m_text.data() + m_sizeStart[i], m_start[i + 1] - m_sizeStart[i]};
    }

private:
    std::size_t m_first;
    std::string m_text;
    std::vector<std::size_t> m_start;     // of each node's coordinates; one more at the end
    std::vector<std::size_t> m_sizeStart; // of each node's size
};

// The texts of all nodes, made in two halves at once.
class AllNodeTexts {
public:
    AllNodeTexts(const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes)
        : m_half(nodes.size() / 2) {
        auto upper = std::async(std::launch::async, [&] {
            return std::make_unique<NodeTexts>(m_half, nodes.size(), sizes, nodes);
        });
        m_lower = std::make_unique<NodeTexts>(0, m_half, sizes, nodes);
        m_upper = upper.get();
    }
    // Of a zero-based node.
    const NodeTexts& Of(std::size_t node) const { return node < m_half ? *m_lower : *m_upper; }

private:
    std::size_t m_half;
    std::unique_ptr<NodeTexts> m_lower, m_upper;
};

// The entries of elements [first, last) of the view, appended to text.
void FormatEntries(std::size_t first, std::size_t last, const NodesOf& nodesOf,
                   const AllNodeTexts& texts, std::string& text) {
    for (std::size_t e = first; e < last; ++e) {
        const std::span<const unsigned long> element = nodesOf(e);
        text += element.size() == 3 ? "ST(" : "SQ(";
        for (std::size_t k = 0; k < element.size(); ++k) {
            const std::size_t n = element[k] - 1;
            if (k > 0)
                text += ',';
            text += texts.Of(n).Coordinates(n);
        }
        text += "){";
        for (std::size_t k = 0; k < element.size(); ++k) {
            const std::size_t n = element[k] - 1;
            if (k > 0)
                text += ',';
            text += texts.Of(n).Size(n);
        }
        text += "};\n";
    }
}

// The view of a checked field.
void WriteCheckedView(const std::filesystem::path& posFile, std::size_t elements,
                      const NodesOf& nodesOf, const std::vector<double>& sizes,
                      const std::vector<CKQPoint3D>& nodes) {
    // Written to a temporary name and renamed, so that a mesher never reads half a field.
    const std::filesystem::path temporary = host::win32::TemporaryPathBeside(posFile);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(temporary.c_str(), "wb"),
                                                        &std::fclose);
    if (!out)
        throw std::runtime_error("cannot write " + temporary.string());
    std::FILE* f = out.get();
    bool written = true;
    auto write = [&](const std::string& text) {
        written = written && std::fwrite(text.data(), 1, text.size(), f) == text.size();
    };
    const AllNodeTexts texts(sizes, nodes);
    write("View \"refinement\" {\n");
    // Blocks of elements go out in order, about half a megabyte at a time; while one block is
    // put together here from the nodes' texts, the next is on a second thread.
    constexpr std::size_t kBlock = 4096;
    std::string here;
    std::string there;
    for (std::size_t first = 0; first < elements; first += 2 * kBlock) {
        const std::size_t middle = std::min(first + kBlock, elements);
        const std::size_t last = std::min(first + 2 * kBlock, elements);
        std::future<void> other;
        if (middle < last)
            other = std::async(std::launch::async, [&, middle, last] {
                there.clear();
                FormatEntries(middle, last, nodesOf, texts, there);
            });
        here.clear();
        FormatEntries(first, middle, nodesOf, texts, here);
        write(here);
        if (other.valid()) {
            other.get();
            write(there);
        }
    }
    write("};\n");
    if (!written || std::fflush(f) != 0 || std::ferror(f)) {
        out.reset();
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
        throw std::runtime_error("cannot write " + temporary.string());
    }
    out.reset();
    std::error_code ec;
    std::filesystem::rename(temporary, posFile, ec);
    if (ec) {
        std::filesystem::remove(temporary, ec);
        throw std::runtime_error("cannot write " + posFile.string());
    }
}

void WriteView(const std::filesystem::path& posFile, std::size_t elements, const NodesOf& nodesOf,
               const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes) {
    CheckSizeField(elements, nodesOf, sizes, nodes);
    WriteCheckedView(posFile, elements, nodesOf, sizes, nodes);
}

// The writing a BackgroundSizeField waits for.
std::mutex g_backgroundMutex;
BackgroundSizeField* g_background = nullptr;

} // namespace

BackgroundSizeField::BackgroundSizeField() {
    std::lock_guard lock(g_backgroundMutex);
    if (g_background != nullptr)
        throw std::logic_error("a second background size field");
    g_background = this;
}

BackgroundSizeField::~BackgroundSizeField() {
    {
        std::lock_guard lock(g_backgroundMutex);
        g_background = nullptr;
    }
    if (m_writing.valid())
        m_writing.wait();
}

void BackgroundSizeField::Finish() {
    if (m_writing.valid())
        m_writing.get();
}

bool BackgroundSizeField::Start(std::function<void()> write) {
    std::lock_guard lock(g_backgroundMutex);
    if (g_background == nullptr)
        return false;
    g_background->Finish(); // an earlier field goes out first
    g_background->m_writing = std::async(std::launch::async, std::move(write));
    return true;
}

void WriteSizeField(const std::filesystem::path& posFile,
                    const std::vector<std::vector<unsigned long>>& elements,
                    const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes) {
    WriteView(
        posFile, elements.size(),
        [&elements](std::size_t e) { return std::span<const unsigned long>(elements[e]); }, sizes,
        nodes);
}

void WriteMeshSizeField(const std::filesystem::path& posFile,
                        const std::vector<host::outcome::MeshElement>& elements,
                        const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes) {
    WriteView(
        posFile, elements.size(),
        [&elements](std::size_t e) { return std::span<const unsigned long>(elements[e].nodes); },
        sizes, nodes);
}

} // namespace host::calclink

void CSolverFEMcoWriter::WriteMeshRefinements(const CString& projectPath,
                                              const std::vector<double>& refinement,
                                              const std::vector<CKQPoint3D>& nodes) const {
    if (const auto hook = currentWriteHook()) {
        hook(projectPath, refinement, nodes);
        return;
    }
    host::framework::MarkStage("writing the size field");
    const std::filesystem::path project = projectPath.ToPath();
    // The store opens a mesh without elements and physical surfaces as an empty model; its
    // size field is a view without entries.
    // The model the run has read already, when P.toml and P.msh make one; else P.msh alone.
    std::shared_ptr<const host::outcome::Project> model;
    std::optional<host::outcome::Mesh> own;
    try {
        model = host::outcome::SharedProject(project);
    } catch (const host::outcome::ProjectError&) {
        own = host::outcome::ReadMesh(host::outcome::ProjectFile(project, ".msh"),
                                      host::outcome::EmptyMesh::Accept);
    }
    const host::outcome::Mesh& mesh = model ? model->mesh : *own;
    if (nodes.size() != mesh.nodes.size())
        throw std::invalid_argument("the size field has " + std::to_string(nodes.size()) +
                                    " nodes, the mesh " + std::to_string(mesh.nodes.size()));
    const std::filesystem::path posFile = host::outcome::ProjectFile(project, ".refine.pos");
    auto nodesOf = [&mesh](std::size_t e) {
        return std::span<const unsigned long>(mesh.elements[e].nodes);
    };
    host::calclink::CheckSizeField(mesh.elements.size(), nodesOf, refinement, nodes);
    // The writing itself, with what it needs kept alive: the model (or the mesh read here)
    // and copies of the two vectors, when it runs behind the caller's back.
    struct Field {
        std::shared_ptr<const host::outcome::Project> model;
        std::optional<host::outcome::Mesh> own;
        std::vector<double> sizes;
        std::vector<CKQPoint3D> nodes;
    };
    auto write = [posFile](const host::outcome::Mesh& m, const std::vector<double>& sizes,
                           const std::vector<CKQPoint3D>& points) {
        host::calclink::WriteCheckedView(
            posFile, m.elements.size(),
            [&m](std::size_t e) { return std::span<const unsigned long>(m.elements[e].nodes); },
            sizes, points);
        host::framework::MarkStage("size field written");
    };
    if (host::calclink::BackgroundSizeField::Start(
            [write, field = std::make_shared<Field>(
                        Field{std::move(model), std::move(own), refinement, nodes})] {
                write(field->model ? field->model->mesh : *field->own, field->sizes, field->nodes);
            }))
        return;
    write(mesh, refinement, nodes);
}
