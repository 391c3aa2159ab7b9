// Storing the adaptivity result in the host's result store: one table per slab.
#include "adaptivity/AdaptiveMeshData.h"
#include "adaptivity/ResultLayout.h"

#include "host/outcome/outcome.h"

#include <memory>

bool CAdaptiveMeshData::StoreMeshErrorAndRefinementInResults(CKQ_ResultsAPI& store,
                                                             unsigned long loadCase,
                                                             const std::vector<double>& first,
                                                             const std::vector<double>& second,
                                                             const std::vector<double>& third,
                                                             const std::vector<double>& fourth) {
    using namespace Outcome64Enums;
    // A project without solver link has no slabs, so nothing is stored.
    CKQ_SolverLinkMock* link = store.GetSolverLink();
    if (link == nullptr)
        return true;
    CKQ_IDsMultiMap& slabs = link->GetSlabsIDs();
    const CResultCase resultCase(eDs_LoadCase, static_cast<int>(loadCase), 0, false);

    for (const auto& slab : slabs) {
        const CKQ_DsObject object(eDs_Slab, static_cast<int>(slab.first));
        const CKQ_ResultKey key(c_guidMeshErrorAndRefinement, object, resultCase, 0,
                                static_cast<eCoordSystem>(1), static_cast<eResLocation>(0),
                                static_cast<eEnvelopeExtreme>(0));
        // The store's own operations beside CKQ_FemResultsAPI: GetResultTable makes (or opens)
        // the slab's table, CKQ_Result::GetCountOfRows and SetValue count its rows and set a cell.
        std::shared_ptr<CKQ_Result> table = store.GetResultTable(key);
        if (!table)
            continue; // the store has no table for this slab
        const unsigned long rows = table->GetCountOfRows();
        for (unsigned long row = 0; row < rows; ++row) {
            unsigned long element = 0;
            unsigned long extra = 0;
            store.GetFemMeshElementIndex(*table, row, element, extra);
            if (element == 0)
                continue; // a row without element keeps what the store put there
            const std::size_t e = element - 1;
            // The two errors are stored in hundreds of the values the estimator gives.
            table->SetValue(0, row, first.at(e) / 100.0);
            table->SetValue(1, row, second.at(e) / 100.0);
            table->SetValue(2, row, third.at(e));
            table->SetValue(3, row, fourth.at(e));
        }
        store.SaveResult(table, true);
    }
    return true;
}
