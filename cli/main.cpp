// The slabadapt command.
#include "cli/Commands.h"
#include "meer/obecne.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

// The estimator cannot be destroyed once a model it cannot take has stopped it half-way (a run
// with --no-check on a project the check refuses): its engine then reports an internal error,
// which ends the process. Say what happened in one line and leave with the code of an
// unexpected failure rather than dumping core.
[[noreturn]] void OnTerminate() {
    bool engine = false;
    const char* what = nullptr;
    if (const std::exception_ptr current = std::current_exception()) {
        try {
            std::rethrow_exception(current);
        } catch (int code) {
            engine = code == meerspace::kFatalErrorCode;
        } catch (const std::exception& e) {
            what = e.what();
        } catch (...) {
        }
    }
    std::fflush(stdout);
    if (engine)
        std::fputs("slabadapt: the estimator stopped on a model it cannot take and could not be "
                   "shut down cleanly; run `slabadapt check` on the project\n",
                   stderr);
    else if (what != nullptr)
        std::fprintf(stderr, "slabadapt: unexpected failure: %s\n", what);
    else
        std::fputs("slabadapt: unexpected failure\n", stderr);
    std::_Exit(slabadapt::cli::kExitInternal);
}

} // namespace

int main(int argc, char** argv) {
    std::set_terminate(OnTerminate);
#if defined(__GLIBC__)
    // Blocks of a megabyte and more (a mesh file's text, the readers' buffers, per-element
    // tables) come from and go back to the system. glibc would otherwise raise this threshold
    // each time such a block is freed and keep later ones on its heap, where memory freed in
    // one stage of a run is not given back: 50 MB more peak memory on a model of 10^6
    // elements, at no gain in speed.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    // The heap grows 8 MB at a time rather than 128 kB: a model's millions of small records
    // (integration points, the estimator's nodes and elements) cost a few hundred calls to the
    // system instead of some ten thousand; at most 8 MB more are kept when the heap shrinks.
    mallopt(M_TOP_PAD, 8 << 20);
#endif
    return slabadapt::cli::Main(argc, argv, std::cout, std::cerr);
}
