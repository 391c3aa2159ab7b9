#include "cli/CheckedResultsAccess.h"

#include "host/outcome/combinations.h"

namespace slabadapt::cli {

namespace fs = std::filesystem;

CheckedResultsAccess::CheckedResultsAccess(fs::path project, std::function<bool()> verdict)
    : m_project(std::move(project)), m_verdict(std::move(verdict)) {}

void CheckedResultsAccess::DeleteResultFiles() {
    if (m_verdict)
        m_deletePending = true;
    else
        CAdaptivityResultsAPIImpl::DeleteResultFiles();
}

bool CheckedResultsAccess::PrepareAdaptiveMeshData(const std::vector<long>& loadCaseNumbers) {
    if (m_verdict && !AllRegular(loadCaseNumbers) && !m_verdict()) {
        m_stopped = true;
        return false;
    }
    const bool read = CAdaptivityResultsAPIImpl::PrepareAdaptiveMeshData(loadCaseNumbers);
    if (m_verdict && !m_verdict()) {
        ClearAdaptiveMeshData();
        m_stopped = true;
        return false;
    }
    if (m_deletePending)
        CAdaptivityResultsAPIImpl::DeleteResultFiles();
    m_deletePending = false;
    return read;
}

bool CheckedResultsAccess::StoreMeshErrorAndRefinementInResults(unsigned long resultCase,
                                                                const std::vector<double>& first,
                                                                const std::vector<double>& second,
                                                                const std::vector<double>& third,
                                                                const std::vector<double>& fourth) {
    ClearAdaptiveMeshData();
    return CAdaptivityResultsAPIImpl::StoreMeshErrorAndRefinementInResults(resultCase, first,
                                                                           second, third, fourth);
}

bool CheckedResultsAccess::AllRegular(const std::vector<long>& loadCaseNumbers) const {
    for (long index : loadCaseNumbers) {
        std::error_code ec;
        const fs::path file = host::outcome::StrintgFile(m_project, index);
        if (fs::exists(file, ec) && !fs::is_regular_file(file, ec))
            return false;
    }
    return true;
}

} // namespace slabadapt::cli
