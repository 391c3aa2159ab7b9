#include "host/outcome/results_api.h"

#include "host/framework/stage_clock.h"

#include "host/outcome/combinations.h"

#include "host/outcome/gar.h"

#include <cstdio>
#include <fstream>
#include <mutex>
#include <stdexcept>

namespace {

std::mutex g_initHookMutex;
host::outcome::InitFaultHook g_initFaultHook;

host::outcome::InitFaultHook currentInitFaultHook() {
    std::lock_guard lock(g_initHookMutex);
    return g_initFaultHook;
}

std::logic_error notOpen() {
    return std::logic_error("the result store has not been opened (Init)");
}

// The solver link of a project: slabs 1..S with their physical tags, and the load cases.
CKQ_SolverLinkMock makeLink(const host::outcome::Mesh& mesh,
                            const host::outcome::ProjectData& data) {
    CKQ_SolverLinkMock link;
    for (std::size_t s = 0; s < mesh.slabs.size(); ++s)
        link.AddSlab(static_cast<long>(s + 1), mesh.slabs[s].physicalTag);
    for (const auto& lc : data.loadCases)
        link.AddLoadCase(lc.id, lc.index, lc.valid);
    return link;
}

// A TOML basic string: quotes, backslashes and control characters escaped.
std::string tomlString(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20 || u == 0x7F) {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04X", static_cast<unsigned>(u));
            out += buffer;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

// The link written back as TOML (slab tags, names and thicknesses, load cases).
void writeLinkToml(const std::filesystem::path& file, const host::outcome::Project& project,
                   const CKQ_SolverLinkMock& link) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    if (!out)
        throw std::runtime_error("cannot write " + file.string());
    out.precision(17);
    if (project.data && !project.data->title.empty())
        out << "title = " << tomlString(project.data->title) << "\n";
    for (const auto& [slabId, tag] : link.GetSlabsIDs()) {
        out << "\n[[slab]]\ntag = " << tag << "\n";
        if (slabId >= 1 && static_cast<std::size_t>(slabId) <= project.mesh.slabs.size()) {
            if (const auto* data = project.SlabDataOf(static_cast<unsigned long>(slabId))) {
                if (!data->name.empty())
                    out << "name = " << tomlString(data->name) << "\n";
                out << "thickness = " << data->thickness << "\n";
            }
        }
    }
    std::map<long, long> byIndex;
    for (const auto& [id, index] : link.GetLoadCasesIDs())
        byIndex[index] = id;
    for (const auto& [index, id] : byIndex) {
        out << "\n[[load_case]]\nid = " << id << "\nindex = " << index << "\nvalid = "
            << (link.IsLoadCaseValid(static_cast<unsigned long>(index)) ? "true" : "false") << "\n";
        if (project.data)
            for (const auto& lc : project.data->loadCases)
                if (lc.id == id && !lc.name.empty())
                    out << "name = " << tomlString(lc.name) << "\n";
    }
    out.flush();
    if (!out)
        throw std::runtime_error("cannot write " + file.string());
}

} // namespace

void CKQ_FemResultsAPI::SetSource(const CString& projectPath, unsigned char sourceFlag) {
    m_source = projectPath;
    m_sourceFlag = sourceFlag;
}

int CKQ_FemResultsAPI::Init(Outcome64Enums::eSolverType solverType, Outcome64Enums::eModelType,
                            bool, long) {
    m_project.reset();
    m_solverLink.reset();
    m_lastError.Empty();
    m_solverType = solverType;
    if (const auto hook = currentInitFaultHook()) {
        if (const int code = hook(m_source); code != eIR_OK) {
            m_lastError.Format(L"Init failed with the injected code %d", code);
            return code;
        }
    }
    if (m_source.IsEmpty()) {
        m_lastError = L"no project path was given (SetSource)";
        return eIR_NoSource;
    }
    std::filesystem::path path = std::filesystem::absolute(m_source.ToPath()).lexically_normal();
    auto msh = host::outcome::ProjectFile(path, ".msh");
    std::error_code ec;
    if (!std::filesystem::is_regular_file(msh, ec)) {
        m_lastError = CString(msh.string() + ": the project's mesh file does not exist");
        return eIR_MeshNotFound;
    }
    try {
        std::shared_ptr<const host::outcome::Project> project = host::outcome::SharedProject(path);
        if (project->data) {
            // The combinations' STRINTG files, so that the module reads them like any other;
            // one that cannot be made has no file, which the module then reports as missing
            // (the project check names the reason).
            host::outcome::UpdateCombinations(path, *project->data);
            m_solverLink = makeLink(project->mesh, *project->data);
        } else
            m_lastError =
                CString(host::outcome::ProjectFile(path, ".toml").string() +
                        ": does not exist, so the project has no solver data (slabs, load cases)");
        m_project = std::move(project);
        host::framework::MarkStage("project opened");
        return eIR_OK;
    } catch (const host::outcome::ProjectError& e) {
        m_lastError = CString(std::string(e.what()));
        return e.file().extension() == ".msh" ? eIR_MeshInvalid : eIR_ProjectDataInvalid;
    }
}

CString CKQ_FemResultsAPI::GetProjectNameWithPath(Outcome64Enums::eModelType, long) const {
    return CString(GetProject().path.string());
}

const host::outcome::Project& CKQ_FemResultsAPI::GetProject() const {
    if (!m_project)
        throw notOpen();
    return *m_project;
}

unsigned long CKQ_FemResultsAPI::GetNoOfNodes() const {
    return static_cast<unsigned long>(GetProject().mesh.nodes.size());
}

unsigned long CKQ_FemResultsAPI::GetNoOfElements() const {
    return static_cast<unsigned long>(GetProject().mesh.elements.size());
}

CKQPoint3D CKQ_FemResultsAPI::NodeCoords(unsigned long id) const {
    const auto& nodes = GetProject().mesh.nodes;
    if (id < 1 || id > nodes.size())
        throw std::out_of_range("node id " + std::to_string(id) + " outside 1.." +
                                std::to_string(nodes.size()));
    return nodes[id - 1].position;
}

const host::outcome::MeshElement& CKQ_FemResultsAPI::Element(unsigned long id) const {
    const auto& elements = GetProject().mesh.elements;
    if (id < 1 || id > elements.size())
        throw std::out_of_range("element id " + std::to_string(id) + " outside 1.." +
                                std::to_string(elements.size()));
    return elements[id - 1];
}

void CKQ_FemResultsAPI::GetNodesOnElement(Outcome64Enums::eDimension dimension, unsigned long id,
                                          std::vector<unsigned long>& nodes) const {
    if (dimension != Outcome64Enums::eDim_Surface)
        throw std::invalid_argument(
            "the mesh has surface elements only (dimension 2), not dimension " +
            std::to_string(static_cast<int>(dimension)));
    const auto& element = Element(id);
    nodes.assign(element.nodes.begin(), element.nodes.end());
}

unsigned long CKQ_FemResultsAPI::GetElementsOnSlab(unsigned long slabId,
                                                   unsigned long& count) const {
    const auto& slabs = GetProject().mesh.slabs;
    if (slabId < 1 || slabId > slabs.size())
        throw std::out_of_range("slab id " + std::to_string(slabId) + " outside 1.." +
                                std::to_string(slabs.size()));
    count = slabs[slabId - 1].elementCount;
    return slabs[slabId - 1].firstElement;
}

double CKQ_FemResultsAPI::GetFemMeshElementArea(unsigned long id) const {
    Element(id);
    return GetProject().mesh.ElementArea(id);
}

double CKQ_FemResultsAPI::GetFemMeshElementThickness(unsigned long id) const {
    return GetProject().SlabThickness(Element(id).slab);
}

unsigned long CKQ_FemResultsAPI::GetCountOfDefNodes(unsigned long id) const {
    return static_cast<unsigned long>(Element(id).nodes.size());
}

std::filesystem::path CKQ_FemResultsAPI::GarPath() const {
    return host::outcome::ProjectFile(GetProject().path, ".GAR");
}

int CKQ_FemResultsAPI::SaveResult(const std::shared_ptr<CKQ_Result>& result, bool replace) {
    if (!result)
        throw std::invalid_argument("SaveResult: no result table");
    host::framework::MarkStage("saving");
    int saved = 0;
    if (host::outcome::GarStore* batch = host::outcome::GarSaveBatch::StoreFor(GarPath())) {
        saved = batch->Save(*result, replace) ? 1 : 0;
    } else {
        host::outcome::GarStore store(GarPath());
        saved = store.Save(*result, replace) ? 1 : 0;
    }
    host::framework::MarkStage("saved");
    return saved;
}

CKQ_SolverLinkMock* CKQ_ResultsAPI::GetSolverLink() {
    return m_solverLink ? &*m_solverLink : nullptr;
}

const CKQ_SolverLinkMock* CKQ_ResultsAPI::GetSolverLinkReadOnly() const {
    return m_solverLink ? &*m_solverLink : nullptr;
}

int CKQ_ResultsAPI::SerializeSolverLink(int direction, std::wstring file) {
    if (!IsOpen() || !m_solverLink)
        return 0;
    const auto& project = GetProject();
    try {
        if (direction == 0) {
            std::filesystem::path source = file.empty()
                                               ? host::outcome::ProjectFile(project.path, ".toml")
                                               : CString(file).ToPath();
            host::outcome::ProjectData data = host::outcome::ReadProjectData(source);
            m_solverLink = makeLink(project.mesh, data);
            return 1;
        }
        if (!file.empty())
            writeLinkToml(CString(file).ToPath(), project, *m_solverLink);
        return 1;
    } catch (const std::exception&) {
        return 0;
    }
}

std::shared_ptr<CKQ_Result> CKQ_ResultsAPI::GetResultTable(const CKQ_ResultKey& key) {
    const CKQ_DsObject& object = key.GetDsObject();
    if (object.GetType() != Outcome64Enums::eDs_Slab)
        throw std::invalid_argument("result tables are kept per slab; the key names " +
                                    key.ToString());
    unsigned long count = 0;
    unsigned long first =
        GetElementsOnSlab(static_cast<unsigned long>(std::max(object.GetID(), 0)), count);
    std::error_code ec;
    if (std::filesystem::exists(GarPath(), ec)) {
        host::outcome::GarStore store(GarPath(), false);
        if (auto stored = store.Load(key)) {
            bool sameRows = stored->GetCountOfRows() == count;
            for (unsigned long r = 0; sameRows && r < count; ++r)
                sameRows = stored->GetElementId(r) == first + r;
            if (sameRows)
                return std::make_shared<CKQ_Result>(std::move(*stored));
        }
    }
    std::vector<unsigned long> ids(count);
    for (unsigned long r = 0; r < count; ++r)
        ids[r] = first + r;
    return std::make_shared<CKQ_Result>(key, std::move(ids));
}

int CKQ_ResultsAPI::GetFemMeshElementIndex(CKQ_Result& result, unsigned long row,
                                           unsigned long& element, unsigned long& extra) const {
    element = 0;
    extra = static_cast<unsigned long>(std::max(result.GetKey().GetDsObject().GetID(), 0));
    if (row >= result.GetCountOfRows())
        return 0;
    element = result.GetElementId(row);
    return element != 0 ? 1 : 0;
}

std::vector<CKQ_ResultKey> CKQ_ResultsAPI::GetStoredResultKeys() const {
    std::vector<CKQ_ResultKey> keys;
    std::error_code ec;
    if (!std::filesystem::exists(GarPath(), ec))
        return keys;
    host::outcome::GarStore store(GarPath(), false);
    for (const auto& info : store.List())
        keys.push_back(info.key);
    return keys;
}

std::shared_ptr<CKQ_Result> CKQ_ResultsAPI::LoadStoredResult(const CKQ_ResultKey& key) const {
    std::error_code ec;
    if (!std::filesystem::exists(GarPath(), ec))
        return nullptr;
    host::outcome::GarStore store(GarPath(), false);
    auto stored = store.Load(key);
    return stored ? std::make_shared<CKQ_Result>(std::move(*stored)) : nullptr;
}

namespace host::outcome {

InitFaultHook SetInitFaultHook(InitFaultHook hook) {
    std::lock_guard lock(g_initHookMutex);
    std::swap(g_initFaultHook, hook);
    return hook;
}

} // namespace host::outcome
