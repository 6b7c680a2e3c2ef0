// A picture of a container's blocks by use: for the terminal, and as SVG. Stands on check.
#pragma once

#include <cstdint>
#include <string>

#include "inspect/check/check.h"

namespace orba::inspect {

// What a cell shows. A cell of several blocks shows what most of them are, unless one of them is damaged or leaked.
enum class Shade : std::uint8_t { kNodes, kDirectory, kMap, kFile, kFree, kLeaked, kShared };

struct MapStyle {
  std::uint32_t columns = 64;  // cells in a row, at least 1
  std::uint32_t rows = 32;     // rows at most; more blocks than cells share cells
  bool colour = false;         // ANSI colours
};

// Rows of cells, each row behind the number of its first block, then a legend with counts. Cells: N node block, D
// directory, M block map, # and + file (where a cell is one block, the sign changes from one file to the next), . free,
// ! leaked, X used twice.
std::string DrawMap(const Report& report, const MapStyle& style);

// A whole SVG document of any size: 128 cells a row and 256 rows at most, each row behind the number of its first
// block, with a legend and the owner as tooltip. `name` is the container's, for the title.
std::string DrawSvg(const Report& report, const std::string& name = "");

}  // namespace orba::inspect
