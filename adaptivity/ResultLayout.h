#pragma once
// What the module writes and what readers of its results must agree on: the result type and
// column order of the stored adaptivity result, the nodal averaging of the size field, and the
// largest number of elements the estimator takes at one node.
#include "host/com/guid.h"
#include "meer/meer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
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

// For each node, the zero-based indices of the elements that use it, in ascending order, all
// in one array (a node's list is a slice of it): 12 bytes a node and 4 an element corner,
// against some 70 for a vector per node.
class NodeElementLists {
public:
    NodeElementLists() = default;

    // nodesOf(e) gives the zero-based nodes of element e, for e = 0 .. elements - 1. A node
    // index of `nodes` or more (which a checked mesh never has) is passed over.
    template <class NodesOf>
    static NodeElementLists Build(std::size_t nodes, std::size_t elements, NodesOf nodesOf) {
        NodeElementLists lists;
        lists.m_start.assign(nodes + 1, 0);
        for (std::size_t e = 0; e < elements; ++e)
            for (const auto n : nodesOf(e))
                if (static_cast<std::size_t>(n) < nodes)
                    ++lists.m_start[static_cast<std::size_t>(n) + 1];
        for (std::size_t n = 0; n < nodes; ++n)
            lists.m_start[n + 1] += lists.m_start[n];
        lists.m_elements.resize(static_cast<std::size_t>(lists.m_start[nodes]));
        std::vector<std::int64_t> next(lists.m_start.begin(), lists.m_start.end() - 1);
        for (std::size_t e = 0; e < elements; ++e)
            for (const auto n : nodesOf(e))
                if (static_cast<std::size_t>(n) < nodes)
                    lists
                        .m_elements[static_cast<std::size_t>(next[static_cast<std::size_t>(n)]++)] =
                        static_cast<std::int32_t>(e);
        return lists;
    }

    std::size_t size() const { return m_start.empty() ? 0 : m_start.size() - 1; }
    std::span<const std::int32_t> operator[](std::size_t node) const {
        return {m_elements.data() + m_start[node],
                static_cast<std::size_t>(m_start[node + 1] - m_start[node])};
    }
    std::span<const std::int32_t> at(std::size_t node) const {
        if (node >= size())
            throw std::out_of_range("node " + std::to_string(node) + " of " +
                                    std::to_string(size()));
        return (*this)[node];
    }

private:
    std::vector<std::int64_t> m_start; // node n's list is [m_start[n], m_start[n + 1])
    std::vector<std::int32_t> m_elements;
};

// The size handed to the mesher at each node: the plain mean of the sizes of the elements at
// the node, summed in the order the node's list gives (ascending element index); 0 where no
// element meets. `elementsAtNode[n]` lists zero-based element indices.
template <class Lists>
std::vector<double> AverageOnNodes(const Lists& elementsAtNode,
                                   const std::vector<double>& elementSizes) {
    std::vector<double> sizes(elementsAtNode.size(), 0.0);
    for (std::size_t n = 0; n < sizes.size(); ++n) {
        const auto& list = elementsAtNode[n];
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
