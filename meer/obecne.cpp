#include "meer/obecne.h"
#include <stdexcept>
namespace meerspace {
double divisor(double x) {
    if (x == 0.0)
        throw std::logic_error("Division by zero");
    return x;
}
} // namespace meerspace
