// elf2pe: turns a linked ARM ELF image into a Windows CE DLL.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "convert_error.h"
#include "elf_image.h"
#include "export_list.h"
#include "pe_format.h"
#include "pe_image.h"

namespace {

using elf2pe::ConvertError;

constexpr char kUsage[] =
    "usage: elf2pe --machine arm|thumb|thumb2 --ce-version MAJOR.MINOR --exports FILE.def\n"
    "              --imports-from LIBRARY INPUT.elf OUTPUT.dll\n"
    "Turns an ARM program linked with `ld -q` and device.ld into a Windows CE DLL.\n";

struct Arguments {
  elf2pe::PeOptions options{};
  std::string exports;
  std::vector<std::string> files;  // input, output
};

uint16_t ParseMachine(const std::string& text) {
  if (text == "arm") return pe::kMachineArm;
  if (text == "thumb") return pe::kMachineThumb;
  if (text == "thumb2") return pe::kMachineArmThumb2;
  throw ConvertError("--machine is arm, thumb or thumb2, not " + text);
}

void ParseVersion(const std::string& text, elf2pe::PeOptions* options) {
  unsigned major = 0;
  unsigned minor = 0;
  char rest = 0;
  if (std::sscanf(text.c_str(), "%2u.%2u%c", &major, &minor, &rest) != 2 || major > 99 || minor > 99) {
    throw ConvertError("--ce-version is a version such as 4.0, not " + text);
  }
  options->subsystemMajor = static_cast<uint16_t>(major);
  options->subsystemMinor = static_cast<uint16_t>(minor);
}

Arguments ParseArguments(const std::vector<std::string>& words) {
  Arguments arguments;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word.compare(0, 2, "--") != 0) {
      arguments.files.push_back(word);
      continue;
    }
    if (i + 1 == words.size()) throw ConvertError(word + " needs a value");
    const std::string& value = words[++i];
    if (word == "--machine") {
      arguments.options.machine = ParseMachine(value);
    } else if (word == "--ce-version") {
      ParseVersion(value, &arguments.options);
    } else if (word == "--exports") {
      arguments.exports = value;
    } else if (word == "--imports-from") {
      arguments.options.importLibrary = value;
    } else {
      throw ConvertError("unknown option " + word);
    }
  }
  const elf2pe::PeOptions& options = arguments.options;
  if (options.machine == 0 || options.subsystemMajor == 0 || arguments.exports.empty() ||
      options.importLibrary.empty() || arguments.files.size() != 2) {
    throw ConvertError("an argument is missing or there is one too many");
  }
  return arguments;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string contents{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.is_open() || file.bad()) throw ConvertError("cannot read " + path);
  return contents;
}

void WriteFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw ConvertError("cannot write " + path);
}

void Convert(const Arguments& arguments) {
  const std::string elf = ReadFile(arguments.files[0]);
  const elf2pe::ElfImage image = elf2pe::ReadElf(std::vector<uint8_t>(elf.begin(), elf.end()));
  const elf2pe::ExportList exports = elf2pe::ParseExportList(ReadFile(arguments.exports));
  WriteFile(arguments.files[1], elf2pe::BuildPe(image, exports, arguments.options));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string(argv[1]) == "--help") {
    std::fputs(kUsage, stdout);
    return EXIT_SUCCESS;
  }
  Arguments arguments;
  try {
    arguments = ParseArguments(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const ConvertError& error) {
    std::fprintf(stderr, "elf2pe: %s\n%s", error.what(), kUsage);
    return 2;
  }
  try {
    Convert(arguments);
  } catch (const ConvertError& error) {
    std::fprintf(stderr, "elf2pe: %s: %s\n", arguments.files[0].c_str(), error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
