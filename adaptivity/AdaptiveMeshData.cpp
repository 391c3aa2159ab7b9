#include "adaptivity/AdaptiveMeshData.h"

#include <algorithm>
#include <cmath>

const double CAdaptiveMeshData::c_dWeightOfIntPointOnQuad = 1.0;
const double CAdaptiveMeshData::c_dWeightOfIntPointOnTriangle = 0.3333333333333333;

namespace {

void RequireOutput(const double* out) {
    if (out == nullptr)
        AfxThrowInvalidArgException();
}

} // namespace

// ---------------------------------------------------------------------------------------------
// CIntegrationPointData

void CIntegrationPointData::GetInternalForces(double* out) const {
    RequireOutput(out);
    std::copy(m_dInternalForces.begin(), m_dInternalForces.end(), out);
}

void CIntegrationPointData::GetDeformations(double* out) const {
    RequireOutput(out);
    std::copy(m_dDeformations.begin(), m_dDeformations.end(), out);
}

void CIntegrationPointData::Add(const CIntegrationPointData& other) {
    for (std::size_t i = 0; i < m_dInternalForces.size(); ++i)
        m_dInternalForces[i] += other.m_dInternalForces[i];
    for (std::size_t i = 0; i < m_dDeformations.size(); ++i)
        m_dDeformations[i] += other.m_dDeformations[i];
}

// ---------------------------------------------------------------------------------------------
// CAdaptiveMeshData: integration-point table

CAdaptiveMeshData::CAdaptiveMeshData() {
    // Gauss points of the 2x2 rule on a quadrilateral, counter-clockwise from (-a, -a).
    static const double a = 1.0 / std::sqrt(3.0);
    m_QuadNaturalCoords = {CKQPoint3D(-a, -a, 0.0), CKQPoint3D(a, -a, 0.0), CKQPoint3D(a, a, 0.0),
                           CKQPoint3D(-a, a, 0.0)};
    // Area coordinates of the 3-point rule on a triangle.
    m_TriangleNaturalCoords = {CKQPoint3D(1.0 / 6.0, 1.0 / 6.0, 2.0 / 3.0),
                               CKQPoint3D(2.0 / 3.0, 1.0 / 6.0, 1.0 / 6.0),
                               CKQPoint3D(1.0 / 6.0, 2.0 / 3.0, 1.0 / 6.0)};
}

void CAdaptiveMeshData::Clear() {
    m_Results.clear();
}

unsigned long CAdaptiveMeshData::GetCountOfResults() const {
    return CIntegrationPointData::c_nValuesPerGroup;
}

long CAdaptiveMeshData::GetCountOfIntegrationPoints(unsigned long element) const {
    return static_cast<long>(m_Results.at(element).size());
}

Outcome64Enums::eElementType CAdaptiveMeshData::GetElementType(unsigned long element) const {
    // Four points make a quadrilateral; any other count is taken for a triangle. The host's
    // enumerations are used by number (0 triangle, 1 quadrilateral; 0 forces, 1 deformations).
    return static_cast<Outcome64Enums::eElementType>(m_Results.at(element).size() == 4 ? 1 : 0);
}

void CAdaptiveMeshData::GetIntegrationPointResults(unsigned long element, unsigned long point,
                                                   Outcome64Enums::eIntegrationPointDataType type,
                                                   double* out) const {
    RequireOutput(out);
    const CIntegrationPointData& data = m_Results.at(element).at(point);
    if (static_cast<int>(type) == 0)
        data.GetInternalForces(out);
    else if (static_cast<int>(type) == 1)
        data.GetDeformations(out);
}

const CKQPoint3D& CAdaptiveMeshData::GetIntegrationPointGlobalCoords(unsigned long element,
                                                                     unsigned long point) const {
    return m_Results.at(element).at(point).m_GlobalCoords;
}

const CKQPoint3D& CAdaptiveMeshData::GetIntegrationPointLocalCoords(unsigned long element,
                                                                    unsigned long point) const {
    static const CKQPoint3D noPoint(1e20, 1e20, 1e20);
    const std::size_t count = m_Results.at(element).size();
    if (count == 4)
        return m_QuadNaturalCoords.at(point);
    if (count == 3)
        return m_TriangleNaturalCoords.at(point);
    return noPoint;
}

double CAdaptiveMeshData::GetIntegrationPointWeight(unsigned long element, unsigned long) const {
    return static_cast<int>(GetElementType(element)) != 0 ? c_dWeightOfIntPointOnQuad
                                                          : c_dWeightOfIntPointOnTriangle;
}
