// The slabadapt command.
#include "cli/Commands.h"

#ifdef SLABADAPT_HAVE_CCX
#include "cli/ccx/CcxCommands.h"
#endif

#include <iostream>

int main(int argc, char** argv) {
    std::function<void(CLI::App&)> extend;
#ifdef SLABADAPT_HAVE_CCX
    extend = [](CLI::App& app) { RegisterCcxCommands(app); };
#endif
    return slabadapt::cli::Main(argc, argv, std::cout, std::cerr, extend);
}
