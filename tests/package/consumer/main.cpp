// Built against an installed slabadapt with find_package.
#include "meer/obecne.h"

#include <cstdio>

int main() {
    if (meerspace::divisor(2.0) != 2.0)
        return 1;
    std::puts("consumer ok");
    return 0;
}
