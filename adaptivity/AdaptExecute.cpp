#include "adaptivity/AdaptExecute.h"

#include "adaptivity/AdaptivityImpl.h"
#include "adaptivity/AdaptivityResultsAPIImpl.h"
#include "adaptivity/IAdaptivityResultsAPI.h"

#include <cstdint>

CAdaptExecute::CAdaptExecute() : m_dAdaptivityResult(0.0) {}

double CAdaptExecute::GetAdaptivityResult() const {
    return m_dAdaptivityResult;
}

long CAdaptExecute::GetProblematicLoadCaseID() const {
    return -1;
}

eFunctionReturnType CAdaptExecute::Execute(const CString& projectPath, unsigned char sourceFlag,
                                           int solverType, double targetError,
                                           const std::vector<long>& loadCaseIDs) {
    CAdaptivityResultsAPIImpl api;
    return ExecuteOn(api, projectPath, sourceFlag, solverType, targetError, loadCaseIDs);
}

eFunctionReturnType CAdaptExecute::ExecuteOn(IAdaptivityResultsAPI& api, const CString& projectPath,
                                             unsigned char sourceFlag, int solverType,
                                             double targetError,
                                             const std::vector<long>& loadCaseIDs) {
    if (api.Init(projectPath, sourceFlag, static_cast<Outcome64Enums::eSolverType>(solverType)) !=
        0)
        return ResultsAccessInitFailed;

    api.DeleteResultFiles();
    api.SerializeSolverLink(false);

    // Unknown or invalid load cases (index 0) are skipped; duplicates and order are kept, and
    // all load cases go to one run together.
    std::vector<long> indices;
    for (long id : loadCaseIDs) {
        const unsigned long index = api.GetLoadCaseIndex(static_cast<unsigned long>(id));
        if (static_cast<std::int32_t>(index) > 0)
            indices.push_back(static_cast<long>(index));
    }

    if (!api.PrepareAdaptiveMeshData(indices))
        return MeshDataPreparationFailed;

    const eFunctionReturnType rc = RunAdaptivity(api, targetError);
    api.SerializeSolverLink(true);
    return rc;
}

eFunctionReturnType CAdaptExecute::RunAdaptivity(IAdaptivityResultsAPI& api, double targetError) {
    CAdaptivityImpl impl(api, targetError);
    eFunctionReturnType rc = Init(impl, api);
    if (rc != Success)
        return rc;
    rc = Run(impl, api);
    if (rc != Success)
        return rc;
    rc = StoreResults(impl, api);
    if (rc != Success)
        return rc;
    rc = WriteMeshRefinement(impl, api);
    // Published even when only the write stage failed: the estimate itself is complete.
    m_dAdaptivityResult = impl.GetGlobalError();
    return rc;
}

// The guards drop every exception without a word: the code is the whole report.
eFunctionReturnType CAdaptExecute::Init(CAdaptivityImpl& impl, IAdaptivityResultsAPI& /*api*/) {
    try {
        impl.Init();
    } catch (...) {
        return EstimatorInitFailed;
    }
    return Success;
}

eFunctionReturnType CAdaptExecute::Run(CAdaptivityImpl& impl, IAdaptivityResultsAPI& /*api*/) {
    try {
        impl.Run();
    } catch (...) {
        return EstimatorRunFailed;
    }
    return Success;
}

// A refusal by the host (false) is deliberately not a failure of the stage.
eFunctionReturnType CAdaptExecute::StoreResults(CAdaptivityImpl& impl,
                                                IAdaptivityResultsAPI& /*api*/) {
    try {
        impl.StoreResults();
    } catch (...) {
        return StoreResultsFailed;
    }
    return Success;
}

eFunctionReturnType CAdaptExecute::WriteMeshRefinement(CAdaptivityImpl& impl,
                                                       IAdaptivityResultsAPI& /*api*/) {
    try {
        impl.WriteMeshRefinement();
    } catch (...) {
        return WriteMeshRefinementFailed;
    }
    return Success;
}
