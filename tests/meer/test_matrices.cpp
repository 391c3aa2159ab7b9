// Matrices and the dense algebra: storage, products, transposition, determinants, the
// Gaussian elimination with its absolute pivot threshold, tensor conversions and rotations,
// and the point operations.
#include "meer/arrays.h"
#include "meer/obecne.h"
#include "support/meer_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>

using namespace meerspace;
using meertest::expectFatalAt;
using meertest::kGeneral;
using meertest::near;

namespace {

Dmtrx matrix(std::int32_t rows, std::int32_t cols, std::initializer_list<double> values) {
    Dmtrx m(rows, cols);
    m.assign(values.begin());
    return m;
}

Dvctr dv(std::initializer_list<double> values) {
    Dvctr v;
    v.assign(values.begin(), static_cast<std::int32_t>(values.size()));
    return v;
}

Dmtrx rotationZ(double angle) {
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    return matrix(3, 3, {c, -s, 0, s, c, 0, 0, 0, 1});
}

// A general rotation: about x by a, then about y by b, then about z by c.
Dmtrx rotation(double a, double b, double c) {
    Dmtrx rx = matrix(3, 3, {1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a)});
    Dmtrx ry = matrix(3, 3, {std::cos(b), 0, std::sin(b), 0, 1, 0, -std::sin(b), 0, std::cos(b)});
    Dmtrx r = rotationZ(c);
    r.postMultiply(ry);
    r.postMultiply(rx);
    return r;
}

} // namespace

// ---- storage ---------------------------------------------------------------------------

TEST(MatrixStorage, RowMajorElements) {
    Dmtrx m = matrix(2, 3, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(m.rows, 2);
    EXPECT_EQ(m.cols, 3);
    EXPECT_EQ(m.capacity, 6);
    EXPECT_EQ(m.element(1, 0), 4.0);
    EXPECT_EQ(m(0, 2), 3.0);
    m.element(1, 2) = 60.0;
    EXPECT_EQ(m.data[5], 60.0);
    EXPECT_EQ(m.isReal(), 1);
}

TEST(MatrixStorage, SizeConstructorZeroFillsAndZeroClears) {
    Dmtrx m(2, 2);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(m.data[i], 0.0);
    m.assign(std::initializer_list<double>{1, 2, 3, 4}.begin());
    m.zero();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(m.data[i], 0.0);
    Dmtrx empty;
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.rows, 0);
}

TEST(MatrixResize, SameShapeDoesNothing) {
    Dmtrx m = matrix(2, 2, {1, 2, 3, 4});
    double* before = m.data;
    m.resize(2, 2);
    EXPECT_EQ(m.data, before);
    EXPECT_EQ(m(1, 1), 4.0);
}

TEST(MatrixResize, ThreeByFourToFourByThreeKeepsBufferAndValues) {
    Dmtrx m(3, 4);
    for (int i = 0; i < 12; ++i)
        m.data[i] = i + 1;
    double* before = m.data;
    m.resize(4, 3);
    EXPECT_EQ(m.data, before);
    EXPECT_EQ(m.rows, 4);
    EXPECT_EQ(m.cols, 3);
    EXPECT_EQ(m.capacity, 12);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(m.data[i], i + 1);
    EXPECT_EQ(m(3, 2), 12.0); // the same buffer read with the new shape
}

TEST(MatrixResize, SmallerKeepsTheBufferLargerReallocatesExactly) {
    Dmtrx m(3, 3);
    double* before = m.data;
    m.resize(2, 2);
    EXPECT_EQ(m.data, before);
    EXPECT_EQ(m.capacity, 9);
    m.resize(2, 5);
    EXPECT_EQ(m.capacity, 10);
    EXPECT_EQ(m.rows, 2);
    EXPECT_EQ(m.cols, 5);
}

TEST(MatrixStorage, AssignFromCopiesThisMatrixsShape) {
    Dmtrx source = matrix(2, 3, {1, 2, 3, 4, 5, 6});
    Dmtrx target(2, 2);
    target.assignFrom(source); // 4 elements from the start of the source buffer
    EXPECT_EQ(target(0, 0), 1.0);
    EXPECT_EQ(target(0, 1), 2.0);
    EXPECT_EQ(target(1, 0), 3.0);
    EXPECT_EQ(target(1, 1), 4.0);
}

// Copies of a matrix are deep: a matrix always owns its buffer.
TEST(MatrixStorage, CopiesAreDeep) {
    Dmtrx a = matrix(2, 2, {1, 2, 3, 4});
    Dmtrx b(a);
    EXPECT_NE(b.data, a.data);
    b(0, 0) = 10;
    EXPECT_EQ(a(0, 0), 1.0);
    Dmtrx c;
    c = a;
    EXPECT_NE(c.data, a.data);
    EXPECT_EQ(c.rows, 2);
    EXPECT_EQ(c(1, 1), 4.0);
    c = c;
    EXPECT_EQ(c(1, 1), 4.0);
}

// ---- products and transposition --------------------------------------------------------

TEST(MatrixProduct, Multiply) {
    Dmtrx a = matrix(2, 3, {1, 2, 3, 4, 5, 6});
    Dmtrx b = matrix(3, 2, {7, 8, 9, 10, 11, 12});
    Dmtrx c;
    c.multiply(a, b);
    EXPECT_EQ(c.rows, 2);
    EXPECT_EQ(c.cols, 2);
    EXPECT_EQ(c(0, 0), 58.0);
    EXPECT_EQ(c(0, 1), 64.0);
    EXPECT_EQ(c(1, 0), 139.0);
    EXPECT_EQ(c(1, 1), 154.0);
}

TEST(MatrixProduct, MismatchIsFatalAndChangesNothing) {
    Dmtrx a = matrix(2, 3, {1, 2, 3, 4, 5, 6});
    Dmtrx b = matrix(2, 2, {1, 0, 0, 1});
    Dmtrx c = matrix(1, 1, {5});
    expectFatalAt([&] { c.multiply(a, b); }, "size mismatch", "arrays", "size mismatch");
    EXPECT_EQ(c.rows, 1);
    EXPECT_EQ(c(0, 0), 5.0);
    expectFatalAt([&] { a.preMultiply(a); }, "size mismatch", "arrays", "size mismatch");
    expectFatalAt([&] { a.postMultiply(b); }, "size mismatch", "arrays", "size mismatch");
    EXPECT_EQ(a(1, 2), 6.0);
}

TEST(MatrixProduct, PreAndPostMultiplySquare) {
    Dmtrx a = matrix(2, 2, {1, 2, 3, 4});
    Dmtrx b = matrix(2, 2, {0, 1, 1, 0});
    Dmtrx pre = a;
    pre.preMultiply(b); // b * a swaps the rows
    EXPECT_EQ(pre(0, 0), 3.0);
    EXPECT_EQ(pre(0, 1), 4.0);
    EXPECT_EQ(pre(1, 0), 1.0);
    Dmtrx post = a;
    post.postMultiply(b); // a * b swaps the columns
    EXPECT_EQ(post(0, 0), 2.0);
    EXPECT_EQ(post(0, 1), 1.0);
    EXPECT_EQ(post(1, 1), 3.0);
}

TEST(MatrixTranspose, Square) {
    Dmtrx m = matrix(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    Dmtrx t;
    t.transpose(m);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_EQ(t(i, j), m(j, i));
}

// For a non-square source the row stride is the destination's column count (m.rows).
TEST(MatrixTranspose, TwoByThreeReadsWithStrideTwo) {
    Dmtrx m = matrix(2, 3, {1, 2, 3, 4, 5, 6});
    Dmtrx t;
    t.transpose(m);
    EXPECT_EQ(t.rows, 3);
    EXPECT_EQ(t.cols, 2);
    const double expected[3][2] = {{1, 3}, {2, 4}, {3, 5}}; // data[2j + i]
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 2; ++j)
            EXPECT_EQ(t(i, j), expected[i][j]) << i << "," << j;
    EXPECT_NE(t(0, 1), m(1, 0)); // not the true transpose
}

// ---- tensors ---------------------------------------------------------------------------

TEST(Tensor6, FromTensor6) {
    Dvctr v = dv({1, 2, 3, 4, 5, 6});
    Dmtrx m;
    m.fromTensor6(v);
    EXPECT_EQ(m.rows, 3);
    EXPECT_EQ(m.cols, 3);
    const double expected[9] = {1, 6, 5, 6, 2, 4, 5, 4, 3};
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(m.data[i], expected[i]) << i;
}

TEST(Tensor6, FromWrongSizeIsFatal) {
    Dvctr v = dv({1, 2, 3});
    Dmtrx m = matrix(1, 1, {7});
    expectFatalAt([&] { m.fromTensor6(v); }, "size of vectors is not equal to 6", "arrays",
                  "not equal to 6");
    EXPECT_EQ(m.rows, 1);
}

TEST(Tensor6, ToTensor6RoundTrip) {
    Dmtrx m = matrix(3, 3, {1, 6, 5, 6, 2, 4, 5, 4, 3});
    Dvctr v = dv({9});
    v.toTensor6(m);
    ASSERT_EQ(v.n, 6);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(v[i], i + 1.0);
}

TEST(Tensor6, ToTensor6OfThreeByFivePassesTheCheck) {
    Dmtrx m(3, 5);
    for (int i = 0; i < 15; ++i)
        m.data[i] = i;
    Dvctr v;
    v.toTensor6(m);
    ASSERT_EQ(v.n, 6);
    EXPECT_EQ(v[0], 0.0);  // (0,0)
    EXPECT_EQ(v[1], 6.0);  // (1,1) = data[1*5+1]
    EXPECT_EQ(v[2], 12.0); // (2,2)
    EXPECT_EQ(v[3], 7.0);  // (1,2)
    EXPECT_EQ(v[4], 2.0);  // (0,2)
    EXPECT_EQ(v[5], 1.0);  // (0,1)
}

TEST(Tensor6, ToTensor6OfTwoByTwoIsFatal) {
    Dmtrx m = matrix(2, 2, {1, 2, 3, 4});
    Dvctr v = dv({1});
    expectFatalAt([&] { v.toTensor6(m); }, "size of mtrx != 3x3", "arrays", "3x3");
    EXPECT_EQ(v.n, 1);
}

TEST(RotateTensorZ, ZeroAngleLeavesTheVector) {
    Dvctr v = dv({1.5, -2, 3, 4, 5, 6});
    v.rotateTensorZ(0.0);
    const double expected[6] = {1.5, -2, 3, 4, 5, 6};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(v[i], expected[i]);
}

TEST(RotateTensorZ, QuarterTurnSwapsNormalsAndNegatesShear) {
    Dvctr v = dv({1, 2, 3, 4, 5, 6});
    v.rotateTensorZ(std::numbers::pi / 2);
    EXPECT_TRUE(near(v[0], 2.0));
    EXPECT_TRUE(near(v[1], 1.0));
    EXPECT_TRUE(near(v[2], 3.0));
    EXPECT_TRUE(near(v[3], 5.0));  // c s3 + s s4
    EXPECT_TRUE(near(v[4], -4.0)); // -s s3 + c s4
    EXPECT_TRUE(near(v[5], -6.0));
}

TEST(RotateTensorZ, WrongSizeIsFatal) {
    Dvctr v = dv({1, 2, 3});
    expectFatalAt([&] { v.rotateTensorZ(0.3); }, "size of vectors is not equal to 6", "arrays",
                  "not equal to 6");
    EXPECT_EQ(v[0], 1.0);
}

TEST(RotateTensor, AboutZAgreesWithRotateTensorZ) {
    for (double angle : {0.0, 0.3, 1.2, -2.5}) {
        Dvctr a = dv({1, -2, 3, 0.5, -4, 7});
        Dvctr b(a); // a deep copy
        a.rotateTensor(rotationZ(angle));
        b.rotateTensorZ(angle);
        for (int i = 0; i < 6; ++i)
            EXPECT_TRUE(near(a[i], b[i], 1e-12, 1e-12)) << angle << " component " << i;
    }
}

TEST(RotateTensor, EqualsRSRTransposed) {
    Dvctr v = dv({2, -1, 4, 0.25, 3, -1.5});
    Dmtrx r = rotation(0.4, -1.1, 2.3);
    Dmtrx s;
    s.fromTensor6(v);
    Dmtrx rt;
    rt.transpose(r);
    Dmtrx rs;
    rs.multiply(r, s);
    Dmtrx expected;
    expected.multiply(rs, rt);
    v.rotateTensor(r);
    Dvctr e;
    e.toTensor6(expected);
    for (int i = 0; i < 6; ++i)
        EXPECT_TRUE(near(v[i], e[i], 1e-12, 1e-12)) << i;
}

TEST(RotateTensor, IdentityLeavesTheVectorAndWrongSizeIsFatal) {
    Dvctr v = dv({1, 2, 3, 4, 5, 6});
    v.rotateTensor(matrix(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1}));
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(v[i], i + 1.0);
    Dvctr shortV = dv({1, 2});
    expectFatalAt([&] { shortV.rotateTensor(rotationZ(1)); }, "size of vectors is not equal to 6",
                  "arrays", "not equal to 6");
}

// ---- determinant -----------------------------------------------------------------------

TEST(Determinant, TwoAndThree) {
    EXPECT_EQ(matrix(2, 2, {3, 8, 4, 6}).determinant(), -14.0);
    EXPECT_EQ(matrix(3, 3, {6, 1, 1, 4, -2, 5, 2, 8, 7}).determinant(), -306.0);
    EXPECT_EQ(matrix(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1}).determinant(), 1.0);
    Dmtrx r = rotation(0.3, 0.2, -0.7);
    EXPECT_TRUE(near(r.determinant(), 1.0));
}

TEST(Determinant, OtherShapesAreFatal) {
    expectFatalAt([] { matrix(1, 1, {2}).determinant(); },
                  "cannot compute determinant of matrix 1 x 1", "arrays", "determinant");
    expectFatalAt([] { Dmtrx(4, 4).determinant(); }, "cannot compute determinant of matrix 4 x 4",
                  "arrays", "determinant");
    expectFatalAt([] { Dmtrx(2, 3).determinant(); }, "cannot compute determinant of matrix 2 x 3",
                  "arrays", "determinant");
    expectFatalAt([] { Dmtrx(3, 2).determinant(); }, "cannot compute determinant of matrix 3 x 2",
                  "arrays", "determinant");
}

// ---- solvers ---------------------------------------------------------------------------

TEST(SolveMany, SolvesSeveralRightHandSides) {
    Dmtrx a = matrix(3, 3, {2, 1, -1, -3, -1, 2, -2, 1, 2});
    Dvctr b[2] = {dv({8, -11, -3}), dv({1, 0, 0})};
    Dvctr x[2];
    ASSERT_TRUE(a.solveMany(x, b, 2));
    EXPECT_TRUE(near(x[0][0], 2.0));
    EXPECT_TRUE(near(x[0][1], 3.0));
    EXPECT_TRUE(near(x[0][2], -1.0));
    // The second column of the inverse of the original matrix: A^-1 e0 = (4, -2, 5).
    EXPECT_TRUE(near(x[1][0], 4.0));
    EXPECT_TRUE(near(x[1][1], -2.0));
    EXPECT_TRUE(near(x[1][2], 5.0));
    // x are deep copies; b is unchanged.
    EXPECT_NE(x[0].data, b[0].data);
    EXPECT_EQ(b[0][1], -11.0);
}

TEST(SolveMany, LinearPolynomialFitOfALinearField) {
    // Normal equations of a least-squares fit of a + b x + c y to the exact field
    // 1 + 2x - 3y at four points: the fit is exact.
    const double pts[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    Dmtrx a(3, 3);
    Dvctr rhs(3);
    for (const auto& p : pts) {
        const double basis[3] = {1, p[0], p[1]};
        const double value = 1 + 2 * p[0] - 3 * p[1];
        for (int i = 0; i < 3; ++i) {
            rhs[i] += basis[i] * value;
            for (int j = 0; j < 3; ++j)
                a(i, j) += basis[i] * basis[j];
        }
    }
    Dvctr x;
    ASSERT_TRUE(a.solveMany(&x, &rhs, 1));
    EXPECT_TRUE(near(x[0], 1.0));
    EXPECT_TRUE(near(x[1], 2.0));
    EXPECT_TRUE(near(x[2], -3.0));
}

TEST(SolveMany, PivotBelowThresholdFails) {
    Dmtrx a = matrix(2, 2, {5e-16, 0, -4e-16, 1});
    Dvctr b = dv({1, 1});
    Dvctr x;
    EXPECT_FALSE(a.solveMany(&x, &b, 1));
}

TEST(SolveMany, PivotOfExactly1e15Continues) {
    Dmtrx a = matrix(2, 2, {1e-15, 0, 0, 1});
    Dvctr b = dv({1e-15, 2});
    Dvctr x;
    ASSERT_TRUE(a.solveMany(&x, &b, 1));
    EXPECT_TRUE(near(x[0], 1.0));
    EXPECT_TRUE(near(x[1], 2.0));
    EXPECT_EQ(kPivotThreshold, 1e-15);
}

TEST(SolveMany, LastPivotIsCheckedToo) {
    Dmtrx fails = matrix(2, 2, {1, 0, 0, 5e-16});
    Dvctr b = dv({1, 1});
    Dvctr x;
    EXPECT_FALSE(fails.solveMany(&x, &b, 1));
    Dmtrx passes = matrix(2, 2, {1, 0, 0, 1e-15});
    EXPECT_TRUE(passes.solveMany(&x, &b, 1));
    EXPECT_TRUE(near(x[1], 1e15));
}

TEST(SolveMany, ThresholdIsAbsoluteNotScaled) {
    // A perfectly conditioned but tiny system fails; the threshold ignores the scale.
    Dmtrx a = matrix(2, 2, {1e-16, 0, 0, 1e-16});
    Dvctr b = dv({1e-16, 1e-16});
    Dvctr x;
    EXPECT_FALSE(a.solveMany(&x, &b, 1));
}

TEST(SolveMany, EqualPivotsKeepTheUpperRowWithoutSwap) {
    Dmtrx a = matrix(2, 2, {2, 1, -2, 3});
    Dvctr b = dv({3, 1});
    Dvctr x;
    ASSERT_TRUE(a.solveMany(&x, &b, 1));
    // Row 0 was the pivot and stayed in place; row 1 was eliminated with f = -1.
    EXPECT_EQ(a(0, 0), 2.0);
    EXPECT_EQ(a(0, 1), 1.0);
    EXPECT_EQ(a(1, 0), 0.0);
    EXPECT_EQ(a(1, 1), 4.0);
    EXPECT_TRUE(near(x[0], 1.0));
    EXPECT_TRUE(near(x[1], 1.0));
}

TEST(SolveMany, EqualLaterCandidateDoesNotReplaceTheFirstLargest) {
    Dmtrx a = matrix(3, 3, {1, 0, 0, 3, 1, 0, -3, 0, 1});
    Dvctr b = dv({1, 4, -2});
    Dvctr x;
    ASSERT_TRUE(a.solveMany(&x, &b, 1));
    // Row 1 (|3|) became the pivot, not row 2 (|-3|).
    EXPECT_EQ(a(0, 0), 3.0);
    EXPECT_EQ(a(0, 1), 1.0);
    EXPECT_TRUE(near(x[0], 1.0));
    EXPECT_TRUE(near(x[1], 1.0));
    EXPECT_TRUE(near(x[2], 1.0));
}

TEST(SolveMany, FailureLeavesThePartlyEliminatedState) {
    Dmtrx a = matrix(2, 2, {1, 2, 2, 4});
    Dvctr b = dv({1, 4});
    Dvctr x;
    EXPECT_FALSE(a.solveMany(&x, &b, 1));
    // Rows swapped (|2| > |1|), then row 1 eliminated with f = 0.5.
    EXPECT_EQ(a(0, 0), 2.0);
    EXPECT_EQ(a(0, 1), 4.0);
    EXPECT_EQ(a(1, 0), 0.0);
    EXPECT_EQ(a(1, 1), 0.0);
    EXPECT_EQ(x[0], 4.0);
    EXPECT_EQ(x[1], 1.0 - 4.0 * 0.5);
}

TEST(SolveMany, OneByOne) {
    Dmtrx a = matrix(1, 1, {4});
    Dvctr b = dv({2});
    Dvctr x;
    ASSERT_TRUE(a.solveMany(&x, &b, 1));
    EXPECT_EQ(x[0], 0.5);
    Dmtrx z = matrix(1, 1, {0});
    EXPECT_FALSE(z.solveMany(&x, &b, 1));
}

TEST(Solve, RunsInTheStorageOfTheRightHandSide) {
    Dmtrx a = matrix(2, 2, {4, 1, 2, 3});
    Dvctr b = dv({9, 13});
    double* storage = b.data;
    Dvctr x;
    ASSERT_TRUE(a.solve(x, b));
    EXPECT_EQ(x.data, storage); // a shallow copy of b
    EXPECT_EQ(x.n, 2);
    EXPECT_TRUE(near(b[0], 1.4));
    EXPECT_TRUE(near(b[1], 3.4));
    EXPECT_TRUE(near(x[0], 1.4));
    x.detach(); // b keeps and frees the buffer
}

// x is assigned over, never freed: when one x serves several solves, each right-hand side
// keeps its own solution, and a buffer x owned before is left to its owner.
TEST(Solve, ReusedXLeavesEarlierBuffersAlone) {
    Dmtrx a = matrix(2, 2, {4, 1, 2, 3});
    Dvctr b1 = dv({9, 13});
    Dvctr x(2);
    double* own = x.data;
    ASSERT_TRUE(a.solve(x, b1));
    EXPECT_EQ(x.data, b1.data);
    EXPECT_EQ(own[1], 0.0); // still allocated and untouched
    delete[] own;
    Dmtrx a2 = matrix(2, 2, {2, 0, 0, 4});
    Dvctr b2 = dv({2, 8});
    ASSERT_TRUE(a2.solve(x, b2));
    EXPECT_EQ(x.data, b2.data);
    EXPECT_TRUE(near(b1[0], 1.4));
    EXPECT_TRUE(near(b1[1], 3.4));
    EXPECT_TRUE(near(b2[0], 1.0));
    EXPECT_TRUE(near(b2[1], 2.0));
    x.detach(); // b1 and b2 free their own buffers
}

TEST(Solve, SmallPivotFails) {
    Dmtrx a = matrix(2, 2, {1, 1, 1, 1});
    Dvctr b = dv({1, 2});
    Dvctr x;
    EXPECT_FALSE(a.solve(x, b));
    x.detach();
}

// ---- printing --------------------------------------------------------------------------

TEST(Print3x3, Rows) {
    Dmtrx m = matrix(3, 3, {1, -2, 3, 4e-5, 5, 6, 7, 8, -9e-5});
    meertest::TextFile f;
    m.print3x3(f.get(), 2, 1e-4, false);
    EXPECT_EQ(f.contents(), " 1.00e+000 -2.00e+000  3.00e+000\n"
                            " 0.00e+000  5.00e+000  6.00e+000\n"
                            " 7.00e+000  8.00e+000  0.00e+000\n");
    meertest::TextFile g;
    m.print3x3(g.get(), 1, 0.0, false);
    EXPECT_EQ(g.contents(), " 1.0e+000 -2.0e+000  3.0e+000\n"
                            " 4.0e-005  5.0e+000  6.0e+000\n"
                            " 7.0e+000  8.0e+000 -9.0e-005\n");
}

TEST(Print3x3, EmptyAndWrongShapes) {
    Dmtrx empty;
    meertest::TextFile f;
    empty.print3x3(f.get(), 1, 0.0, true);
    EXPECT_EQ(f.contents(), " 0.0e+000  0.0e+000  0.0e+000\n"
                            " 0.0e+000  0.0e+000  0.0e+000\n"
                            " 0.0e+000  0.0e+000  0.0e+000\n");
    meertest::TextFile g;
    expectFatalAt([&] { empty.print3x3(g.get(), 1, 0.0, false); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    Dmtrx two(2, 2);
    expectFatalAt([&] { two.print3x3(g.get(), 1, 0.0, true); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
    EXPECT_EQ(g.contents(), "");
}

// ---- points and directions -------------------------------------------------------------

TEST(Points, SetProduct) {
    Dmtrx m = matrix(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 10});
    PoinT q(1, -1, 2);
    PoinT p;
    p.setProduct(m, q);
    EXPECT_EQ(p.x, 1 - 2 + 6);
    EXPECT_EQ(p.y, 4 - 5 + 12);
    EXPECT_EQ(p.z, 7 - 8 + 20);
    q.setProduct(m, q); // in place
    EXPECT_EQ(q.x, 5.0);
    EXPECT_EQ(q.y, 11.0);
    EXPECT_EQ(q.z, 19.0);
    VectoR v(0, 0, 1);
    v.setProduct(rotationZ(0.5), v);
    EXPECT_EQ(v.z, 1.0);
}

TEST(Points, DifferenceCrossSumLength) {
    PoinT a(1, 2, 3);
    PoinT b(0, 1, 1);
    VectoR d = a - b;
    EXPECT_EQ(d.x, 1.0);
    EXPECT_EQ(d.y, 1.0);
    EXPECT_EQ(d.z, 2.0);
    VectoR c = cross(VectoR(1, 0, 0), VectoR(0, 1, 0));
    EXPECT_EQ(c.z, 1.0);
    EXPECT_EQ(c.x, 0.0);
    VectoR u(1, 2, 3);
    u.setCross(u, VectoR(4, 5, 6));
    EXPECT_EQ(u.x, -3.0);
    EXPECT_EQ(u.y, 6.0);
    EXPECT_EQ(u.z, -3.0);
    VectoR s = VectoR(1, 1, 1) + VectoR(2, 3, 4);
    EXPECT_EQ(s.z, 5.0);
    s.add(VectoR(-3, -4, -5));
    EXPECT_EQ(s.length(), 0.0);
    VectoR n(3, 0, 4);
    EXPECT_EQ(n.length(), 5.0);
    n.normalize();
    EXPECT_TRUE(near(n.x, 0.6));
    EXPECT_TRUE(near(n.z, 0.8));
}

TEST(Points, AreTriplesWithAVirtualDestructor) {
    static_assert(std::has_virtual_destructor_v<Elem3D>);
    static_assert(std::is_base_of_v<Elem3D, PoinT> && std::is_base_of_v<Elem3D, VectoR>);
    Elem3D* e = new VectoR(1, 2, 3);
    EXPECT_EQ(e->y, 2.0);
    delete e;
    PoinT p;
    EXPECT_EQ(p.x, 0.0);
    EXPECT_EQ(p.z, 0.0);
}

// rotateComponents belongs to a small holder of a fixed rotation, Rotation3.
TEST(RotateComponents, ThreeAndSixComponents) {
    Rotation3 rot;
    const double quarter[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
    std::memcpy(rot.r, quarter, sizeof quarter);
    Dvctr v = dv({1, 2, 3});
    rot.rotateComponents(v);
    EXPECT_EQ(v[0], -2.0);
    EXPECT_EQ(v[1], 1.0);
    EXPECT_EQ(v[2], 3.0);
    Dvctr w = dv({1, 0, 0, 0, 1, 5});
    rot.rotateComponents(w);
    EXPECT_EQ(w[0], 0.0);
    EXPECT_EQ(w[1], 1.0);
    EXPECT_EQ(w[3], -1.0);
    EXPECT_EQ(w[4], 0.0);
    EXPECT_EQ(w[5], 5.0);
    Rotation3 identity;
    identity.rotateComponents(w);
    EXPECT_EQ(w[5], 5.0);
}

TEST(RotateComponents, OtherSizesAreFatal) {
    Rotation3 rot;
    Dvctr v = dv({1, 2, 3, 4});
    expectFatalAt([&] { rot.rotateComponents(v); }, kGeneral, "arrays", "kInternalErrorMessage");
    Dvctr empty;
    expectFatalAt([&] { rot.rotateComponents(empty); }, kGeneral, "arrays",
                  "kInternalErrorMessage");
}
