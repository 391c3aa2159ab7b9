#include "adaptivity/Version.h"

namespace slabadapt {
const char* Version() {
    return "0.1.0";
}
} // namespace slabadapt
