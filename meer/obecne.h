#pragma once
// Diagnostics of the engine's library (placeholder until the library lands).
namespace meerspace {
double divisor(double x);
}
