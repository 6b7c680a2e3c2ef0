#include "export_list.h"

#include <algorithm>
#include <sstream>

#include "convert_error.h"

namespace elf2pe {

namespace {

std::vector<std::string> WordsOf(const std::string& line) {
  std::istringstream words(line.substr(0, line.find(';')));
  std::vector<std::string> result;
  for (std::string word; words >> word;) result.push_back(word);
  return result;
}

}  // namespace

ExportList ParseExportList(const std::string& text) {
  ExportList list;
  bool inExports = false;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::vector<std::string> words = WordsOf(line);
    if (words.empty()) continue;
    if (words.size() == 2 && words[0] == "LIBRARY" && list.library.empty()) {
      list.library = words[1].find('.') == std::string::npos ? words[1] + ".dll" : words[1];
    } else if (words.size() == 1 && words[0] == "EXPORTS" && !inExports) {
      inExports = true;
    } else if (inExports && (words.size() == 1 || (words.size() == 2 && words[1] == "DATA"))) {
      list.exports.push_back({words[0], words.size() == 2});
    } else {
      throw ConvertError("line " + std::to_string(number) + " of the export list is not understood");
    }
  }
  if (list.library.empty()) throw ConvertError("the export list names no library");
  if (list.exports.empty()) throw ConvertError("the export list is empty");

  std::sort(list.exports.begin(), list.exports.end(), [](const Export& a, const Export& b) { return a.name < b.name; });
  for (size_t i = 0; i + 1 < list.exports.size(); ++i) {
    if (list.exports[i].name == list.exports[i + 1].name) {
      throw ConvertError("the export list names " + list.exports[i].name + " twice");
    }
  }
  return list;
}

}  // namespace elf2pe
