#pragma once
// The record of an adaptive analysis, P.adapt/history.csv and P.adapt/history.json: one entry
// per complete cycle, and why the loop stopped. A cycle is complete when it is in the record;
// the record is replaced in one step (written aside, then renamed), so a killed run leaves the
// previous record whole.
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace slabadapt::cli {

struct SlabError {
    long slab = 0;              // one-based slab id
    std::string name;           // from P.toml or the mesh, may be empty
    double maxLocalError = 0.0; // a fraction
};

struct CycleRecord {
    int cycle = 0; // one-based
    std::size_t elements = 0;
    std::size_t nodes = 0;
    double globalError = 0.0; // a fraction
    std::vector<SlabError> slabs;
    std::size_t predictedNext = 0; // elements the size field asks for in the next mesh
    // With an envelope, each pass's load case and global error (globalError is the largest).
    std::vector<std::pair<long, double>> passes;
    // Wall time of each step, in seconds.
    double meshSeconds = 0.0;
    double solveSeconds = 0.0;
    double importSeconds = 0.0;
    double estimateSeconds = 0.0;
    double totalSeconds = 0.0;
};

struct AdaptHistory {
    std::string project; // P, as given
    double target = 0.0;
    std::vector<long> loadCases;
    std::vector<CycleRecord> cycles;
    std::string stop; // empty while running: target, max-cycles, max-elements, stalled, failed
    std::string stopMessage; // the sentence the command printed
    int exitCode = 0;
};

// The cycle's folder: P.adapt/cycle-01, ...
std::filesystem::path CycleFolder(const std::filesystem::path& record, int cycle);

// Writes history.csv and history.json into `record`; throws std::runtime_error naming the file
// when it cannot.
void WriteHistory(const std::filesystem::path& record, const AdaptHistory& history);

// Reads history.csv (and the stop from history.json) of `record`; a missing record reads as no
// cycles. Throws std::runtime_error naming the file and line of a damaged record.
AdaptHistory ReadHistory(const std::filesystem::path& record);

} // namespace slabadapt::cli
