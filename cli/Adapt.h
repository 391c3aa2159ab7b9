#pragma once
// slabadapt adapt: the adaptive analysis of a project from its geometry, cycle after cycle:
//
//   Gmsh meshes P.geo (first cycle: uniform size --h0 or the geometry's own sizes; later
//   cycles: the previous cycle's size field as background mesh), the mesh part and the deck
//   go to CalculiX, its results are imported, the module estimates the error and writes the
//   next size field, until the global error is at or below the target.
//
// Every cycle is kept in P.adapt/cycle-NN/ as a project of its own (P.msh, P.toml, P.inp,
// P_mesh.inp, the solver's files and log, P.STRINTG*, P.GAR, P.refine.pos); P.adapt/history.csv
// and history.json record the complete cycles, P.adapt/report.html shows them.
#include "cli/AdaptHistory.h"

#include <array>
#include <cstddef>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace slabadapt::cli {

struct AdaptOptions {
    std::filesystem::path project;
    double target = 0.05;
    std::vector<long> loadCases;
    // An envelope: one pass per load case or combination, the loop going on until every pass
    // meets the target (loadCases then empty); `each`: every valid load case of P.toml.
    std::vector<long> envelope;
    bool each = false;
    double h0 = 0.0; // size of the first mesh; 0: the geometry's own sizes
    bool triangles = false;
    bool planeStress = false;
    int maxCycles = 8;
    std::size_t maxElements = 200000;
    double gradation = 0.0;  // > 1: the largest size ratio of neighbouring nodes in the field
                             // the next mesh is made with; 0: the module's field as it is
    std::string deckCommand; // run in each cycle's folder to write P.inp (P in $SLABADAPT_P)
    bool noWait = false;     // give up at once when another slabadapt writes the project
    bool resume = false;
    bool fresh = false;
    std::string gmsh = "gmsh";
    std::string ccx = "ccx";
    bool progress = false; // redraw the running step on `err` (a terminal)
};

// The elements a mesh made with these sizes would have: per element its area over the area of
// an element of its new size (a quadrilateral of side h; with `triangles`, an equilateral
// triangle of side h), summed.
std::size_t PredictElements(const std::vector<double>& areas, const std::vector<double>& sizes,
                            bool triangles);

// Limits the ratio of the sizes of neighbouring nodes to `ratio` (> 1), as mesh adaptors'
// gradation does: a node's size becomes at most `ratio` times the size of any neighbour, the
// smallest sizes spreading outwards. `edges` are pairs of zero-based node indices. Sizes only
// ever shrink, so the graded field asks for at least the accuracy of the given one.
std::vector<double> GradeSizes(std::vector<double> sizes,
                               const std::vector<std::array<std::size_t, 2>>& edges, double ratio);

// Why the loop stops after the last of `cycles`, checked in this order: the target is met (exit
// 0), the error fell by less than 1 % since the cycle before (kExitAdaptStalled), --max-cycles
// cycles were run (kExitAdaptMaxCycles), the predicted next mesh exceeds --max-elements
// (kExitAdaptMaxElements). An empty reason: go on.
struct StopDecision {
    std::string reason; // target, stalled, max-cycles, max-elements; empty: go on
    std::string message;
    int exitCode = 0;
};
StopDecision DecideStop(const std::vector<CycleRecord>& cycles, const AdaptOptions& options);

int AdaptCommand(const AdaptOptions& options, std::ostream& out, std::ostream& err);

// Writes P.adapt/report.html again from the record.
int ReportCommand(const std::filesystem::path& project, std::ostream& out, std::ostream& err);

} // namespace slabadapt::cli
