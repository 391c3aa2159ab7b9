#include "cli/StoredResults.h"

#include "adaptivity/ResultLayout.h"
#include "host/outcome/gar.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

namespace slabadapt::cli {

namespace fs = std::filesystem;

StoredResults ReadStoredResults(const fs::path& project, const host::outcome::Project* model) {
    StoredResults results;
    results.garFile = host::outcome::ProjectFile(project, ".GAR");
    // Opening to read writes nothing, so a P.GAR the user may only read (another user's project,
    // an archive) is read in place.
    const host::outcome::GarStore store(results.garFile, false);
    if (const auto cases = store.GetInfo("envelope_load_cases")) {
        std::size_t start = 0;
        while (start <= cases->size()) {
            const std::size_t comma = std::min(cases->find(',', start), cases->size());
            results.envelopeLoadCases.push_back(
                std::atol(cases->substr(start, comma - start).c_str()));
            start = comma + 1;
        }
    }
    const GUID type = c_guidMeshErrorAndRefinement;
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
        slab.envelope = key.GetEnvelopeExtreme() != Outcome64Enums::eEE_None;
        if (model != nullptr && slab.slab >= 1 &&
            static_cast<std::size_t>(slab.slab) <= model->mesh.slabs.size()) {
            const auto* data = model->SlabDataOf(static_cast<unsigned long>(slab.slab));
            slab.name =
                data != nullptr && !data->name.empty()
                    ? data->name
                    : model->mesh.slabs[static_cast<std::size_t>(slab.slab) - 1].physicalName;
        }
        slab.elementIds.reserve(table->GetCountOfRows());
        slab.rows.reserve(table->GetCountOfRows());
        if (slab.envelope)
            slab.governing.reserve(table->GetCountOfRows());
        for (unsigned long r = 0; r < table->GetCountOfRows(); ++r) {
            slab.elementIds.push_back(table->GetElementId(r));
            std::array<double, 4> row;
            for (unsigned long c = 0; c < 4; ++c)
                row[c] = c < table->GetCountOfColumns() ? table->GetValue(c, r)
                                                        : std::numeric_limits<double>::quiet_NaN();
            slab.rows.push_back(row);
            if (slab.envelope)
                slab.governing.push_back(table->GetCountOfColumns() > 4
                                             ? table->GetValue(4, r)
                                             : std::numeric_limits<double>::quiet_NaN());
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
                                                  std::size_t elementCount, int resultCase,
                                                  bool envelope) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<std::array<double, 4>> columns(elementCount, {nan, nan, nan, nan});
    for (const SlabResult& slab : results.slabs) {
        if (slab.resultCase != resultCase || slab.envelope != envelope)
            continue;
        for (std::size_t r = 0; r < slab.rows.size(); ++r) {
            const unsigned long id = slab.elementIds[r];
            if (id >= 1 && id <= elementCount)
                columns[id - 1] = slab.rows[r];
        }
    }
    return columns;
}

std::vector<double> GoverningPasses(const StoredResults& results, std::size_t elementCount) {
    std::vector<double> passes(elementCount, std::numeric_limits<double>::quiet_NaN());
    for (const SlabResult& slab : results.slabs)
        if (slab.envelope)
            for (std::size_t r = 0; r < slab.governing.size(); ++r) {
                const unsigned long id = slab.elementIds[r];
                if (id >= 1 && id <= elementCount)
                    passes[id - 1] = slab.governing[r];
            }
    return passes;
}

namespace {

// A mesh element's one-based node ids, read as zero-based indices.
struct ZeroBased {
    const std::vector<unsigned long>& nodes;
    struct Iterator {
        const unsigned long* at;
        unsigned long operator*() const { return *at - 1; }
        Iterator& operator++() {
            ++at;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return at != other.at; }
    };
    Iterator begin() const { return {nodes.data()}; }
    Iterator end() const { return {nodes.data() + nodes.size()}; }
};

} // namespace

std::vector<double> NodalSizes(const host::outcome::Mesh& mesh,
                               const std::vector<std::array<double, 4>>& elementColumns) {
    const std::size_t elements = std::min(mesh.elements.size(), elementColumns.size());
    std::vector<double> elementSizes(elements);
    for (std::size_t e = 0; e < elements; ++e)
        elementSizes[e] = elementColumns[e][results::kNewSizeColumn];
    const auto elementsAtNode =
        results::NodeElementLists::Build(mesh.nodes.size(), elements, [&mesh](std::size_t e) {
            return ZeroBased{mesh.elements[e].nodes};
        });
    return results::AverageOnNodes(elementsAtNode, elementSizes);
}

} // namespace slabadapt::cli
