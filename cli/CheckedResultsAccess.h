#pragma once
// The results access a run's pass goes through: the host's, held at one point until the
// project check has given its verdict.
#include "adaptivity/AdaptivityResultsAPIImpl.h"

#include <filesystem>
#include <functional>
#include <vector>

namespace slabadapt::cli {

// The STRINTG files are checked on a thread of their own while the pass reads them; the pass
// waits for the verdict before anything of the project changes. This access holds back the
// removal of the old P.GAR until then and, when the check failed, ends the pass where its
// reading ends, before the estimator: nothing is removed or written and nothing is printed but
// the check's findings, as when the check runs first. A STRINTG file that is no regular file (a
// FIFO would be waited on for ever, a device read without end) is not read before the check
// has named it.
//
// Once the estimate is done (its results are being stored) the integration-point values, most
// of the memory a large model takes, are let go.
class CheckedResultsAccess : public CAdaptivityResultsAPIImpl {
public:
    // `verdict` waits for the check and says whether it passed; an empty one (no check) waits
    // for nothing.
    CheckedResultsAccess(std::filesystem::path project, std::function<bool()> verdict);

    void DeleteResultFiles() override;
    bool PrepareAdaptiveMeshData(const std::vector<long>& loadCaseNumbers) override;
    bool StoreMeshErrorAndRefinementInResults(unsigned long resultCase,
                                              const std::vector<double>& first,
                                              const std::vector<double>& second,
                                              const std::vector<double>& third,
                                              const std::vector<double>& fourth) override;

    // True when the check's verdict ended the pass.
    bool Stopped() const { return m_stopped; }

private:
    bool AllRegular(const std::vector<long>& loadCaseNumbers) const;

    std::filesystem::path m_project;
    std::function<bool()> m_verdict;
    bool m_deletePending = false;
    bool m_stopped = false;
};

} // namespace slabadapt::cli
