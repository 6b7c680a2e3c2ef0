#include "inspect/map.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

namespace orba::inspect {

namespace {

using std::to_string;

constexpr std::size_t kShades = 7;

struct ShadeInfo {
  char cell;
  const char* name;
  const char* ansi;  // SGR parameters
  const char* fill;  // SVG colour
};

// In the order of Shade.
constexpr ShadeInfo kShadeInfo[kShades] = {
    {'N', "nodes", "35", "#8e44ad"},        {'D', "directories", "33", "#d4ac0d"}, {'M', "block maps", "36", "#17a2b8"},
    {'#', "files", "34", "#2e6fb7"},        {'.', "free", "90", "#e5e8eb"},        {'!', "leaked", "93", "#f39c12"},
    {'X', "used twice", "31;1", "#c0392b"},
};
constexpr char kOtherFile = '+';
constexpr const char* kOtherFileAnsi = "94";
constexpr const char* kOtherFileFill = "#7fb3e6";

const ShadeInfo& InfoOf(Shade shade) { return kShadeInfo[static_cast<std::size_t>(shade)]; }

Shade ShadeOf(const BlockInfo& info) {
  if (info.shared) return Shade::kShared;
  switch (info.use) {
    case BlockUse::kNothing:
      return Shade::kLeaked;
    case BlockUse::kNodeBlock:
      return Shade::kNodes;
    case BlockUse::kDirectory:
      return Shade::kDirectory;
    case BlockUse::kMap:
      return Shade::kMap;
    case BlockUse::kFile:
      return Shade::kFile;
    case BlockUse::kChainRecord:
    case BlockUse::kFree:
      break;
  }
  return Shade::kFree;
}

struct Cell {
  Shade shade = Shade::kFree;
  bool other = false;       // of two files next to each other, the one drawn differently
  std::uint32_t first = 0;  // its first block
  std::uint16_t node = 0;   // whose, when it is one block
};

// Which files are drawn differently: it changes with each new owner met, block by block.
std::vector<bool> OtherFiles(const Model& model) {
  std::vector<bool> other(model.blocks.size());
  std::vector<int> drawn(model.nodes.size(), -1);
  int next = 0;
  for (std::size_t block = 1; block < model.blocks.size(); ++block) {
    const BlockInfo& info = model.blocks[block];
    if (info.use != BlockUse::kFile) continue;
    if (drawn[info.node] < 0) drawn[info.node] = next++ % 2;
    other[block] = drawn[info.node] == 1;
  }
  return other;
}

Cell MakeCell(const Model& model, const std::vector<bool>& other, std::uint32_t first, std::uint32_t count) {
  std::array<std::uint32_t, kShades> counts = {};
  for (std::uint32_t block = first; block < first + count; ++block) {
    ++counts[static_cast<std::size_t>(ShadeOf(model.blocks[block]))];
  }
  Cell cell;
  cell.first = first;
  cell.node = count == 1 ? model.blocks[first].node : std::uint16_t{0};
  cell.other = count == 1 && other[first];
  cell.shade = static_cast<Shade>(std::max_element(counts.begin(), counts.end()) - counts.begin());
  for (const Shade shade : {Shade::kLeaked, Shade::kShared}) {
    if (counts[static_cast<std::size_t>(shade)] > 0) cell.shade = shade;
  }
  return cell;
}

struct Grid {
  std::uint32_t blocksPerCell = 1;
  std::vector<Cell> cells;
};

Grid MakeGrid(const Model& model, std::uint64_t columns, std::uint64_t rows) {
  const std::uint32_t blocks = model.geometry.blocks;
  const std::uint64_t most = std::max<std::uint64_t>(1, columns * rows);
  Grid grid;
  grid.blocksPerCell = static_cast<std::uint32_t>(std::max<std::uint64_t>(1, (blocks + most - 1) / most));
  const std::vector<bool> other = OtherFiles(model);
  for (std::uint32_t first = 1; first <= blocks; first += grid.blocksPerCell) {
    grid.cells.push_back(MakeCell(model, other, first, std::min(grid.blocksPerCell, blocks - first + 1)));
  }
  return grid;
}

std::array<std::uint32_t, kShades> CountShades(const Model& model) {
  std::array<std::uint32_t, kShades> counts = {};
  for (std::size_t block = 1; block < model.blocks.size(); ++block) {
    ++counts[static_cast<std::size_t>(ShadeOf(model.blocks[block]))];
  }
  return counts;
}

std::string CellText(const Cell& cell, bool colour) {
  const bool other = cell.shade == Shade::kFile && cell.other;
  const char sign = other ? kOtherFile : InfoOf(cell.shade).cell;
  if (!colour) return std::string(1, sign);
  return std::string("\x1b[") + (other ? kOtherFileAnsi : InfoOf(cell.shade).ansi) + "m" + sign + "\x1b[0m";
}

std::string Summary(const Report& report, const Grid& grid) {
  const Geometry& geometry = report.model.geometry;
  return Counted(geometry.blocks, "block") + " of " + to_string(geometry.blockSize) + " bytes" +
         (grid.blocksPerCell > 1 ? ", " + to_string(grid.blocksPerCell) + " in a cell" : "");
}

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '&') {
      escaped += "&amp;";
    } else if (c == '<') {
      escaped += "&lt;";
    } else if (c == '>') {
      escaped += "&gt;";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string Rectangle(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height,
                      const std::string& fill, const std::string& title) {
  return "<rect x=\"" + to_string(x) + "\" y=\"" + to_string(y) + "\" width=\"" + to_string(width) + "\" height=\"" +
         to_string(height) + "\" fill=\"" + fill + "\"><title>" + Escaped(title) + "</title></rect>\n";
}

bool SameRun(const Cell& a, const Cell& b) { return a.shade == b.shade && a.other == b.other && a.node == b.node; }

}  // namespace

std::string DrawMap(const Report& report, const MapStyle& style) {
  const Model& model = report.model;
  if (model.blocks.empty()) return "the container's blocks cannot be made out\n";
  const std::uint32_t columns = std::max<std::uint32_t>(1, style.columns);
  const Grid grid = MakeGrid(model, columns, style.rows);
  std::string text = Summary(report, grid) + "\n";
  for (std::size_t at = 0; at < grid.cells.size(); ++at) {
    char label[16];
    std::snprintf(label, sizeof label, "%8u ", grid.cells[at].first);
    if (at % columns == 0) text += label;
    text += CellText(grid.cells[at], style.colour);
    if (at % columns == columns - 1 || at + 1 == grid.cells.size()) text += "\n";
  }
  const auto counts = CountShades(model);
  for (std::size_t i = 0; i < kShades; ++i) {
    Cell cell;
    cell.shade = static_cast<Shade>(i);
    if (counts[i] > 0) {
      text += CellText(cell, style.colour) + " " + kShadeInfo[i].name + " " + to_string(counts[i]) + "  ";
    }
  }
  if (text.back() != ' ') return text;
  text.resize(text.size() - 2);
  return text + "\n";
}

std::string DrawSvg(const Report& report) {
  constexpr std::uint32_t kColumns = 128, kRows = 256, kSize = 8, kMargin = 16, kHead = 64;
  const Model& model = report.model;
  const Grid grid = model.blocks.empty() ? Grid{} : MakeGrid(model, kColumns, kRows);
  const auto rows = static_cast<std::uint32_t>((grid.cells.size() + kColumns - 1) / kColumns);
  const std::uint32_t width = 2 * kMargin + kColumns * kSize;
  const std::uint32_t height = kHead + rows * kSize + kMargin;
  std::string text = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + to_string(width) + "\" height=\"" +
                     to_string(height) + "\" font-family=\"sans-serif\" font-size=\"12\">\n";
  text += Rectangle(0, 0, width, height, "#ffffff", "");
  text += "<text x=\"" + to_string(kMargin) + "\" y=\"24\">" + Escaped(Summary(report, grid)) + "</text>\n";
  const auto counts = CountShades(model);
  std::uint32_t x = kMargin;
  for (std::size_t i = 0; i < kShades; ++i) {
    const std::string label = std::string(kShadeInfo[i].name) + " " + to_string(counts[i]);
    text += Rectangle(x, 36, 12, 12, kShadeInfo[i].fill, label);
    text += "<text x=\"" + to_string(x + 16) + "\" y=\"46\">" + label + "</text>\n";
    x += 32 + 7 * static_cast<std::uint32_t>(label.size());
  }
  for (std::size_t at = 0; at < grid.cells.size();) {
    const Cell& cell = grid.cells[at];
    std::size_t end = at + 1;
    while (end < grid.cells.size() && end % kColumns != 0 && SameRun(grid.cells[end], cell)) ++end;
    const auto count = static_cast<std::uint32_t>(end - at);
    const std::uint32_t last = std::min(model.geometry.blocks, cell.first + count * grid.blocksPerCell - 1);
    std::string title = "blocks " + to_string(cell.first) + " to " + to_string(last) + ": " + InfoOf(cell.shade).name;
    if (cell.node != 0) title += ", " + PathOf(model, cell.node);
    const bool other = cell.shade == Shade::kFile && cell.other;
    text += Rectangle(kMargin + static_cast<std::uint32_t>(at % kColumns) * kSize,
                      kHead + static_cast<std::uint32_t>(at / kColumns) * kSize, count * kSize, kSize - 1,
                      other ? kOtherFileFill : InfoOf(cell.shade).fill, title);
    at = end;
  }
  return text + "</svg>\n";
}

}  // namespace orba::inspect
