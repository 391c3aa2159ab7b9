#pragma once
// The module's entry point: one adaptivity pass over a solved project.
//
// Execute opens the project's results, removes the results of an earlier pass, reads and
// sums the integration-point results of the requested load cases, runs the estimator
// (Init, Run, StoreResults, WriteMeshRefinement) and reports one eFunctionReturnType code.
// The global relative error of the pass is then read with GetAdaptivityResult.
#include "host/framework/framework.h"

#include <vector>

class CAdaptivityImpl;
class IAdaptivityResultsAPI;

// Result code of Execute. The numbers are part of the exported interface.
enum eFunctionReturnType {
    Success = 0,
    ResultsAccessInitFailed = 1,   // IAdaptivityResultsAPI::Init returned non-zero
    MeshDataPreparationFailed = 2, // PrepareAdaptiveMeshData returned false
    EstimatorInitFailed = 3,       // CAdaptivityImpl::Init threw
    EstimatorRunFailed = 4,        // CAdaptivityImpl::Run threw
    StoreResultsFailed = 5,        // CAdaptivityImpl::StoreResults threw
    WriteMeshRefinementFailed = 6, // CAdaptivityImpl::WriteMeshRefinement threw
};

class CAdaptExecute {
public:
    CAdaptExecute();
    CAdaptExecute(const CAdaptExecute&) = default;
    CAdaptExecute(CAdaptExecute&&) = default;
    CAdaptExecute& operator=(const CAdaptExecute&) = default;
    CAdaptExecute& operator=(CAdaptExecute&&) = default;
    ~CAdaptExecute() = default;

    // One complete pass. targetError is the required relative error as a fraction (0.05 for
    // 5 %); loadCaseIDs are the host's load-case identifiers, evaluated together. Only the
    // four estimator stages are guarded: exceptions before them reach the caller.
    eFunctionReturnType Execute(const CString& projectPath, unsigned char sourceFlag,
                                int solverType, double targetError,
                                const std::vector<long>& loadCaseIDs);

    // The global relative error of the last pass that reached its write stage; 0.0 before.
    double GetAdaptivityResult() const;
    // Always -1: no pass singles out a load case. Kept for the exported interface.
    long GetProblematicLoadCaseID() const;

protected:
    // Execute's steps after the results object is made, on any results access; the seam
    // through which the pass runs over a results access other than the host's.
    eFunctionReturnType ExecuteOn(IAdaptivityResultsAPI& api, const CString& projectPath,
                                  unsigned char sourceFlag, int solverType, double targetError,
                                  const std::vector<long>& loadCaseIDs);

private:
    eFunctionReturnType RunAdaptivity(IAdaptivityResultsAPI& api, double targetError);

    // Each calls its one member of the estimator and turns any exception into its code.
    static eFunctionReturnType Init(CAdaptivityImpl& impl, IAdaptivityResultsAPI& api);
    static eFunctionReturnType Run(CAdaptivityImpl& impl, IAdaptivityResultsAPI& api);
    static eFunctionReturnType StoreResults(CAdaptivityImpl& impl, IAdaptivityResultsAPI& api);
    static eFunctionReturnType WriteMeshRefinement(CAdaptivityImpl& impl,
                                                   IAdaptivityResultsAPI& api);

    double m_dAdaptivityResult;
};
