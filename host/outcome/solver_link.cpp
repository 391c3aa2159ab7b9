#include "host/outcome/solver_link.h"

bool CKQ_SolverLinkMock::IsLoadCaseValid(unsigned long index) const {
    auto it = m_validity.find(static_cast<long>(index));
    return it != m_validity.end() && it->second;
}

void CKQ_SolverLinkMock::AddSlab(long slabId, long physicalTag) {
    m_slabs.insert(slabId, physicalTag);
    if (slabId > m_maxSlabId)
        m_maxSlabId = slabId;
}

void CKQ_SolverLinkMock::AddLoadCase(long id, long index, bool valid) {
    m_loadCases[id] = index;
    m_validity[index] = valid;
}

void CKQ_SolverLinkMock::Clear() {
    m_maxSlabId = 0;
    m_slabs.clear();
    m_loadCases.clear();
    m_validity.clear();
}
