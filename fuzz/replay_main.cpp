// A main for the fuzz targets where there is no fuzzer (the GCC builds): runs every file named,
// or every file in a folder named, through the target once. The test suite replays the seeds
// and every input a campaign found this way.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path given = argv[i];
        if (fs::is_directory(given)) {
            for (const auto& entry : fs::directory_iterator(given))
                if (entry.is_regular_file() && entry.path().filename().string()[0] != '.')
                    inputs.push_back(entry.path()); // not .gitkeep
        } else {
            inputs.push_back(given);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& input : inputs) {
        std::ifstream in(input, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "%s: cannot be read\n", input.c_str());
            return 1;
        }
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
        std::fprintf(stderr, "%s (%zu bytes)\n", input.c_str(), bytes.size());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::fprintf(stderr, "%zu inputs replayed\n", inputs.size());
    return 0;
}
