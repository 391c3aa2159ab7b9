// The elements at each node, kept in one array: lists in ascending element order, the same
// nodal averages as lists of their own.
#include "adaptivity/ResultLayout.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace {

using slabadapt::results::AverageOnNodes;
using slabadapt::results::NodeElementLists;

std::vector<std::int32_t> Of(std::span<const std::int32_t> list) {
    return {list.begin(), list.end()};
}

// Two quadrilaterals and a triangle over six nodes; node 5 belongs to no element.
const std::vector<std::vector<int>> kElements = {{0, 1, 3, 2}, {1, 4, 3}, {3, 4, 2, 1}};

TEST(NodeElementLists, EachNodeListsItsElementsInAscendingOrder) {
    const auto lists =
        NodeElementLists::Build(6, kElements.size(), [](std::size_t e) { return kElements[e]; });
    ASSERT_EQ(lists.size(), 6u);
    EXPECT_EQ(Of(lists[0]), (std::vector<std::int32_t>{0}));
    EXPECT_EQ(Of(lists[1]), (std::vector<std::int32_t>{0, 1, 2}));
    EXPECT_EQ(Of(lists[2]), (std::vector<std::int32_t>{0, 2}));
    EXPECT_EQ(Of(lists[3]), (std::vector<std::int32_t>{0, 1, 2}));
    EXPECT_EQ(Of(lists[4]), (std::vector<std::int32_t>{1, 2}));
    EXPECT_TRUE(lists[5].empty());
    EXPECT_THROW(lists.at(6), std::out_of_range);
}

TEST(NodeElementLists, AnEmptyListSetHasNoNodes) {
    const NodeElementLists none;
    EXPECT_EQ(none.size(), 0u);
    EXPECT_THROW(none.at(0), std::out_of_range);
}

TEST(NodeElementLists, ANodeBeyondTheCountIsPassedOver) {
    const std::vector<std::vector<int>> elements = {{0, 1, 7}, {1, 2, 0}};
    const auto lists =
        NodeElementLists::Build(3, elements.size(), [&](std::size_t e) { return elements[e]; });
    ASSERT_EQ(lists.size(), 3u);
    EXPECT_EQ(Of(lists[0]), (std::vector<std::int32_t>{0, 1}));
    EXPECT_EQ(Of(lists[2]), (std::vector<std::int32_t>{1}));
}

TEST(NodeElementLists, NodalAveragesAreThoseOfAListPerNode) {
    const auto lists =
        NodeElementLists::Build(6, kElements.size(), [](std::size_t e) { return kElements[e]; });
    std::vector<std::vector<long>> perNode(6);
    for (std::size_t e = 0; e < kElements.size(); ++e)
        for (int n : kElements[e])
            perNode[static_cast<std::size_t>(n)].push_back(static_cast<long>(e));
    const std::vector<double> sizes = {0.1, 0.7, 0.3};
    EXPECT_EQ(AverageOnNodes(lists, sizes), AverageOnNodes(perNode, sizes));
    EXPECT_EQ(AverageOnNodes(lists, sizes)[5], 0.0);
    EXPECT_DOUBLE_EQ(AverageOnNodes(lists, sizes)[1], (0.1 + 0.7 + 0.3) / 3.0);
}

} // namespace
