#pragma once
// The module's one door to the analysed model: mesh topology, node coordinates, element
// properties, load cases, integration-point results, and the writing back of error and
// refinement values.
//
// Every index here is zero-based (nodes, elements, slabs, integration points); the host counts
// from 1 and the implementation converts at each crossing. Load-case indices are the host's
// own one-based indices. Failures come back as values (false, 0, -1); exceptions of the host
// or of the integration-point data pass through to the caller.
#include "host/framework/framework.h"
#include "host/outcome/outcome.h"
#include "host/shapekit/shapekit.h"

#include <vector>

class IAdaptivityResultsAPI {
public:
    IAdaptivityResultsAPI() = default;
    IAdaptivityResultsAPI(const IAdaptivityResultsAPI&) = default;
    IAdaptivityResultsAPI& operator=(const IAdaptivityResultsAPI&) = default;

    // Pure, yet defined below, so that the destructors of implementations can call it.
    virtual ~IAdaptivityResultsAPI() = 0;

    // Opens the project's results; 0 on success, the host's own code, or -1 when the project
    // has no solver link.
    virtual int Init(const CString& projectPath, unsigned char sourceFlag,
                     Outcome64Enums::eSolverType solverType) = 0;
    // false before the data are prepared, true after the run; true when the host succeeded.
    virtual bool SerializeSolverLink(bool direction) = 0;
    // Reads and sums the integration-point results of the listed one-based load-case indices
    // (as GetLoadCaseIndex gives them); false when no load case gave any data.
    virtual bool PrepareAdaptiveMeshData(const std::vector<long>& loadCaseNumbers) = 0;
    virtual void ClearAdaptiveMeshData() = 0;

    virtual unsigned long GetNoOfNodes() = 0;
    virtual unsigned long GetNoOfSlabs() = 0;
    // The index of the slab's first element; `count` receives the number of its elements,
    // which follow the first one without gaps.
    virtual unsigned long GetElementsOnSlab(unsigned long slab, unsigned long& count) = 0;
    // The element's node indices in the element's own node order.
    virtual void GetNodesOnElement(unsigned long element, std::vector<unsigned long>& nodes) = 0;
    virtual CKQPoint3D NodeCoords(unsigned long node) = 0;

    // Copies the 8 forces (type 0) or the 8 deformations (type 1) of a point to out[0..7];
    // a null `out` throws the framework's invalid-argument exception.
    virtual void GetIntegrationPointResults(unsigned long element, unsigned long point,
                                            Outcome64Enums::eIntegrationPointDataType type,
                                            double* out) const = 0;
    virtual CKQPoint3D GetIntegrationPointGlobalCoords(unsigned long element,
                                                       unsigned long point) const = 0;
    // Natural coordinates; (1e20, 1e20, 1e20) for an element of neither 3 nor 4 points.
    virtual CKQPoint3D GetIntegrationPointLocalCoords(unsigned long element,
                                                      unsigned long point) const = 0;

    // Hands the nodal size field (one value per node) to the mesher's input.
    virtual bool WriteMeshRefinement(const std::vector<double>& refinement) = 0;
    // Stores, per element, the global, local and numerical errors and the new element size
    // as the adaptivity result of the result case.
    virtual bool StoreMeshErrorAndRefinementInResults(unsigned long resultCase,
                                                      const std::vector<double>& first,
                                                      const std::vector<double>& second,
                                                      const std::vector<double>& third,
                                                      const std::vector<double>& fourth) = 0;

    virtual double GetElementArea(unsigned long element) = 0;
    virtual double GetElementThickness(unsigned long element) = 0;
    virtual double GetElementThicknessReduced(unsigned long element) = 0;
    // 1 (quadrilateral) for an element of 4 integration points, 0 (triangle) otherwise.
    virtual Outcome64Enums::eElementType GetElementType(unsigned long element) const = 0;
    virtual unsigned long GetCountOfDefNodes(unsigned long element) = 0;
    virtual unsigned long GetCountOfIntegrationPoints(unsigned long element) const = 0;
    // The number of values in each group (forces, deformations): 8.
    virtual unsigned long GetCountOfResults() const = 0;
    virtual double GetIntegrationPointWeight(unsigned long element, unsigned long point) const = 0;
    virtual unsigned long GetCountOfLoadCases() const = 0;
    // The one-based load-case index of a host load-case id; 0 when the load case is unknown,
    // has no index or has no valid results.
    virtual unsigned long GetLoadCaseIndex(unsigned long loadCaseId) const = 0;
    // Removes the project's result file (P.GAR).
    virtual void DeleteResultFiles() = 0;
};

inline IAdaptivityResultsAPI::~IAdaptivityResultsAPI() {}
