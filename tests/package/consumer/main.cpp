// Built against an installed slabadapt with find_package.
#include "meer/arrays.h"
#include "meer/obecne.h"

#include <cstdio>

int main() {
    if (meerspace::divisor(2.0) != 2.0)
        return 1;
    // The engine's vectors and solver from the installed library.
    meerspace::Dvctr v(3);
    v[0] = 3.0;
    v[2] = 4.0;
    if (v.norm() != 5.0)
        return 2;
    meerspace::Dmtrx a(2, 2);
    a(0, 0) = 2.0;
    a(1, 1) = 4.0;
    meerspace::Dvctr b(2);
    b[0] = 2.0;
    b[1] = 2.0;
    meerspace::Dvctr x;
    if (!a.solveMany(&x, &b, 1) || x[0] != 1.0 || x[1] != 0.5)
        return 3;
    std::puts("consumer ok");
    return 0;
}
