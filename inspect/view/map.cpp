#include "inspect/view/map.h"

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

bool IsOther(const Cell& cell) { return cell.shade == Shade::kFile && cell.other; }

// A run of `count` cells that look the same.
std::string CellText(const Cell& cell, std::size_t count, bool colour) {
  std::string signs(count, IsOther(cell) ? kOtherFile : InfoOf(cell.shade).cell);
  if (!colour) return signs;
  return std::string("\x1b[") + (IsOther(cell) ? kOtherFileAnsi : InfoOf(cell.shade).ansi) + "m" + signs + "\x1b[0m";
}

const char* FillOf(const Cell& cell) { return IsOther(cell) ? kOtherFileFill : InfoOf(cell.shade).fill; }

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

bool LooksSame(const Cell& a, const Cell& b) { return a.shade == b.shade && IsOther(a) == IsOther(b); }
bool IsSameOwners(const Cell& a, const Cell& b) { return LooksSame(a, b) && a.node == b.node; }

// One past the last cell of the row that is the `same` as the one at `at`.
std::size_t EndOfRun(const Grid& grid, std::size_t at, std::size_t columns, bool (*same)(const Cell&, const Cell&)) {
  std::size_t end = at + 1;
  while (end < grid.cells.size() && end % columns != 0 && same(grid.cells[end], grid.cells[at])) ++end;
  return end;
}

std::string SvgText(std::uint32_t x, std::uint32_t y, const std::string& attributes, const std::string& text) {
  return "<text x=\"" + to_string(x) + "\" y=\"" + to_string(y) + "\"" + attributes + ">" + Escaped(text) + "</text>\n";
}

// Where the parts of the SVG picture lie.
constexpr std::uint32_t kColumns = 128, kRows = 256, kSize = 8, kMargin = 16, kLabel = 48, kHead = 80;

// A swatch and a count for each use; files have two swatches, for the colour changes from one file to the next.
std::string SvgLegend(const Model& model) {
  const auto counts = CountShades(model);
  std::string text;
  std::uint32_t x = kMargin + kLabel;
  for (std::size_t i = 0; i < kShades; ++i) {
    const std::string label = std::string(kShadeInfo[i].name) + " " + to_string(counts[i]);
    text += Rectangle(x, 52, 12, 12, kShadeInfo[i].fill, label);
    if (static_cast<Shade>(i) == Shade::kFile) text += Rectangle(x += 12, 52, 12, 12, kOtherFileFill, label);
    text += SvgText(x + 16, 62, "", label);
    x += 32 + 7 * static_cast<std::uint32_t>(label.size());
  }
  return text;
}

std::string SvgCells(const Model& model, const Grid& grid) {
  std::string text;
  for (std::size_t at = 0; at < grid.cells.size();) {
    const Cell& cell = grid.cells[at];
    const std::size_t end = EndOfRun(grid, at, kColumns, IsSameOwners);
    const auto count = static_cast<std::uint32_t>(end - at);
    const auto column = static_cast<std::uint32_t>(at % kColumns);
    const std::uint32_t y = kHead + static_cast<std::uint32_t>(at / kColumns) * kSize;
    const std::uint32_t last = std::min(model.geometry.blocks, cell.first + count * grid.blocksPerCell - 1);
    std::string title = "block" + (last == cell.first ? " " + to_string(last)
                                                      : "s " + to_string(cell.first) + " to " + to_string(last));
    title += std::string(": ") + InfoOf(cell.shade).name;
    if (cell.node != 0) title += ", " + PathOf(model, cell.node);
    if (column == 0) {
      text +=
          SvgText(kMargin + kLabel - 4, y + kSize - 1, " font-size=\"8\" text-anchor=\"end\"", to_string(cell.first));
    }
    text += Rectangle(kMargin + kLabel + column * kSize, y, count * kSize, kSize - 1, FillOf(cell), title);
    at = end;
  }
  return text;
}

}  // namespace

std::string DrawMap(const Report& report, const MapStyle& style) {
  const Model& model = report.model;
  if (model.blocks.empty()) return "the container's blocks cannot be told apart\n";
  const std::uint32_t columns = std::max<std::uint32_t>(1, style.columns);
  const Grid grid = MakeGrid(model, columns, style.rows);
  std::string text = Summary(report, grid) + "\n";
  for (std::size_t at = 0; at < grid.cells.size();) {
    const Cell& cell = grid.cells[at];
    char label[16];
    std::snprintf(label, sizeof label, "%8u ", cell.first);
    if (at % columns == 0) text += label;
    const std::size_t end = EndOfRun(grid, at, columns, LooksSame);
    text += CellText(cell, end - at, style.colour);
    if (end % columns == 0 || end == grid.cells.size()) text += "\n";
    at = end;
  }
  const auto counts = CountShades(model);
  for (std::size_t i = 0; i < kShades; ++i) {
    Cell cell;
    cell.shade = static_cast<Shade>(i);
    if (counts[i] > 0) {
      text += CellText(cell, 1, style.colour) + " " + kShadeInfo[i].name + " " + to_string(counts[i]) + "  ";
    }
  }
  if (text.back() != ' ') return text;
  text.resize(text.size() - 2);
  return text + "\n";
}

std::string DrawSvg(const Report& report, const std::string& name) {
  const Model& model = report.model;
  const Grid grid = model.blocks.empty() ? Grid{} : MakeGrid(model, kColumns, kRows);
  const auto rows = static_cast<std::uint32_t>((grid.cells.size() + kColumns - 1) / kColumns);
  const std::string width = to_string(2 * kMargin + kLabel + kColumns * kSize);
  const std::string height = to_string(kHead + rows * kSize + kMargin);
  const std::string heading = (name.empty() ? "" : name + ": ") + Summary(report, grid);
  std::string text = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + width + "\" height=\"" + height +
                     "\" viewBox=\"0 0 " + width + " " + height + "\" font-family=\"sans-serif\" font-size=\"12\">\n";
  text += "<title>" + Escaped(name.empty() ? "container" : name) + "</title>\n";
  text += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  text += SvgText(kMargin + kLabel, 24, "", heading);
  if (grid.blocksPerCell > 1) {
    text += SvgText(kMargin + kLabel, 42, " font-size=\"10\"",
                    "A cell shows what most of its blocks are, but leaks and double use in any case.");
  }
  return text + SvgLegend(model) + SvgCells(model, grid) + "</svg>\n";
}

}  // namespace orba::inspect
