#pragma once
// The adaptivity results a run stored in P.GAR, read back per slab, and what the command
// derives from them (summaries, nodal sizes).
#include "adaptivity/ResultLayout.h"
#include "host/outcome/project.h"

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace slabadapt::cli {

// The stored columns, as the module writes them.
using results::ColumnInfo;
using results::kColumns;

struct SlabResult {
    long slab = 0;    // one-based slab id
    std::string name; // from P.toml or the mesh's physical name, may be empty
    int resultCase = 0;
    std::vector<unsigned long> elementIds;   // per row, one-based; 0 for a row without one
    std::vector<std::array<double, 4>> rows; // the four columns; NaN for a cell never set
    bool envelope = false;         // the envelope of several passes (slabadapt run --envelope)
    std::vector<double> governing; // the envelope's governing pass per row (one-based)
};

struct StoredResults {
    std::filesystem::path garFile;
    std::vector<SlabResult> slabs;       // in key order: by slab, then result case
    std::size_t otherResults = 0;        // results of other types, not listed
    std::vector<long> envelopeLoadCases; // the passes of an envelope, in order; empty without
};

// Reads P.GAR, in place (also one the user may only read). Throws
// host::outcome::GarError when it is missing or not a result store.
// `model` (may be null) gives the slab names.
StoredResults ReadStoredResults(const std::filesystem::path& project,
                                const host::outcome::Project* model);

// Per slab: elements, largest local error (per cent), smallest and largest new size.
struct SlabSummary {
    long slab = 0;
    std::string name;
    std::size_t elements = 0;
    double maxLocalErrorPercent = 0.0;
    double minNewSize = 0.0;
    double maxNewSize = 0.0;
};
std::vector<SlabSummary> Summarize(const StoredResults& results);

// Per element (index = element id - 1) the stored columns of result case `resultCase` (of the
// envelope with `envelope`); NaN where nothing is stored.
std::vector<std::array<double, 4>> ElementColumns(const StoredResults& results,
                                                  std::size_t elementCount, int resultCase = 1,
                                                  bool envelope = false);

// Per element the envelope's governing pass (one-based); NaN where the envelope has none.
std::vector<double> GoverningPasses(const StoredResults& results, std::size_t elementCount);

// The size at each node as the run handed it to the mesher: the plain mean of the new sizes of
// the elements at the node (0 where no element has one).
std::vector<double> NodalSizes(const host::outcome::Mesh& mesh,
                               const std::vector<std::array<double, 4>>& elementColumns);

} // namespace slabadapt::cli
