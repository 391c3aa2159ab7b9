// The growable pointer list.
#include "meer/gpa.h"
#include "meer/obecne.h"
#include "support/meer_test_support.h"

#include <gtest/gtest.h>

using namespace meerspace;
using meertest::expectFatalAt;
using meertest::kGeneral;

namespace {
struct Item {
    int id;
};
} // namespace

TEST(Gpa, StartsEmpty) {
    Gpa<Item> list;
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.capacity, 0);
    EXPECT_EQ(list.increment, 0);
    EXPECT_EQ(list.data, nullptr);
}

TEST(Gpa, AppendReturnsThePointerAndStoresItAtTheEnd) {
    Item a{1}, b{2};
    Gpa<Item> list;
    EXPECT_EQ(list.append(&a), &a);
    EXPECT_EQ(list.append(&b), &b);
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(list[0], &a);
    EXPECT_EQ(list[1], &b);
}

TEST(Gpa, AutomaticGrowthIsATenthPlusOne) {
    Gpa<Item> list;
    Item item{0};
    // From 0: 0 + 0 + 1 = 1, then 2, 3, ... up to 10: 10 + 1 + 1 = 12, 12 + 1 + 1 = 14.
    const int expected[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 12,
                            12, 14, 14, 16, 16, 18, 18, 20, 20, 23};
    for (int i = 0; i < 21; ++i) {
        list.append(&item);
        EXPECT_EQ(list.capacity, expected[i]) << "after " << i + 1 << " appends";
    }
    EXPECT_EQ(list.count, 21);
}

TEST(Gpa, TruncatesTheTenth) {
    GpaBase list(19);
    EXPECT_EQ(list.capacity, 19);
    list.grow();
    EXPECT_EQ(list.capacity, 19 + 1 + 1); // 0.1 * 19 = 1.9 -> 1
    list.grow();
    EXPECT_EQ(list.capacity, 21 + 2 + 1);
}

TEST(Gpa, FixedIncrement) {
    Gpa<Item> list(0, 5);
    Item item{0};
    list.append(&item);
    EXPECT_EQ(list.capacity, 5);
    for (int i = 0; i < 5; ++i)
        list.append(&item);
    EXPECT_EQ(list.capacity, 10);
    EXPECT_EQ(list.count, 6);
}

TEST(Gpa, GrowKeepsPointersAndNullsTheRest) {
    Item a{1}, b{2};
    GpaBase list(2);
    list.append(&a);
    list.append(&b);
    list.grow(6);
    EXPECT_EQ(list.capacity, 6);
    EXPECT_EQ(list.count, 2);
    EXPECT_EQ(list.data[0], &a);
    EXPECT_EQ(list.data[1], &b);
    for (int i = 2; i < 6; ++i)
        EXPECT_EQ(list.data[i], nullptr);
}

TEST(Gpa, GrowingToNoMoreThanTheCapacityIsFatal) {
    GpaBase list(4);
    expectFatalAt([&] { list.grow(4); }, kGeneral, "gpa", "kInternalErrorMessage");
    expectFatalAt([&] { list.grow(2); }, kGeneral, "gpa", "kInternalErrorMessage");
    EXPECT_EQ(list.capacity, 4);
    GpaBase shrinking(0, -3);
    expectFatalAt([&] { shrinking.grow(); }, kGeneral, "gpa", "kInternalErrorMessage");
    EXPECT_EQ(shrinking.capacity, 0);
}

TEST(Gpa, NeverFreesTheObjects) {
    auto* item = new Item{7};
    {
        Gpa<Item> list;
        list.append(item);
    }
    EXPECT_EQ(item->id, 7); // still alive (ASan would report a use after free)
    delete item;
}
