#include "cli/StoredResults.h"

#include "host/com/guid.h"
#include "host/outcome/gar.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

namespace slabadapt::cli {

namespace fs = std::filesystem;

const char* const kAdaptivityResultType = "{AC98000C-E79E-4365-877E-0A3F95AA42F4}";

const std::array<ColumnInfo, 4> kColumns = {{
    {"global_error", "global error",
     "the element's error over the mean element norm of the model, a fraction"},
    {"local_error", "local error", "the element's error over its own norm, a fraction"},
    {"error_density", "error density", "the element's squared error over its area and thickness"},
    {"new_size", "new size", "the element size the next mesh needs, in the mesh's length unit"},
}};

StoredResults ReadStoredResults(const fs::path& project, const host::outcome::Project* model) {
    StoredResults results;
    results.garFile = host::outcome::ProjectFile(project, ".GAR");
    // Opening to read writes nothing, so a P.GAR the user may only read (another user's project,
    // an archive) is read in place.
    const host::outcome::GarStore store(results.garFile, false);
    const GUID type = *host::com::ParseGuid(std::string_view(kAdaptivityResultType));
    for (const host::outcome::StoredResultInfo& info : store.List()) {
        const CKQ_ResultKey& key = info.key;
        if (key.GetResultType() != type ||
            key.GetDsObject().GetType() != Outcome64Enums::eDs_Slab) {
            ++results.otherResults;
            continue;
        }
        const auto table = store.Load(key);
        if (!table)
            continue;
        SlabResult slab;
        slab.slab = key.GetDsObject().GetID();
        slab.resultCase = key.GetResultCase().GetNumber();
        if (model != nullptr && slab.slab >= 1 &&
            static_cast<std::size_t>(slab.slab) <= model->mesh.slabs.size()) {
            const auto* data = model->SlabDataOf(static_cast<unsigned long>(slab.slab));
            slab.name =
                data != nullptr && !data->name.empty()
                    ? data->name
                    : model->mesh.slabs[static_cast<std::size_t>(slab.slab) - 1].physicalName;
        }
        for (unsigned long r = 0; r < table->GetCountOfRows(); ++r) {
            slab.elementIds.push_back(table->GetElementId(r));
            std::array<double, 4> row;
            for (unsigned long c = 0; c < 4; ++c)
                row[c] = c < table->GetCountOfColumns() ? table->GetValue(c, r)
                                                        : std::numeric_limits<double>::quiet_NaN();
            slab.rows.push_back(row);
        }
        results.slabs.push_back(std::move(slab));
    }
    return results;
}

std::vector<SlabSummary> Summarize(const StoredResults& results) {
    std::vector<SlabSummary> summaries;
    for (const SlabResult& slab : results.slabs) {
        SlabSummary s;
        s.slab = slab.slab;
        s.name = slab.name;
        s.minNewSize = std::numeric_limits<double>::infinity();
        s.maxNewSize = -std::numeric_limits<double>::infinity();
        s.maxLocalErrorPercent = -std::numeric_limits<double>::infinity();
        for (std::size_t r = 0; r < slab.rows.size(); ++r) {
            if (slab.elementIds[r] == 0)
                continue;
            ++s.elements;
            const auto& row = slab.rows[r];
            s.maxLocalErrorPercent = std::max(s.maxLocalErrorPercent, 100.0 * row[1]);
            s.minNewSize = std::min(s.minNewSize, row[3]);
            s.maxNewSize = std::max(s.maxNewSize, row[3]);
        }
        if (s.elements == 0)
            s.minNewSize = s.maxNewSize = s.maxLocalErrorPercent =
                std::numeric_limits<double>::quiet_NaN();
        summaries.push_back(s);
    }
    return summaries;
}

std::vector<std::array<double, 4>> ElementColumns(const StoredResults& results,
                                                  std::size_t elementCount, int resultCase) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<std::array<double, 4>> columns(elementCount, {nan, nan, nan, nan});
    for (const SlabResult& slab : results.slabs) {
        if (slab.resultCase != resultCase)
            continue;
        for (std::size_t r = 0; r < slab.rows.size(); ++r) {
            const unsigned long id = slab.elementIds[r];
            if (id >= 1 && id <= elementCount)
                columns[id - 1] = slab.rows[r];
        }
    }
    return columns;
}

std::vector<double> NodalSizes(const host::outcome::Mesh& mesh,
                               const std::vector<std::array<double, 4>>& elementColumns) {
    // Sum in ascending element order per node, as the estimator does.
    std::vector<double> sum(mesh.nodes.size(), 0.0);
    std::vector<std::size_t> count(mesh.nodes.size(), 0);
    for (std::size_t e = 0; e < mesh.elements.size() && e < elementColumns.size(); ++e) {
        for (unsigned long n : mesh.elements[e].nodes) {
            sum[n - 1] += elementColumns[e][3];
            ++count[n - 1];
        }
    }
    std::vector<double> sizes(mesh.nodes.size(), 0.0);
    for (std::size_t n = 0; n < sizes.size(); ++n)
        if (count[n] > 0)
            sizes[n] = sum[n] / static_cast<double>(count[n]);
    return sizes;
}

} // namespace slabadapt::cli
