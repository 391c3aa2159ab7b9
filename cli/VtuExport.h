#pragma once
// The mesh with the stored adaptivity results as a VTK XML unstructured grid (.vtu), for
// ParaView: per cell the slab and the four stored columns, per point the nodal size. The Float64
// arrays are inline binary (base64), so that a cell without a value reads back as NaN.
#include "host/outcome/project.h"

#include <array>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace slabadapt::cli {

// Writes `file`. elementColumns has one entry per mesh element (NaN where nothing is stored),
// nodalSizes one per node; extraCellArrays are further named cell arrays (one value per
// element). Throws std::runtime_error when the file cannot be written.
void WriteVtu(const std::filesystem::path& file, const host::outcome::Mesh& mesh,
              const std::vector<std::array<double, 4>>& elementColumns,
              const std::vector<double>& nodalSizes,
              const std::vector<std::pair<std::string, std::vector<double>>>& extraCellArrays = {});

} // namespace slabadapt::cli
