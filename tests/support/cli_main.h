#pragma once
// The whole `slabadapt` command line in this process, as the program runs it, with its two
// streams captured (for suites that link slabadapt_cli).
#include "cli/Commands.h"

#include <sstream>
#include <string>
#include <vector>

namespace slabadapt::test {

struct CommandOutcome {
    int code = 0;
    std::string out;
    std::string err;
};

// Runs `slabadapt args...`.
inline CommandOutcome RunSlabadapt(std::vector<std::string> args) {
    args.insert(args.begin(), "slabadapt");
    std::vector<const char*> argv;
    for (const auto& a : args)
        argv.push_back(a.c_str());
    std::ostringstream out, err;
    CommandOutcome o;
    o.code = slabadapt::cli::Main(static_cast<int>(argv.size()), argv.data(), out, err);
    o.out = out.str();
    o.err = err.str();
    return o;
}

} // namespace slabadapt::test
