#pragma once
// What the module writes and what readers of its results must agree on: the result type and
// column order of the stored adaptivity result, the nodal averaging of the size field, and the
// largest number of elements the estimator takes at one node.
#include "host/com/guid.h"
#include "meer/meer.h"

#include <array>
#include <cstddef>
#include <vector>

// The module's own result type: mesh error and refinement.
// {AC98000C-E79E-4365-877E-0A3F95AA42F4}
inline constexpr GUID c_guidMeshErrorAndRefinement = {
    0xAC98000C, 0xE79E, 0x4365, {0x87, 0x7E, 0x0A, 0x3F, 0x95, 0xAA, 0x42, 0xF4}};

namespace slabadapt::results {

// The result type in its text form, as `sqlite3 P.GAR` shows it.
inline constexpr const char* kResultTypeText = "{AC98000C-E79E-4365-877E-0A3F95AA42F4}";

// The four stored columns, in the order the store writes them.
struct ColumnInfo {
    const char* name;  // for CSV and JSON
    const char* title; // for tables
    const char* meaning;
};
inline constexpr std::size_t kGlobalErrorColumn = 0;
inline constexpr std::size_t kLocalErrorColumn = 1;
inline constexpr std::size_t kErrorDensityColumn = 2;
inline constexpr std::size_t kNewSizeColumn = 3;
inline constexpr std::array<ColumnInfo, 4> kColumns = {{
    {"global_error", "global error",
     "the element's error over the mean element norm of the model, a fraction"},
    {"local_error", "local error", "the element's error over its own norm, a fraction"},
    {"error_density", "error density", "the element's squared error over its area and thickness"},
    {"new_size", "new size", "the element size the next mesh needs, in the mesh's length unit"},
}};

// The estimator's limit of elements meeting at one node.
inline constexpr std::size_t kMaxElementsAtNode =
    static_cast<std::size_t>(meerspace::kMaxSuperelems);

// The size handed to the mesher at each node: the plain mean of the sizes of the elements at
// the node, summed in the order the node's list gives (ascending element index); 0 where no
// element meets. `elementsAtNode[n]` lists zero-based element indices.
template <class ElementList>
std::vector<double> AverageOnNodes(const std::vector<ElementList>& elementsAtNode,
                                   const std::vector<double>& elementSizes) {
    std::vector<double> sizes(elementsAtNode.size(), 0.0);
    for (std::size_t n = 0; n < sizes.size(); ++n) {
        const ElementList& list = elementsAtNode[n];
        if (list.empty())
            continue;
        double sum = 0.0;
        for (const auto e : list)
            sum += elementSizes.at(static_cast<std::size_t>(e));
        sizes[n] = sum / static_cast<double>(list.size());
    }
    return sizes;
}

} // namespace slabadapt::results
