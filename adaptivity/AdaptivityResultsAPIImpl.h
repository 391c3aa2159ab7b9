#pragma once
// The results access interface over the host's result store and the integration-point data
// of the project's STRINTG files.
#include "adaptivity/AdaptiveMeshData.h"
#include "adaptivity/IAdaptivityResultsAPI.h"
#include "host/outcome/outcome.h"

class CAdaptivityResultsAPIImpl : public IAdaptivityResultsAPI {
public:
    // Nothing is opened until Init.
    CAdaptivityResultsAPIImpl() = default;
    ~CAdaptivityResultsAPIImpl() override = default;
    CAdaptivityResultsAPIImpl(const CAdaptivityResultsAPIImpl&) = default;
    CAdaptivityResultsAPIImpl& operator=(const CAdaptivityResultsAPIImpl&) = default;

    int Init(const CString& projectPath, unsigned char sourceFlag,
             Outcome64Enums::eSolverType solverType) override;
    bool SerializeSolverLink(bool direction) override;
    bool PrepareAdaptiveMeshData(const std::vector<long>& loadCaseNumbers) override;
    void ClearAdaptiveMeshData() override;

    unsigned long GetNoOfNodes() override;
    unsigned long GetNoOfSlabs() override;
    unsigned long GetElementsOnSlab(unsigned long slab, unsigned long& count) override;
    void GetNodesOnElement(unsigned long element, std::vector<unsigned long>& nodes) override;
    CKQPoint3D NodeCoords(unsigned long node) override;

    void GetIntegrationPointResults(unsigned long element, unsigned long point,
                                    Outcome64Enums::eIntegrationPointDataType type,
                                    double* out) const override;
    CKQPoint3D GetIntegrationPointGlobalCoords(unsigned long element,
                                               unsigned long point) const override;
    CKQPoint3D GetIntegrationPointLocalCoords(unsigned long element,
                                              unsigned long point) const override;

    bool WriteMeshRefinement(const std::vector<double>& refinement) override;
    bool StoreMeshErrorAndRefinementInResults(unsigned long resultCase,
                                              const std::vector<double>& first,
                                              const std::vector<double>& second,
                                              const std::vector<double>& third,
                                              const std::vector<double>& fourth) override;

    double GetElementArea(unsigned long element) override;
    double GetElementThickness(unsigned long element) override;
    double GetElementThicknessReduced(unsigned long element) override;
    Outcome64Enums::eElementType GetElementType(unsigned long element) const override;
    unsigned long GetCountOfDefNodes(unsigned long element) override;
    unsigned long GetCountOfIntegrationPoints(unsigned long element) const override;
    unsigned long GetCountOfResults() const override;
    double GetIntegrationPointWeight(unsigned long element, unsigned long point) const override;
    unsigned long GetCountOfLoadCases() const override;
    unsigned long GetLoadCaseIndex(unsigned long loadCaseId) const override;
    void DeleteResultFiles() override;

private:
    friend struct CAdaptivityResultsAPIImplTestAccess;

    CString ProjectPath() const;

    CKQ_ResultsAPI m_ResultsAPI;          // the host's result store
    CAdaptiveMeshData m_AdaptiveMeshData; // integration-point data of the prepared load cases
};
