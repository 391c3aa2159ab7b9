// Vectors of doubles and of 32-bit integers: storage, views, shifting, arithmetic, printing
// and reading.
#include "meer/arrays.h"
#include "meer/obecne.h"
#include "support/meer_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <type_traits>

// Fresh array allocations of this test program are filled with a pattern, so that a test can
// tell values carried over from values that were never written.
namespace {
constexpr unsigned char kFreshByte = 0xA5;
}

void* operator new[](std::size_t size) {
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr)
        throw std::bad_alloc();
    std::memset(p, kFreshByte, size);
    return p;
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

using namespace meerspace;
using meertest::expectFatalAt;
using meertest::kGeneral;
using meertest::near;

namespace {

double freshDouble() {
    double d;
    std::memset(&d, kFreshByte, sizeof d);
    return d;
}

std::int32_t freshLong() {
    std::int32_t l;
    std::memset(&l, kFreshByte, sizeof l);
    return l;
}

Dvctr dv(std::initializer_list<double> values) {
    Dvctr v;
    v.assign(values.begin(), static_cast<std::int32_t>(values.size()));
    return v;
}

Lvctr lv(std::initializer_list<std::int32_t> values) {
    Lvctr v;
    v.assign(values.begin(), static_cast<std::int32_t>(values.size()));
    return v;
}

std::string printed(const Dvctr& v, int p, double zeroLimit) {
    std::string buffer(static_cast<std::size_t>(v.printLength(p)), '\0');
    v.printAll(buffer.data(), p, zeroLimit);
    return buffer.c_str();
}

} // namespace

// ---- The class tree --------------------------------------------------------------------

TEST(VectorTree, AbstractAndConcreteClasses) {
    static_assert(std::is_abstract_v<Array>);
    static_assert(std::is_abstract_v<Array1d>);
    static_assert(std::is_abstract_v<Xvctr>);
    static_assert(std::is_abstract_v<Xmtrx>);
    static_assert(!std::is_abstract_v<Dvctr>);
    static_assert(!std::is_abstract_v<Lvctr>);
    static_assert(!std::is_abstract_v<Dmtrx>);
    static_assert(std::is_base_of_v<Array1d, Xvctr> && std::is_base_of_v<Array, Array1d>);
    static_assert(std::is_base_of_v<Xvctr, Dvctr> && std::is_base_of_v<Xvctr, Lvctr>);
    static_assert(std::is_base_of_v<Array, Xmtrx> && std::is_base_of_v<Xmtrx, Dmtrx>);
    static_assert(std::is_same_v<decltype(Lvctr::data), std::int32_t*>);
    static_assert(std::is_same_v<decltype(Dvctr::data), double*>);
    static_assert(std::has_virtual_destructor_v<Array>);
    SUCCEED();
}

#if defined(__GNUC__) && !defined(_WIN32)
// Under the Itanium C++ ABI a pointer to a virtual member function holds 1 + the byte offset
// of its slot in the virtual table; the table starts with two destructor entries, so slot k
// (k >= 1) of the class tree sits at table index k + 1.
template <typename F> std::ptrdiff_t tableIndex(F f) {
    static_assert(sizeof(F) == 2 * sizeof(std::uintptr_t));
    std::uintptr_t words[2];
    std::memcpy(words, &f, sizeof f);
    return static_cast<std::ptrdiff_t>((words[0] - 1) / sizeof(void*));
}

TEST(VectorTree, VirtualSlotOrder) {
    using PrintFile = void (Xvctr::*)(std::FILE*, int, double, bool) const;
    using PrintBuffer = void (Xvctr::*)(char*, int, double, bool) const;
    EXPECT_EQ(tableIndex(&Array::isReal), 1 + 1);
    EXPECT_EQ(tableIndex(&Array1d::size), 2 + 1);
    EXPECT_EQ(tableIndex(&Array1d::printLength), 3 + 1);
    EXPECT_EQ(tableIndex(&Array1d::printAll), 4 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::isInteger), 5 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::copyElement), 6 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::shift), 7 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::scan), 8 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::norm), 9 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::printLength3), 10 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::printLength9), 11 + 1);
    EXPECT_EQ(tableIndex(&Xvctr::printPoint), 12 + 1);
    EXPECT_EQ(tableIndex(static_cast<PrintFile>(&Xvctr::printTensor)), 13 + 1);
    EXPECT_EQ(tableIndex(static_cast<PrintBuffer>(&Xvctr::printTensor)), 14 + 1);
    EXPECT_EQ(tableIndex(&Dvctr::norm), 9 + 1);
    EXPECT_EQ(tableIndex(&Lvctr::scan), 8 + 1);
    EXPECT_EQ(tableIndex(&Dmtrx::isReal), 1 + 1);
}
#endif

TEST(VectorTree, FieldsOfTheBookkeeping) {
    static_assert(std::is_same_v<decltype(Xvctr::borrowed), std::int8_t>);
    static_assert(std::is_same_v<decltype(Xvctr::viewKind), std::int8_t>);
    static_assert(std::is_same_v<decltype(Xvctr::shifted), std::int32_t>);
    static_assert(std::is_same_v<decltype(Xvctr::n), std::int32_t>);
    static_assert(std::is_same_v<decltype(Xvctr::capacity), std::int32_t>);
    Dvctr v;
    EXPECT_EQ(v.borrowed, 0);
    EXPECT_EQ(v.viewKind, 0);
    EXPECT_EQ(v.shifted, 0);
    EXPECT_EQ(v.n, 0);
    EXPECT_EQ(v.capacity, 0);
    EXPECT_EQ(v.data, nullptr);
}

TEST(VectorTree, KindAnswersThroughTheBase) {
    Dvctr d(2);
    Lvctr l(3);
    Dmtrx m(2, 2);
    const Array& ad = d;
    const Array& al = l;
    const Array& am = m;
    EXPECT_EQ(ad.isReal(), 1);
    EXPECT_EQ(al.isReal(), 0);
    EXPECT_EQ(am.isReal(), 1);
    const Xvctr& xd = d;
    const Xvctr& xl = l;
    EXPECT_EQ(xd.isInteger(), 0);
    EXPECT_EQ(xl.isInteger(), 1);
    EXPECT_EQ(xd.size(), 2);
    EXPECT_EQ(xl.size(), 3);
}

TEST(VectorTree, SizeConstructorZeroFills) {
    Dvctr d(3);
    Lvctr l(4);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(d[i], 0.0);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(l[i], 0);
    EXPECT_EQ(d.capacity, 3);
    EXPECT_EQ(l.capacity, 4);
}

// ---- reserve / resize / extend ---------------------------------------------------------

TEST(Reserve, EqualToCapacityAllocatesNothing) {
    Dvctr v = dv({1, 2, 3});
    double* before = v.data;
    v.reserve(3);
    EXPECT_EQ(v.data, before);
    EXPECT_EQ(v.capacity, 3);
    v.reserve(2);
    EXPECT_EQ(v.data, before);
    EXPECT_EQ(v.capacity, 3);
}

TEST(Reserve, OneMoreGivesExactlyThatCapacityAndKeepsElements) {
    Dvctr v = dv({1, 2, 3});
    double* before = v.data;
    v.reserve(4);
    EXPECT_NE(v.data, before);
    EXPECT_EQ(v.capacity, 4);
    EXPECT_EQ(v.n, 3);
    EXPECT_EQ(v[0], 1.0);
    EXPECT_EQ(v[1], 2.0);
    EXPECT_EQ(v[2], 3.0);
    EXPECT_EQ(v[3], freshDouble()); // not initialised
}

// reserve on a borrowed view moves the elements into a buffer of the vector's own, which it
// then owns (and frees); the borrowed buffer is neither freed nor changed.
TEST(Reserve, OfABorrowedViewTakesAnOwnBufferKeepingTheElements) {
    double buffer[3] = {1, 2, 3};
    Dvctr v;
    v.attachView(buffer, 3);
    v.reserve(4);
    EXPECT_NE(v.data, buffer);
    EXPECT_EQ(v.borrowed, 0);
    EXPECT_EQ(v.viewKind, 0);
    EXPECT_EQ(v.capacity, 4);
    EXPECT_EQ(v.n, 3);
    EXPECT_EQ(v[0], 1.0);
    EXPECT_EQ(v[2], 3.0);
    v[0] = 9.0;
    EXPECT_EQ(buffer[0], 1.0);
}

TEST(Reserve, NoGeometricGrowth) {
    Lvctr v = lv({1});
    for (std::int32_t n = 2; n <= 6; ++n) {
        v.reserve(n);
        EXPECT_EQ(v.capacity, n);
    }
}

TEST(Resize, BeyondCapacityLosesOldValues) {
    Dvctr v = dv({1, 2, 3});
    v.resize(5);
    EXPECT_EQ(v.n, 5);
    EXPECT_EQ(v.capacity, 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(v[i], freshDouble()) << i; // nothing copied, nothing zero-filled

    Lvctr l = lv({1, 2, 3});
    l.resize(4);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(l[i], freshLong()) << i;
}

TEST(Resize, WithinCapacityKeepsValuesSmallerOrLarger) {
    Dvctr v = dv({1, 2, 3, 4});
    double* before = v.data;
    v.resize(2);
    EXPECT_EQ(v.n, 2);
    EXPECT_EQ(v.capacity, 4);
    v.resize(4);
    EXPECT_EQ(v.data, before);
    EXPECT_EQ(v[0], 1.0);
    EXPECT_EQ(v[1], 2.0);
    EXPECT_EQ(v[2], 3.0);
    EXPECT_EQ(v[3], 4.0);

    Lvctr l = lv({5, 6, 7});
    l.resize(1);
    l.resize(3);
    EXPECT_EQ(l[2], 7);
}

TEST(Resize, OfAnAttachedDvctrIsFatalExta) {
    double buffer[3] = {1, 2, 3};
    Dvctr v;
    v.attach(buffer, 3);
    expectFatalAt([&] { v.resize(5); }, "exta", "arrays", "\"exta\"");
    // The check comes first: the view is left as it was.
    EXPECT_EQ(v.data, buffer);
    EXPECT_EQ(v.n, 3);
    EXPECT_EQ(v.borrowed, 1);
    expectFatalAt([&] { v.resize(2); }, "exta", "arrays", "\"exta\"");
}

// Lvctr::resize has no borrowed test. Growing a borrowed view allocates a buffer of the
// vector's own; the borrowed buffer is neither freed nor changed.
TEST(Resize, OfAnAttachedLvctrTakesAnOwnBuffer) {
    std::int32_t buffer[2] = {8, 9};
    Lvctr v;
    v.attach(buffer, 2);
    v.resize(3);
    EXPECT_NE(v.data, buffer);
    EXPECT_EQ(v.borrowed, 0);
    EXPECT_EQ(v.viewKind, 0);
    EXPECT_EQ(v.capacity, 3);
    EXPECT_EQ(v.n, 3);
    EXPECT_EQ(buffer[0], 8);
    EXPECT_EQ(buffer[1], 9);
}

TEST(Extend, FromThreeToFiveKeepsTheFirstThree) {
    Lvctr v = lv({4, -5, 6});
    v.extend(5);
    EXPECT_EQ(v.n, 5);
    EXPECT_EQ(v.capacity, 5);
    EXPECT_EQ(v[0], 4);
    EXPECT_EQ(v[1], -5);
    EXPECT_EQ(v[2], 6);
    EXPECT_EQ(v[3], freshLong()); // new elements are not initialised
    EXPECT_EQ(v[4], freshLong());
}

TEST(Extend, WithinCapacityOnlyChangesTheSize) {
    Lvctr v = lv({1, 2, 3});
    std::int32_t* before = v.data;
    v.extend(2);
    EXPECT_EQ(v.n, 2);
    EXPECT_EQ(v.data, before);
}

// ---- attach / release / copies ---------------------------------------------------------

TEST(Attach, MakesABorrowedView) {
    double buffer[4] = {1, 2, 3, 4};
    Dvctr v;
    v.attach(buffer, 3);
    EXPECT_EQ(v.borrowed, 1);
    EXPECT_EQ(v.viewKind, 0);
    EXPECT_EQ(v.n, 3);
    EXPECT_EQ(v.capacity, 0);
    EXPECT_EQ(v.data, buffer);
    EXPECT_EQ(v.sum(), 6.0);
} // the destructor must not free the stack buffer (ASan would report it)

TEST(Attach, OverExistingDataIsFatalUntilReleased) {
    double buffer[2] = {1, 2};
    Dvctr v(3);
    double* held = v.data;
    expectFatalAt([&] { v.attach(buffer, 2); }, kGeneral, "arrays", "kInternalErrorMessage");
    EXPECT_EQ(v.data, held);
    EXPECT_EQ(v.n, 3);
    v.release();
    v.attach(buffer, 2);
    EXPECT_EQ(v.data, buffer);

    std::int32_t lbuffer[2] = {1, 2};
    Lvctr l(1);
    expectFatalAt([&] { l.attachView(lbuffer, 2); }, kGeneral, "arrays", "kInternalErrorMessage");
    l.release();
    l.attachView(lbuffer, 2);
    EXPECT_EQ(l.data, lbuffer);
}

// The view kind only records which attach made the view; release clears it.
TEST(Attach, ViewKindIsRecordedAndClearedByRelease) {
    double buffer[2] = {1, 2};
    Dvctr v;
    v.attachView(buffer, 2);
    EXPECT_EQ(v.viewKind, 1);
    EXPECT_EQ(v.borrowed, 1);
    EXPECT_EQ(v.sum(), 3.0);
    v.release();
    EXPECT_EQ(v.viewKind, 0);
    EXPECT_EQ(v.borrowed, 0);
    v.attach(buffer, 1);
    EXPECT_EQ(v.viewKind, 0);

    std::int32_t lbuffer[3] = {1, 0, 2};
    Lvctr l;
    l.attachView(lbuffer, 3);
    EXPECT_EQ(l.viewKind, 1);
    EXPECT_EQ(l.countZero(), 1);
    l.release();
    EXPECT_EQ(l.viewKind, 0);
}

TEST(Release, ClearsEverythingAndKeepsABorrowedBuffer) {
    double buffer[2] = {7, 8};
    Dvctr v;
    v.attach(buffer, 2);
    v.release();
    EXPECT_EQ(v.data, nullptr);
    EXPECT_EQ(v.n, 0);
    EXPECT_EQ(v.capacity, 0);
    EXPECT_EQ(v.shifted, 0);
    EXPECT_EQ(buffer[0], 7.0);

    Lvctr l(4);
    l.release();
    EXPECT_EQ(l.data, nullptr);
    EXPECT_EQ(l.capacity, 0);
}

TEST(Copies, AssignmentIsShallow) {
    Dvctr a = dv({1, 2, 3});
    Dvctr b;
    b = a;
    EXPECT_EQ(b.data, a.data);
    EXPECT_EQ(b.n, 3);
    EXPECT_EQ(b.capacity, a.capacity);
    EXPECT_EQ(b.borrowed, a.borrowed);
    b[1] = 20.0;
    EXPECT_EQ(a[1], 20.0);
    b.detach(); // only one of the two may free the shared buffer
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(a[1], 20.0);
}

TEST(Copies, AssignmentTakesOverFlagsAndShift) {
    double buffer[4] = {1, 2, 3, 4};
    Dvctr a;
    a.attachView(buffer, 4);
    a.shift(1);
    Dvctr b;
    b = a;
    EXPECT_EQ(b.borrowed, 1);
    EXPECT_EQ(b.viewKind, 1);
    EXPECT_EQ(b.shifted, 1);
    EXPECT_EQ(b.data, buffer + 1);
}

// Assignment copies the fields and does nothing else: the buffer the target held before is
// not freed. A vector that still shares that buffer through an earlier assignment keeps
// valid data, and a buffer the target owned alone is left to the caller to free.
TEST(Copies, AssignmentLeavesTheTargetsOldBufferAlone) {
    Dvctr a = dv({1, 2, 3});
    Dvctr alias;
    alias = a; // alias and a share a's buffer
    Dvctr other = dv({7, 8});
    alias = other;
    EXPECT_EQ(alias.data, other.data);
    EXPECT_EQ(alias.n, 2);
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], 2.0);
    EXPECT_EQ(a[2], 3.0);
    alias.detach(); // other keeps and frees its buffer

    Dvctr owner(4);
    double* old = owner.data;
    owner = other;
    EXPECT_EQ(owner.data, other.data);
    EXPECT_EQ(old[3], 0.0); // still allocated and untouched
    delete[] old;
    owner.detach();

    Lvctr la = lv({4, 5});
    Lvctr lalias;
    lalias = la;
    Lvctr lother = lv({6});
    lalias = lother;
    EXPECT_EQ(lalias.data, lother.data);
    EXPECT_EQ(la[0], 4);
    EXPECT_EQ(la[1], 5);
    lalias.detach();
}

// Copy construction makes an independent deep copy (assignment stays shallow).
TEST(Copies, CopyConstructionIsDeep) {
    Dvctr a = dv({1, 2, 3});
    Dvctr b(a);
    EXPECT_NE(b.data, a.data);
    EXPECT_EQ(b.n, 3);
    EXPECT_EQ(b.borrowed, 0);
    b[0] = 9;
    EXPECT_EQ(a[0], 1.0);
    Lvctr la = lv({4, 5});
    Lvctr lb(la);
    EXPECT_NE(lb.data, la.data);
    EXPECT_EQ(lb[1], 5);
    Dvctr empty;
    Dvctr emptyCopy(empty);
    EXPECT_EQ(emptyCopy.data, nullptr);
}

TEST(Copies, CopyFromIsDeep) {
    Dvctr a = dv({1, 2, 3});
    Dvctr b;
    b.copyFrom(a);
    EXPECT_NE(b.data, a.data);
    EXPECT_EQ(b.n, 3);
    EXPECT_EQ(b[2], 3.0);
    b.copyFrom(b);
    EXPECT_EQ(b[2], 3.0);
    Lvctr la = lv({1, 2});
    Lvctr lb(5);
    lb.copyFrom(la);
    EXPECT_EQ(lb.n, 2);
    EXPECT_EQ(lb[1], 2);
}

TEST(Copies, CopyFromIntoAnAttachedDvctrIsFatal) {
    double buffer[2] = {0, 0};
    Dvctr v;
    v.attach(buffer, 2);
    Dvctr src = dv({1, 2});
    expectFatalAt([&] { v.copyFrom(src); }, "exta", "arrays", "\"exta\"");
}

// copyFrom resizes first even when it copies a vector onto itself, so an attached Dvctr
// refuses that too.
TEST(Copies, CopyFromOntoItselfStillResizesFirst) {
    double buffer[2] = {1, 2};
    Dvctr v;
    v.attach(buffer, 2);
    expectFatalAt([&] { v.copyFrom(v); }, "exta", "arrays", "\"exta\"");
    EXPECT_EQ(v.data, buffer);
    EXPECT_EQ(buffer[1], 2.0);
}

TEST(CopyElement, SameTypeCopies) {
    Dvctr a = dv({1, 2, 3});
    Dvctr b = dv({7, 8});
    Xvctr& x = a;
    x.copyElement(0, b, 1);
    EXPECT_EQ(a[0], 8.0);
    Lvctr la = lv({1, 2});
    Lvctr lb = lv({5});
    la.copyElement(1, lb, 0);
    EXPECT_EQ(la[1], 5);
}

TEST(CopyElement, OtherTypeIsFatalWithAnEmptyMessage) {
    Dvctr a = dv({1, 2});
    Lvctr l = lv({3, 4});
    Dmtrx m(1, 1);
    meertest::Fatal f = meertest::runFatal([&] { a.copyElement(0, l, 0); });
    ASSERT_TRUE(f.threw);
    EXPECT_EQ(f.value, 201);
    ASSERT_TRUE(f.report.wellFormed) << f.stderrText;
    EXPECT_EQ(f.report.message, "");
    EXPECT_EQ(f.report.source, "arrays");
    EXPECT_EQ(f.stderrText.substr(0, 13), "\n\n ERROR:   (");
    EXPECT_EQ(a[0], 1.0);
    expectFatalAt([&] { l.copyElement(0, a, 0); }, "", "arrays", "\"%s\", \"\"");
    expectFatalAt([&] { a.copyElement(0, m, 0); }, "", "arrays", "\"%s\", \"\"");
}

// ---- shift -----------------------------------------------------------------------------

TEST(Shift, ThreeThenUnshiftRestores) {
    Dvctr v = dv({1, 2, 3, 4, 5});
    double* start = v.data;
    void* moved = v.shift(3);
    EXPECT_EQ(moved, static_cast<void*>(start + 3));
    EXPECT_EQ(v.data, start + 3);
    EXPECT_EQ(v.shifted, 3);
    EXPECT_EQ(v[0], 4.0);
    v.unshift();
    EXPECT_EQ(v.data, start);
    EXPECT_EQ(v.shifted, 0);
}

TEST(Shift, AccumulatesAndIndexesFromOne) {
    Lvctr v = lv({10, 20, 30});
    v.shift(-1); // index from 1
    EXPECT_EQ(v[1], 10);
    EXPECT_EQ(v[3], 30);
    v.shift(-2);
    EXPECT_EQ(v.shifted, -3);
    v.unshift();
    EXPECT_EQ(v.shifted, 0);
    EXPECT_EQ(v[0], 10);
}

TEST(Shift, OfAnEmptyVectorReturnsTheObject) {
    Dvctr v;
    EXPECT_EQ(v.shift(4), static_cast<void*>(&v));
    EXPECT_EQ(v.shifted, 0);
    EXPECT_EQ(v.data, nullptr);
    Lvctr l;
    EXPECT_EQ(l.shift(-2), static_cast<void*>(&l));
    EXPECT_EQ(l.shifted, 0);
}

TEST(Shift, DestructorUndoesTheShiftBeforeFreeing) {
    auto* v = new Dvctr(4);
    v->shift(-1);
    delete v; // frees the original allocation (ASan reports a bad free otherwise)
    auto* l = new Lvctr(4);
    l->shift(2);
    Array* base = l;
    delete base;
    SUCCEED();
}

// ---- arithmetic ------------------------------------------------------------------------

TEST(Arithmetic, AddSubtractAddScaled) {
    Dvctr a = dv({1, 2, 3});
    Dvctr b = dv({10, 20, 30});
    a.add(b);
    EXPECT_EQ(a[2], 33.0);
    a.subtract(b);
    EXPECT_EQ(a[2], 3.0);
    a.addScaled(b, 0.5);
    EXPECT_EQ(a[0], 6.0);
    EXPECT_EQ(a[1], 12.0);
    EXPECT_EQ(a[2], 18.0);
}

TEST(Arithmetic, SizeMismatchIsFatalAndChangesNothing) {
    Dvctr a = dv({1, 2, 3});
    Dvctr b = dv({1, 2});
    expectFatalAt([&] { a.add(b); }, "size mismatch", "arrays", "size mismatch");
    expectFatalAt([&] { a.subtract(b); }, "size mismatch", "arrays", "size mismatch");
    expectFatalAt([&] { a.addScaled(b, 2.0); }, "size mismatch", "arrays", "size mismatch");
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], 2.0);
    EXPECT_EQ(a[2], 3.0);
}

TEST(Arithmetic, ScalarOperations) {
    Dvctr a = dv({1, -2, 4});
    a.scale(2.0);
    EXPECT_EQ(a[1], -4.0);
    a.divide(4.0);
    EXPECT_EQ(a[2], 2.0);
    EXPECT_EQ(a.sum(), 1.5);
    Dvctr b = dv({2, 3, 4, 100});
    EXPECT_EQ(a.dot(b), 0.5 * 2 - 1.0 * 3 + 2.0 * 4); // over a's size only
    a.divide(0.0);                                    // no test for zero
    EXPECT_TRUE(std::isinf(a[0]));
}

TEST(Arithmetic, NormSumsSquaresInOrder) {
    Dvctr a = dv({3, 4});
    EXPECT_EQ(a.norm(), 5.0);
    Dvctr big = dv({1e200, 1e200});
    EXPECT_TRUE(std::isinf(big.norm())); // plain sum of squares, no scaling
    Dvctr empty;
    EXPECT_EQ(empty.norm(), 0.0);
}

TEST(Arithmetic, NormalizeDividesByTheNorm) {
    Dvctr a = dv({3, 0, 4});
    a.normalize();
    EXPECT_TRUE(near(a[0], 0.6));
    EXPECT_TRUE(near(a[2], 0.8));
    Dvctr zero = dv({0, 0});
    zero.normalize(); // no test for a zero norm
    EXPECT_TRUE(std::isnan(zero[0]));
}

TEST(Arithmetic, CrossProduct) {
    Dvctr u = dv({1, 0, 0});
    Dvctr v = dv({0, 1, 0});
    Dvctr w;
    w.cross(u, v);
    EXPECT_EQ(w.n, 3);
    EXPECT_EQ(w[0], 0.0);
    EXPECT_EQ(w[1], 0.0);
    EXPECT_EQ(w[2], 1.0);
    Dvctr a = dv({1, 2, 3});
    Dvctr b = dv({4, 5, 6});
    w.cross(a, b);
    EXPECT_EQ(w[0], 2 * 6 - 5 * 3);
    EXPECT_EQ(w[1], 3 * 4 - 6 * 1);
    EXPECT_EQ(w[2], 1 * 5 - 4 * 2);
    a.cross(a, b); // the result may be an operand
    EXPECT_EQ(a[0], -3.0);
    EXPECT_EQ(a[1], 6.0);
    EXPECT_EQ(a[2], -3.0);
}

TEST(Arithmetic, CrossOfWrongSizeIsFatal) {
    Dvctr u = dv({1, 0});
    Dvctr v = dv({0, 1, 0});
    Dvctr w;
    expectFatalAt([&] { w.cross(u, v); }, "size of vectors is not equal to 3", "arrays",
                  "not equal to 3");
    expectFatalAt([&] { w.cross(v, u); }, "size of vectors is not equal to 3", "arrays",
                  "not equal to 3");
    EXPECT_EQ(w.n, 0);
}

TEST(Arithmetic, MeanOfRows) {
    const double values[6] = {1, 2, 3, 5, 6, 7};
    Dmtrx m(2, 3);
    m.assign(values);
    Dvctr v;
    v.meanOfRows(m);
    EXPECT_EQ(v.n, 3);
    EXPECT_EQ(v[0], 3.0);
    EXPECT_EQ(v[1], 4.0);
    EXPECT_EQ(v[2], 5.0);
    Dmtrx one(1, 2);
    one(0, 0) = 4;
    one(0, 1) = -1;
    v.meanOfRows(one);
    EXPECT_EQ(v.n, 2);
    EXPECT_EQ(v[0], 4.0);
    EXPECT_EQ(v[1], -1.0);
}

TEST(LvctrCounting, SumAndZeroCounts) {
    Lvctr v = lv({0, 3, -1, 0, 5});
    EXPECT_EQ(v.sum(), 7);
    EXPECT_EQ(v.countNonZero(), 3);
    EXPECT_EQ(v.countZero(), 2);
    Lvctr empty;
    EXPECT_EQ(empty.sum(), 0);
    EXPECT_EQ(empty.countZero(), 0);
}

// The integer sum wraps like the 32-bit arithmetic it stands for.
TEST(LvctrCounting, SumWrapsIn32Bits) {
    Lvctr v = lv({2147483647, 1});
    EXPECT_EQ(v.sum(), std::numeric_limits<std::int32_t>::min());
}

TEST(LvctrNorm, SmallValues) {
    Lvctr v = lv({3, -4});
    EXPECT_EQ(v.norm(), 5.0);
    Lvctr edge = lv({46340});
    EXPECT_EQ(edge.norm(), 46340.0); // 46340^2 still fits in 32 bits
}

TEST(LvctrNorm, SquareOf50000WrapsBeforeConversion) {
    // 50000^2 = 2500000000 > 2^31 - 1 wraps to 2500000000 - 2^32 = -1794967296.
    Lvctr v = lv({50000});
    EXPECT_TRUE(std::isnan(v.norm()));
    Lvctr mixed = lv({50000, 60000});
    // 60000^2 = 3600000000 wraps to -694967296; the sum is negative too.
    EXPECT_TRUE(std::isnan(mixed.norm()));
    Lvctr compensated = lv({50000, 50000, 50000, 50000, 100000});
    // 4 * -1794967296 + (10^10 mod 2^32 = 1410065408) -> still negative
    EXPECT_TRUE(std::isnan(compensated.norm()));
    Lvctr positiveWrap = lv({70000});
    // 70000^2 = 4900000000 wraps to 605032704, a positive but wrong square.
    EXPECT_TRUE(near(positiveWrap.norm(), std::sqrt(605032704.0)));
}

// ---- printing --------------------------------------------------------------------------

TEST(PrintLength, DoublesAndIntegers) {
    Dvctr d(4);
    Lvctr l(4);
    EXPECT_EQ(d.printLength(6), 61);
    EXPECT_EQ(l.printLength(6), 104);
    EXPECT_EQ(l.printLength(100), 104); // p ignored
    EXPECT_EQ(d.printLength3(6), 46);
    EXPECT_EQ(d.printLength9(6), 136);
    EXPECT_EQ(l.printLength3(6), 78);
    EXPECT_EQ(l.printLength9(6), 234);
}

// Doubles are printed with three exponent digits so that every field is p + 8 wide.
TEST(PrintAll, DoubleFieldsAbut) {
    Dvctr v = dv({1, -2, 300});
    std::string text = printed(v, 2, 0.0);
    EXPECT_EQ(text, " 1.00e+000 -2.00e+000  3.00e+002");
    EXPECT_EQ(static_cast<std::int32_t>(text.size()) + 2, v.printLength(2));
}

TEST(PrintAll, ThreeDigitExponentsStayThreeDigits) {
    Dvctr v = dv({1e-300, -1e+123, 0.0});
    EXPECT_EQ(printed(v, 1, 0.0), " 1.0e-300 -1.0e+123  0.0e+000");
}

TEST(PrintAll, ZeroLimitSnapsStrictlyInside) {
    Dvctr v = dv({5e-4, 1e-3, -1e-3, -5e-4, 2.0});
    EXPECT_EQ(printed(v, 3, 1e-3), " 0.000e+000  1.000e-003 -1.000e-003  0.000e+000  2.000e+000");
    // The stored values are untouched.
    EXPECT_EQ(v[0], 5e-4);
    EXPECT_EQ(v[3], -5e-4);
}

TEST(PrintAll, ZeroLimitZeroOrNaNPrintsStoredValues) {
    Dvctr v = dv({5e-4, 1e-20});
    EXPECT_EQ(printed(v, 3, 0.0), " 5.000e-004  1.000e-020");
    EXPECT_EQ(printed(v, 3, std::numeric_limits<double>::quiet_NaN()), " 5.000e-004  1.000e-020");
}

TEST(PrintAll, EmptyVectorIsFatal) {
    Dvctr d;
    Lvctr l;
    char buffer[8];
    expectFatalAt([&] { d.printAll(buffer, 3, 0.0); }, kGeneral, "arrays", "kInternalErrorMessage");
    expectFatalAt([&] { l.printAll(buffer, 3, 0.0); }, kGeneral, "arrays", "kInternalErrorMessage");
}

TEST(PrintAll, IntegerFieldsOfFullWidth) {
    Lvctr v = lv({1234, 5, -6});
    std::string buffer(static_cast<std::size_t>(v.printLength(4)), 'Q');
    v.printAll(buffer.data(), 4, 0.0);
    EXPECT_STREQ(buffer.c_str(), "1234    5   -6");
}

// The first integer is not padded but the position advances by p anyway: when it is
// shorter, its terminator stays inside the text and the bytes after it are not written.
TEST(PrintAll, ShortFirstIntegerLeavesItsTerminatorInside) {
    Lvctr v = lv({7, 5});
    std::string buffer(static_cast<std::size_t>(v.printLength(4)), 'Q');
    v.printAll(buffer.data(), 4, 0.0);
    EXPECT_EQ(buffer[0], '7');
    EXPECT_EQ(buffer[1], '\0');
    EXPECT_EQ(buffer[2], 'Q');
    EXPECT_EQ(buffer[3], 'Q');
    EXPECT_STREQ(buffer.c_str() + 4, "    5");
    EXPECT_STREQ(buffer.c_str(), "7");
}

TEST(PrintPoint, DoublesAndIntegers) {
    Dvctr d = dv({1, 2e-4, -3, 99});
    std::string buffer(static_cast<std::size_t>(d.printLength3(2)), '\0');
    d.printPoint(buffer.data(), 2, 1e-3, false);
    EXPECT_STREQ(buffer.c_str(), " 1.00e+000  0.00e+000 -3.00e+000");
    Lvctr l = lv({1, -22, 333});
    char lbuffer[78];
    l.printPoint(lbuffer, 4, 0.0, false);
    EXPECT_STREQ(lbuffer, "   1  -22  333");
}

TEST(PrintPoint, ShortVectors) {
    Dvctr d = dv({1, 2});
    char buffer[64];
    expectFatalAt([&] { d.printPoint(buffer, 2, 0.0, false); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    d.printPoint(buffer, 1, 0.0, true);
    EXPECT_STREQ(buffer, " 1.0e+000  2.0e+000  0.0e+000");
    Dvctr empty;
    empty.printPoint(buffer, 1, 0.0, true);
    EXPECT_STREQ(buffer, " 0.0e+000  0.0e+000  0.0e+000");
    Lvctr l = lv({4});
    expectFatalAt([&] { l.printPoint(buffer, 2, 0.0, false); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    l.printPoint(buffer, 2, 0.0, true);
    EXPECT_STREQ(buffer, " 4  0  0");
}

TEST(PrintTensor, RowsOfASixComponentTensor) {
    Dvctr d = dv({1, 2, 3, 4, 5, 6}); // a b c d e f
    std::string buffer(static_cast<std::size_t>(d.printLength9(1) + 3), '\0');
    d.printTensor(buffer.data(), 1, 0.0, false);
    EXPECT_STREQ(buffer.c_str(), " 1.0e+000  6.0e+000  5.0e+000\n"   // a f e
                                 " 6.0e+000  2.0e+000  4.0e+000\n"   // f b d
                                 " 5.0e+000  4.0e+000  3.0e+000\n"); // e d c
    meertest::TextFile f;
    d.printTensor(f.get(), 1, 0.0, false);
    EXPECT_EQ(f.contents(), std::string(buffer.c_str()));
}

TEST(PrintTensor, IntegersWithWidth) {
    Lvctr l = lv({1, 2, 3, 4, 5, 6});
    char buffer[234];
    l.printTensor(buffer, 3, 0.0, false);
    EXPECT_STREQ(buffer, "  1   6   5\n  6   2   4\n  5   4   3\n");
    meertest::TextFile f;
    l.printTensor(f.get(), 2, 0.0, false);
    EXPECT_EQ(f.contents(), " 1  6  5\n 6  2  4\n 5  4  3\n");
}

TEST(PrintTensor, ZeroLimitApplies) {
    Dvctr d = dv({1, 1e-9, 1, -1e-9, 1, 1});
    char buffer[256];
    d.printTensor(buffer, 1, 1e-6, false);
    EXPECT_STREQ(buffer, " 1.0e+000  1.0e+000  1.0e+000\n"
                         " 1.0e+000  0.0e+000  0.0e+000\n"
                         " 1.0e+000  0.0e+000  1.0e+000\n");
}

TEST(PrintTensor, EmptyWithAllowEmptyPrintsZeros) {
    Dvctr d;
    char buffer[256];
    d.printTensor(buffer, 1, 0.0, true);
    EXPECT_STREQ(buffer, " 0.0e+000  0.0e+000  0.0e+000\n"
                         " 0.0e+000  0.0e+000  0.0e+000\n"
                         " 0.0e+000  0.0e+000  0.0e+000\n");
    Lvctr l;
    l.printTensor(buffer, 2, 0.0, true);
    EXPECT_STREQ(buffer, " 0  0  0\n 0  0  0\n 0  0  0\n");
    meertest::TextFile f;
    l.printTensor(f.get(), 1, 0.0, true);
    EXPECT_EQ(f.contents(), "0 0 0\n0 0 0\n0 0 0\n");
}

TEST(PrintTensor, WrongSizeIsFatal) {
    Dvctr five = dv({1, 2, 3, 4, 5});
    Dvctr empty;
    Lvctr lempty;
    char buffer[256];
    meertest::TextFile f;
    expectFatalAt([&] { five.printTensor(buffer, 1, 0.0, true); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    expectFatalAt([&] { five.printTensor(f.get(), 1, 0.0, true); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    expectFatalAt([&] { empty.printTensor(buffer, 1, 0.0, false); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    expectFatalAt([&] { lempty.printTensor(f.get(), 1, 0.0, false); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    EXPECT_EQ(f.contents(), "");
}

// ---- scanning --------------------------------------------------------------------------

TEST(Scan, DoublesStepOverWholeTokens) {
    char text[] = "1.5 2e3\t-4 rest";
    char* cursor = text;
    Dvctr v(3);
    EXPECT_TRUE(v.scan(&cursor));
    EXPECT_EQ(v[0], 1.5);
    EXPECT_EQ(v[1], 2000.0);
    EXPECT_EQ(v[2], -4.0);
    EXPECT_STREQ(cursor, " rest");
}

TEST(Scan, ResultIsThatOfTheLastRead) {
    char text[] = "1 2";
    char* cursor = text;
    Dvctr v = dv({0, 0, 9});
    EXPECT_FALSE(v.scan(&cursor)); // nothing left for the third value
    EXPECT_EQ(v[0], 1.0);
    EXPECT_EQ(v[1], 2.0);
    EXPECT_EQ(v[2], 9.0);

    char line[] = "7\n8";
    cursor = line;
    Dvctr w(2);
    EXPECT_FALSE(w.scan(&cursor)); // the line ends after the first value
    EXPECT_EQ(w[0], 7.0);
}

TEST(Scan, IntegersStepOverSignAndDigits) {
    char text[] = "12 -3 +4 x";
    char* cursor = text;
    Lvctr v(3);
    EXPECT_TRUE(v.scan(&cursor));
    EXPECT_EQ(v[0], 12);
    EXPECT_EQ(v[1], -3);
    EXPECT_EQ(v[2], 4);
    EXPECT_STREQ(cursor, " x");
}

TEST(Scan, IntegerStepStopsAtAPoint) {
    char text[] = "1.5 2";
    char* cursor = text;
    Lvctr v = lv({0, 0});
    EXPECT_TRUE(v.scan(&cursor));
    EXPECT_EQ(v[0], 1);
    EXPECT_EQ(v[1], 0); // ".5" is no integer; the step then skips nothing
    EXPECT_STREQ(cursor, ".5 2");
}

TEST(Scan, SingleElement) {
    char text[] = "  42";
    char* cursor = text;
    Lvctr v(1);
    EXPECT_TRUE(v.scan(&cursor));
    EXPECT_EQ(v[0], 42);
    EXPECT_STREQ(cursor, "");
}
