#pragma once
// Floating-point comparison with a mixed tolerance: |expected - actual| <= abs + rel *
// max(|expected|, |actual|). Symmetric in its two values, and on failure it prints both values,
// their difference and both tolerances, so that a failure says by how much it missed.
//
//     EXPECT_TRUE(Near(2.0, area));                // defaults: abs 1e-12, rel 1e-9
//     EXPECT_TRUE(Near(2.0, area, 1e-12, 1e-12));  // as tight as doubles allow
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iomanip>

namespace slabadapt::test {

// The golden run's tolerances: what a change of summation order may move.
inline constexpr double kAbsTolerance = 1e-12;
inline constexpr double kRelTolerance = 1e-9;

inline testing::AssertionResult Near(double expected, double actual, double abs = kAbsTolerance,
                                     double rel = kRelTolerance) {
    const double diff = std::fabs(expected - actual);
    const double allowed = abs + rel * std::max(std::fabs(expected), std::fabs(actual));
    if (diff <= allowed) // false for NaN
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << std::setprecision(17) << "expected " << expected
                                       << ", actual " << actual << ": difference " << diff << " > "
                                       << allowed << " (abs " << abs << " + rel " << rel << ")";
}

} // namespace slabadapt::test
