// Reads a module-definition (.def) file: the library's name and what it exports.
#pragma once

#include <string>
#include <vector>

namespace elf2pe {

struct Export {
  std::string name;
  bool isData;
};

struct ExportList {
  std::string library;          // as a file name: "orba.dll"
  std::vector<Export> exports;  // sorted by name, byte by byte
};

// Understands LIBRARY <name>, EXPORTS, one <name> [DATA] a line, and comments from ";" on. Throws ConvertError on
// anything else, on a name given twice, and without a library name or any export.
ExportList ParseExportList(const std::string& text);

}  // namespace elf2pe
