#include "host/calclink/solver_writer.h"

#include "host/framework/stage_clock.h"
#include "host/outcome/project.h"
#include "host/win32/files.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
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

void WriteSizeField(const std::filesystem::path& posFile,
                    const std::vector<std::vector<unsigned long>>& elements,
                    const std::vector<double>& sizes, const std::vector<CKQPoint3D>& nodes) {
    if (sizes.size() != nodes.size())
        throw std::invalid_argument("the size field has " + std::to_string(sizes.size()) +
                                    " values for " + std::to_string(nodes.size()) + " nodes");
    for (std::size_t i = 0; i < sizes.size(); ++i)
        if (!std::isfinite(sizes[i]) || sizes[i] <= 0.0)
            throw std::invalid_argument(
                "the size at node " + std::to_string(i + 1) +
                " is not a positive finite number: " + std::to_string(sizes[i]));
    for (std::size_t e = 0; e < elements.size(); ++e) {
        if (elements[e].size() != 3 && elements[e].size() != 4)
            throw std::invalid_argument("element " + std::to_string(e + 1) + " has " +
                                        std::to_string(elements[e].size()) +
                                        " nodes; expected 3 or 4");
        for (unsigned long n : elements[e])
            if (n < 1 || n > nodes.size())
                throw std::invalid_argument("element " + std::to_string(e + 1) +
                                            " references node " + std::to_string(n) +
                                            " outside 1.." + std::to_string(nodes.size()));
    }

    // Written to a temporary name and renamed, so that a mesher never reads half a field.
    const std::filesystem::path temporary = host::win32::TemporaryPathBeside(posFile);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(temporary.c_str(), "wb"),
                                                        &std::fclose);
    if (!out)
        throw std::runtime_error("cannot write " + temporary.string());
    std::FILE* f = out.get();
    // 17 significant digits as "%.17g" prints them (every double reads back exactly), by
    // std::to_chars: no locale (Gmsh wants a full stop whatever the caller's), no printf per
    // value. The text goes out in blocks of about a megabyte.
    std::string block;
    block.reserve((1u << 20) + 1024);
    auto number = [&block](double v) {
        char digits[32];
        const auto end =
            std::to_chars(digits, digits + sizeof digits, v, std::chars_format::general, 17).ptr;
        block.append(digits, end);
    };
    bool written = true;
    auto flush = [&] {
        written = written && std::fwrite(block.data(), 1, block.size(), f) == block.size();
        block.clear();
    };
    block += "View \"refinement\" {\n";
    for (const auto& element : elements) {
        block += element.size() == 3 ? "ST(" : "SQ(";
        for (std::size_t k = 0; k < element.size(); ++k) {
            const CKQPoint3D& p = nodes[element[k] - 1];
            if (k > 0)
                block += ',';
            number(p.x);
            block += ',';
            number(p.y);
            block += ',';
            number(p.z);
        }
        block += "){";
        for (std::size_t k = 0; k < element.size(); ++k) {
            if (k > 0)
                block += ',';
            number(sizes[element[k] - 1]);
        }
        block += "};\n";
        if (block.size() >= (1u << 20))
            flush();
    }
    block += "};\n";
    flush();
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
    std::vector<std::vector<unsigned long>> elements;
    elements.reserve(mesh.elements.size());
    for (const auto& e : mesh.elements)
        elements.push_back(e.nodes);
    host::calclink::WriteSizeField(host::outcome::ProjectFile(project, ".refine.pos"), elements,
                                   refinement, nodes);
    host::framework::MarkStage("size field written");
}
