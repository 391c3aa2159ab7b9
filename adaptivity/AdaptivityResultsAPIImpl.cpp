#include "adaptivity/AdaptivityResultsAPIImpl.h"

#include "host/calclink/calclink.h"

#include <cstdint>

// The host counts nodes, elements and slabs from 1, this interface from 0: every id handed to
// the store is index + 1 and every id that comes back is decremented.

namespace {
constexpr auto c_modelType = static_cast<Outcome64Enums::eModelType>(0);
constexpr auto c_surfaceElements = static_cast<Outcome64Enums::eDimension>(2);
} // namespace

int CAdaptivityResultsAPIImpl::Init(const CString& projectPath, unsigned char sourceFlag,
                                    Outcome64Enums::eSolverType solverType) {
    m_ResultsAPI.SetSource(projectPath, sourceFlag);
    const int status = m_ResultsAPI.Init(solverType, c_modelType, true, 0);
    if (status != 0)
        return status;
    return m_ResultsAPI.GetSolverLink() != nullptr ? 0 : -1;
}

bool CAdaptivityResultsAPIImpl::SerializeSolverLink(bool direction) {
    return m_ResultsAPI.SerializeSolverLink(direction, std::wstring()) != 0;
}

CString CAdaptivityResultsAPIImpl::ProjectPath() const {
    return m_ResultsAPI.GetProjectNameWithPath(c_modelType, 0);
}

bool CAdaptivityResultsAPIImpl::PrepareAdaptiveMeshData(const std::vector<long>& loadCaseNumbers) {
    // Nothing beyond the model's elements is ever asked for: a record past them is not kept.
    if (m_ResultsAPI.IsOpen())
        m_AdaptiveMeshData.LimitElementNumbers(m_ResultsAPI.GetNoOfElements());
    return m_AdaptiveMeshData.PrepareResultsOnIntegrationPoints(loadCaseNumbers, ProjectPath());
}

void CAdaptivityResultsAPIImpl::ClearAdaptiveMeshData() {
    m_AdaptiveMeshData.Clear();
}

unsigned long CAdaptivityResultsAPIImpl::GetNoOfNodes() {
    return m_ResultsAPI.GetNoOfNodes();
}

// The highest slab id is taken for the number of slabs: slab ids run from 1 without gaps.
// Without a solver link (Init answered -1) there are no slabs.
unsigned long CAdaptivityResultsAPIImpl::GetNoOfSlabs() {
    const CKQ_SolverLinkMock* link = m_ResultsAPI.GetSolverLink();
    return link != nullptr ? static_cast<unsigned long>(link->GetMaxSlabMacroID()) : 0;
}

unsigned long CAdaptivityResultsAPIImpl::GetElementsOnSlab(unsigned long slab,
                                                           unsigned long& count) {
    return m_ResultsAPI.GetElementsOnSlab(slab + 1, count) - 1;
}

void CAdaptivityResultsAPIImpl::GetNodesOnElement(unsigned long element,
                                                  std::vector<unsigned long>& nodes) {
    m_ResultsAPI.GetNodesOnElement(c_surfaceElements, element + 1, nodes);
    for (unsigned long& node : nodes)
        --node;
}

CKQPoint3D CAdaptivityResultsAPIImpl::NodeCoords(unsigned long node) {
    return m_ResultsAPI.NodeCoords(node + 1);
}

void CAdaptivityResultsAPIImpl::GetIntegrationPointResults(
    unsigned long element, unsigned long point, Outcome64Enums::eIntegrationPointDataType type,
    double* out) const {
    m_AdaptiveMeshData.GetIntegrationPointResults(element, point, type, out);
}

CKQPoint3D CAdaptivityResultsAPIImpl::GetIntegrationPointGlobalCoords(unsigned long element,
                                                                      unsigned long point) const {
    return m_AdaptiveMeshData.GetIntegrationPointGlobalCoords(element, point);
}

CKQPoint3D CAdaptivityResultsAPIImpl::GetIntegrationPointLocalCoords(unsigned long element,
                                                                     unsigned long point) const {
    return m_AdaptiveMeshData.GetIntegrationPointLocalCoords(element, point);
}

bool CAdaptivityResultsAPIImpl::WriteMeshRefinement(const std::vector<double>& refinement) {
    const CString projectPath = ProjectPath();
    const unsigned long count = m_ResultsAPI.GetNoOfNodes();
    std::vector<CKQPoint3D> nodes(count);
    for (unsigned long i = 0; i < count; ++i)
        nodes[i] = m_ResultsAPI.NodeCoords(i + 1);
    const CSolverFEMcoWriter writer;
    writer.WriteMeshRefinements(projectPath, refinement, nodes);
    return true;
}

bool CAdaptivityResultsAPIImpl::StoreMeshErrorAndRefinementInResults(
    unsigned long resultCase, const std::vector<double>& first, const std::vector<double>& second,
    const std::vector<double>& third, const std::vector<double>& fourth) {
    return m_AdaptiveMeshData.StoreMeshErrorAndRefinementInResults(m_ResultsAPI, resultCase, first,
                                                                   second, third, fourth);
}

double CAdaptivityResultsAPIImpl::GetElementArea(unsigned long element) {
    return m_ResultsAPI.GetFemMeshElementArea(element + 1);
}

double CAdaptivityResultsAPIImpl::GetElementThickness(unsigned long element) {
    return m_ResultsAPI.GetFemMeshElementThickness(element + 1);
}

// Deliberately 1.0 for every element: the estimator works with the unreduced section.
double CAdaptivityResultsAPIImpl::GetElementThicknessReduced(unsigned long) {
    return 1.0;
}

Outcome64Enums::eElementType
CAdaptivityResultsAPIImpl::GetElementType(unsigned long element) const {
    return m_AdaptiveMeshData.GetElementType(element);
}

unsigned long CAdaptivityResultsAPIImpl::GetCountOfDefNodes(unsigned long element) {
    return m_ResultsAPI.GetCountOfDefNodes(element + 1);
}

unsigned long CAdaptivityResultsAPIImpl::GetCountOfIntegrationPoints(unsigned long element) const {
    return static_cast<unsigned long>(m_AdaptiveMeshData.GetCountOfIntegrationPoints(element));
}

unsigned long CAdaptivityResultsAPIImpl::GetCountOfResults() const {
    return m_AdaptiveMeshData.GetCountOfResults();
}

double CAdaptivityResultsAPIImpl::GetIntegrationPointWeight(unsigned long element,
                                                            unsigned long point) const {
    return m_AdaptiveMeshData.GetIntegrationPointWeight(element, point);
}

// The const operations reach the solver link through the store's read-only accessor,
// GetSolverLinkReadOnly; without a link (Init answered -1) there are no load cases.
unsigned long CAdaptivityResultsAPIImpl::GetCountOfLoadCases() const {
    const CKQ_SolverLinkMock* link = m_ResultsAPI.GetSolverLinkReadOnly();
    return link != nullptr ? link->GetCountOfLoadCases() : 0;
}

unsigned long CAdaptivityResultsAPIImpl::GetLoadCaseIndex(unsigned long loadCaseId) const {
    const CKQ_SolverLinkMock* link = m_ResultsAPI.GetSolverLinkReadOnly();
    if (link == nullptr)
        return 0;
    const auto& indices = link->GetLoadCasesIDs();
    const auto found = indices.find(static_cast<long>(loadCaseId));
    if (found == indices.end())
        return 0;
    // The index is read as the host's 32-bit number: 0 or below means "no index".
    const auto index = static_cast<std::int32_t>(found->second);
    if (index < 1)
        return 0;
    if (!link->IsLoadCaseValid(static_cast<unsigned long>(found->second)))
        return 0;
    return static_cast<unsigned long>(found->second);
}

void CAdaptivityResultsAPIImpl::DeleteResultFiles() {
    m_AdaptiveMeshData.DeleteResultFiles(ProjectPath());
}
