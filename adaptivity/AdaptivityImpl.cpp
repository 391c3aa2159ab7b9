#include "adaptivity/AdaptivityImpl.h"
#include "adaptivity/ResultLayout.h"
#include "host/framework/stage_clock.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>

using meerspace::toUnsigned;

namespace {

// The engine counts in signed 32 bits. A host count is taken as the signed number it stands
// for, so that a count the host means as negative reaches the checked conversion (and fails
// there) instead of wrapping to a huge loop bound.
std::int32_t EngineCount(unsigned long hostCount) {
    const long value = static_cast<long>(hostCount);
    if (value > std::numeric_limits<std::int32_t>::max())
        throw std::range_error("count " + std::to_string(value) +
                               " exceeds the estimator's 32-bit range");
    const std::int32_t count = value < std::numeric_limits<std::int32_t>::min()
                                   ? std::numeric_limits<std::int32_t>::min()
                                   : static_cast<std::int32_t>(value);
    toUnsigned(count); // throws for a negative count
    return count;
}

// Host numbering (one-based) of an element or node, for messages a user can look up.
std::string HostNumber(unsigned long index) {
    return std::to_string(index + 1);
}

} // namespace

CAdaptivityImpl::CAdaptivityImpl(IAdaptivityResultsAPI& api, double targetError)
    : m_pResultsAPI(&api), m_dGlobalError(0.0), m_dTargetError(targetError) {}

CAdaptivityImpl::CAdaptivityImpl(const CAdaptivityImpl& other)
    : meerspace::MEER(other), m_pResultsAPI(other.m_pResultsAPI),
      m_nodeToElements(other.m_nodeToElements), m_dGlobalError(other.m_dGlobalError),
      m_dTargetError(other.m_dTargetError) {}

CAdaptivityImpl::~CAdaptivityImpl() = default;

// ---------------------------------------------------------------------------------------------
// Set-up and run
// ---------------------------------------------------------------------------------------------

// The marks let a caller see the records' set-up and the estimate apart (run --timings).
void CAdaptivityImpl::Init() {
    host::framework::MarkStage("setting up the estimator");
    initialize();
}

void CAdaptivityImpl::Run() {
    host::framework::MarkStage("estimating");
    m_dGlobalError = estimate(m_dTargetError);
    host::framework::MarkStage("estimated");
}

double CAdaptivityImpl::GetGlobalError() const {
    return m_dGlobalError;
}

void CAdaptivityImpl::initialize() {
    IAdaptivityResultsAPI& api = *m_pResultsAPI;

    enorm = 2;
    max_size_ratio = 2.0;
    min_size_ratio = 0.25;

    const std::int32_t nodeCount = EngineCount(api.GetNoOfNodes());
    const std::int32_t slabCount = EngineCount(api.GetNoOfSlabs());
    std::int32_t elementCount = 0;

    // Element -> slab. Each slab owns a contiguous range of the global element indices.
    std::vector<long> slabOfElement;
    for (std::uint32_t s = 0; s < toUnsigned(slabCount); ++s) {
        unsigned long count = 0;
        const unsigned long first = api.GetElementsOnSlab(s, count);
        EngineCount(count);
        elementCount = EngineCount(static_cast<unsigned long>(elementCount) + count);
        if (count == 0)
            continue;
        // The map only ever grows to the running element count; a range that ends beyond
        // it would be written outside the map.
        if (first > static_cast<unsigned long>(elementCount) ||
            count > static_cast<unsigned long>(elementCount) - first)
            throw std::out_of_range("slab " + HostNumber(s) + ": its elements " +
                                    HostNumber(first) + " to " + HostNumber(first + count - 1) +
                                    " lie beyond the " + std::to_string(elementCount) +
                                    " elements of the slabs up to it");
        if (first + count > slabOfElement.size())
            slabOfElement.resize(toUnsigned(elementCount), static_cast<long>(s));
        for (unsigned long e = first; e < first + count; ++e)
            slabOfElement[e] = static_cast<long>(s);
    }

    set_number_of_nodes(nodeCount);
    set_number_of_elements(elementCount);
    set_number_of_regions(slabCount);

    for (std::uint32_t n = 0; n < toUnsigned(nodeCount); ++n)
        InitNodeCoords(n);

    std::vector<unsigned long> hostNodes; // used again for every element
    for (std::uint32_t e = 0; e < toUnsigned(elementCount); ++e) {
        meerspace::ELEMENT& element = elements[e];
        // Slab ranges that leave gaps give no slab to the elements in the gaps.
        if (e >= slabOfElement.size())
            throw std::out_of_range("element " + HostNumber(e) + " belongs to no slab");
        element.region = static_cast<std::int32_t>(slabOfElement[e]);

        const std::int32_t nodesOfElement = EngineCount(api.GetCountOfDefNodes(e));
        hostNodes.clear();
        api.GetNodesOnElement(e, hostNodes);
        if (hostNodes.size() < toUnsigned(nodesOfElement))
            throw std::out_of_range("element " + HostNumber(e) + " has " +
                                    std::to_string(nodesOfElement) + " nodes, but the host lists " +
                                    std::to_string(hostNodes.size()));
        element.n_nodes = nodesOfElement;
        element.nodes = new std::int32_t[toUnsigned(nodesOfElement)];
        for (std::uint32_t i = 0; i < toUnsigned(nodesOfElement); ++i) {
            if (hostNodes[i] >= toUnsigned(nodeCount))
                throw std::out_of_range("element " + HostNumber(e) + " refers to node " +
                                        HostNumber(hostNodes[i]) + ", but the mesh has " +
                                        std::to_string(nodeCount) + " nodes");
            element.nodes[i] = static_cast<std::int32_t>(hostNodes[i]);
        }

        const std::int32_t points = give_number_of_IPs1(static_cast<std::int32_t>(e));
        element.n_ips1 = points;
        element.ip_coords = new meerspace::PoinT[toUnsigned(points)];
        for (std::uint32_t j = 0; j < toUnsigned(points); ++j)
            InitIntegrationPointCoords(e, j);
    }

    m_nodeToElements = slabadapt::results::NodeElementLists::Build(
        toUnsigned(nodeCount), toUnsigned(elementCount), [this](std::size_t e) {
            return std::span<const std::int32_t>(elements[e].nodes,
                                                 toUnsigned(elements[e].n_nodes));
        });
    // The engine hands out list buffers of kMaxSuperelems entries and trusts the count it
    // gets back, so a busier node is refused here, before the run, with its number.
    for (std::size_t n = 0; n < m_nodeToElements.size(); ++n) {
        if (m_nodeToElements[n].size() > static_cast<std::size_t>(meerspace::kMaxSuperelems))
            throw std::length_error("node " + HostNumber(n) + " belongs to " +
                                    std::to_string(m_nodeToElements[n].size()) +
                                    " elements; the estimator takes at most " +
                                    std::to_string(meerspace::kMaxSuperelems));
    }

    for (std::uint32_t r = 0; r < toUnsigned(slabCount); ++r) {
        regions[r].n_values = EngineCount(api.GetCountOfResults());
        regions[r].spr_patch_type = 1;
    }
}

CKQPoint3D CAdaptivityImpl::GiveNodeCoords(unsigned long node) {
    return m_pResultsAPI->NodeCoords(node);
}

void CAdaptivityImpl::InitNodeCoords(unsigned long node) {
    const CKQPoint3D p = GiveNodeCoords(node);
    nodes[node].coords = meerspace::PoinT(p.X(), p.Y(), p.Z());
}

void CAdaptivityImpl::InitIntegrationPointCoords(unsigned long elem, unsigned long ip) {
    double xyz[3] = {0.0, 0.0, 0.0};
    give_IPs1_coords_global(static_cast<std::int32_t>(elem), static_cast<int>(ip), xyz);
    elements[elem].ip_coords[ip] = meerspace::PoinT(xyz[0], xyz[1], xyz[2]);
}

// ---------------------------------------------------------------------------------------------
// Callbacks
// ---------------------------------------------------------------------------------------------

void CAdaptivityImpl::give_superelems_to_node(std::int32_t node, std::int32_t& count,
                                              std::int32_t* elems) const {
    if (elems == nullptr)
        AfxThrowInvalidArgException();
    const std::span<const std::int32_t> list = m_nodeToElements.at(toUnsigned(node));
    // The engine's buffer holds kMaxSuperelems entries (initialize refuses busier nodes).
    if (list.size() > static_cast<std::size_t>(meerspace::kMaxSuperelems))
        throw std::length_error(
            "node " + HostNumber(toUnsigned(node)) + " belongs to " + std::to_string(list.size()) +
            " elements; the estimator takes at most " + std::to_string(meerspace::kMaxSuperelems));
    count = static_cast<std::int32_t>(list.size());
    std::copy(list.begin(), list.end(), elems);
}

meerspace::MEER_ElemDisplInterpol CAdaptivityImpl::give_element_EDI(std::int32_t elem) {
    // Host type 1 is a quadrilateral whose first node lies at (-1, -1); anything else is
    // treated as a linear triangle.
    const int type =
        static_cast<int>(m_pResultsAPI->GetElementType(static_cast<unsigned long>(elem)));
    return type == 1 ? meerspace::MEER_EDI_QUAD_BILINEAR_2 : meerspace::MEER_EDI_TRIANGLE_LINEAR;
}

double CAdaptivityImpl::give_element_area(std::int32_t elem) const {
    return m_pResultsAPI->GetElementArea(static_cast<unsigned long>(elem));
}

double CAdaptivityImpl::give_element_thickness(std::int32_t elem) const {
    return m_pResultsAPI->GetElementThickness(static_cast<unsigned long>(elem));
}

double CAdaptivityImpl::give_element_thickness_reduced(std::int32_t elem) const {
    return m_pResultsAPI->GetElementThicknessReduced(static_cast<unsigned long>(elem));
}

std::int32_t CAdaptivityImpl::give_number_of_IPs1(std::int32_t elem) const {
    return static_cast<std::int32_t>(
        m_pResultsAPI->GetCountOfIntegrationPoints(static_cast<unsigned long>(elem)));
}

// Both point sets are the host's integration points.
std::int32_t CAdaptivityImpl::give_number_of_IPs2(std::int32_t elem) const {
    return give_number_of_IPs1(elem);
}

void CAdaptivityImpl::give_node_coords(std::int32_t node, double* xyz) const {
    if (xyz == nullptr)
        AfxThrowInvalidArgException();
    const CKQPoint3D p = m_pResultsAPI->NodeCoords(static_cast<unsigned long>(node));
    xyz[0] = p.x;
    xyz[1] = p.y;
    xyz[2] = p.z;
}

void CAdaptivityImpl::give_IPs1_coords_global(std::int32_t elem, int ip, double* xyz) const {
    const std::uint32_t point = toUnsigned(ip);
    if (xyz == nullptr)
        AfxThrowInvalidArgException();
    const CKQPoint3D p =
        m_pResultsAPI->GetIntegrationPointGlobalCoords(static_cast<unsigned long>(elem), point);
    xyz[0] = p.X();
    xyz[1] = p.Y();
    xyz[2] = p.Z();
}

double CAdaptivityImpl::give_IPs2_coords_natural(std::int32_t elem, int ip, double* coords) const {
    const std::uint32_t point = toUnsigned(ip);
    if (coords == nullptr)
        AfxThrowInvalidArgException();
    const auto element = static_cast<unsigned long>(elem);
    const CKQPoint3D p = m_pResultsAPI->GetIntegrationPointLocalCoords(element, point);
    coords[0] = p.X();
    coords[1] = p.Y();
    coords[2] = p.Z();
    return m_pResultsAPI->GetIntegrationPointWeight(element, point);
}

// The same count for every element, point and kind.
std::int32_t CAdaptivityImpl::give_IPs1_values_count(std::int32_t /*elem*/, int /*ip*/,
                                                     meerspace::MEER_IPValues /*kind*/) const {
    return static_cast<std::int32_t>(m_pResultsAPI->GetCountOfResults());
}

std::int32_t CAdaptivityImpl::give_IPs2_values_count(std::int32_t elem, int ip,
                                                     meerspace::MEER_IPValues kind) const {
    return give_IPs1_values_count(elem, ip, kind);
}

void CAdaptivityImpl::give_IPs1_values(std::int32_t elem, int ip, meerspace::MEER_IPValues kind,
                                       std::int32_t count, double* values) const {
    if (give_IPs1_values_count(elem, ip, kind) != count)
        throw std::bad_function_call();
    // Engine kind 1 (deformations) is the host's data type 1; everything else, the forces
    // (kind 2) included, is data type 0.
    const auto type = static_cast<Outcome64Enums::eIntegrationPointDataType>(
        kind == meerspace::MEER_IPV_DEFORMATIONS ? 1 : 0);
    m_pResultsAPI->GetIntegrationPointResults(static_cast<unsigned long>(elem),
                                              static_cast<unsigned long>(ip), type, values);
}

void CAdaptivityImpl::give_IPs2_values(std::int32_t elem, int ip, meerspace::MEER_IPValues kind,
                                       std::int32_t count, double* values) const {
    give_IPs1_values(elem, ip, kind, count, values);
}

// An element is invalid when two of its integration points lie in almost the same direction
// (within 1 degree) seen from a third: the patch fit around it is then singular. Corners
// whose neighbours lie in opposite directions, and coincident points, pass.
bool CAdaptivityImpl::is_element_valid(std::int32_t elem) const {
    static const double cosLimit = std::cos(1.0 * 3.141592653589793 / 180.0);

    const int type =
        static_cast<int>(m_pResultsAPI->GetElementType(static_cast<unsigned long>(elem)));
    const int corners = type == 0 ? 3 : type == 1 ? 4 : 0;
    if (corners == 0)
        return true;

    const meerspace::ELEMENT& element = elements[elem];
    // The test reads the first three or four cached points; an element with fewer is refused
    // rather than read past its point array.
    if (element.n_ips1 < corners || element.ip_coords == nullptr)
        throw std::length_error("element " + HostNumber(toUnsigned(elem)) + " (" +
                                (corners == 3 ? "triangle" : "quadrilateral") + ") has " +
                                std::to_string(element.n_ips1) +
                                " integration points; its validity test needs " +
                                std::to_string(corners));

    CKQPoint3D p[4];
    for (int i = 0; i < corners; ++i) {
        const meerspace::PoinT& q = element.ip_coords[i];
        p[i] = CKQPoint3D(q.x, q.y, q.z);
    }
    const auto unit = [](const CKQVector3D& v) {
        const double length = v.Length();
        return length == 0.0 ? v : v / length;
    };
    for (int i = 0; i < corners; ++i) {
        const CKQPoint3D& previous = p[(i + corners - 1) % corners];
        const CKQPoint3D& next = p[(i + 1) % corners];
        const CKQVector3D a = unit(p[i] - previous);
        const CKQVector3D b = unit(p[i] - next);
        if (a.x * b.x + a.y * b.y + a.z * b.z > cosLimit)
            return false;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Results
// ---------------------------------------------------------------------------------------------

std::vector<double> CAdaptivityImpl::CopyElementVector(const meerspace::Dvctr& values) const {
    std::vector<double> result(toUnsigned(n_elems), 0.0);
    // Before a run the engine's vectors are empty; reading them would overrun.
    if (values.size() < n_elems)
        throw std::logic_error("the estimator holds no results for the " + std::to_string(n_elems) +
                               " elements (has it run?)");
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = values[static_cast<std::ptrdiff_t>(i)];
    return result;
}

std::vector<double> CAdaptivityImpl::GetGlobalMeshErrorOnElements() const {
    return CopyElementVector(give_elem_global_error());
}

std::vector<double> CAdaptivityImpl::GetLocalMeshErrorOnElements() const {
    return CopyElementVector(give_elem_local_error());
}

std::vector<double> CAdaptivityImpl::GetNumericalMeshErrorOnElements() const {
    return CopyElementVector(give_elem_error_density());
}

std::vector<double> CAdaptivityImpl::GetMeshRefinementOnElements() const {
    return CopyElementVector(give_elem_new_size());
}

std::vector<double> CAdaptivityImpl::GetMeshRefinementOnNodes() const {
    std::vector<double> result =
        slabadapt::results::AverageOnNodes(m_nodeToElements, GetMeshRefinementOnElements());
    result.resize(toUnsigned(n_nodes), 0.0);
    return result;
}

bool CAdaptivityImpl::StoreResults() {
    const std::vector<double> global = GetGlobalMeshErrorOnElements();
    const std::vector<double> local = GetLocalMeshErrorOnElements();
    const std::vector<double> refinement = GetMeshRefinementOnElements();
    const std::vector<double> numerical = GetNumericalMeshErrorOnElements();
    // Result case 1: the results layer decides what it stands for.
    return m_pResultsAPI->StoreMeshErrorAndRefinementInResults(1, global, local, numerical,
                                                               refinement);
}

bool CAdaptivityImpl::WriteMeshRefinement() {
    return m_pResultsAPI->WriteMeshRefinement(GetMeshRefinementOnNodes());
}
