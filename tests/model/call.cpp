#include "tests/model/call.h"

namespace model {

namespace {

// Letters for the arguments, in order: a, b names; x, y, z numbers; c container number x; f sizes number y.
struct Form {
  const char* name;
  const char* arguments;
};

constexpr Form kForms[] = {{"CreateVolumeEx", "cf"},    {"MountVolume", "ca"},      {"UnmountVolume", "a"},
                           {"GetVolumeInfo", "ay"},     {"CreateFile", "ax"},       {"CreateDirectory", "a"},
                           {"CopyFile", "ab"},          {"MoveFile", "ab"},         {"RenameFile", "ab"},
                           {"DeleteFile", "a"},         {"GetFileAttributes", "a"}, {"SetFileAttributes", "ax"},
                           {"OpenFile", "ax"},          {"SetFilePointer", "xyz"},  {"ReadFile", "xy"},
                           {"WriteFile", "xy"},         {"SetFileSize", "xy"},      {"GetFileSize", "x"},
                           {"FlushFileBuffers", "x"},   {"CloseFile", "x"},         {"SetCurrentDirectory", "a"},
                           {"GetCurrentDirectory", ""}, {"GetFullPathName", "a"},   {"FindFirstFile", "a"},
                           {"FindNextFile", "x"},       {"FindClose", "x"},         {" with null pointers", "xy"},
                           {" error state", "xy"}};
static_assert(sizeof kForms / sizeof kForms[0] == static_cast<std::size_t>(Op::kCount), "a form for each call");

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", value);
  return text;
}

bool SaveText(const std::string& text, std::FILE* file) {
  const std::size_t size = text.size();
  return std::fwrite(&size, sizeof size, 1, file) == 1 && std::fwrite(text.data(), 1, size, file) == size;
}

bool LoadText(std::string* text, std::FILE* file) {
  std::size_t size = 0;
  if (std::fread(&size, sizeof size, 1, file) != 1) return false;
  text->resize(size);
  return std::fread(&(*text)[0], 1, size, file) == size;
}

}  // namespace

std::string ContainerName(int number) { return "model-" + std::to_string(number) + ".orba"; }

std::string Print(const Call& call) {
  const bool plain = call.op == Op::kFormat && call.y == 0;
  const Form form = plain ? Form{"CreateVolume", "c"} : kForms[static_cast<int>(call.op)];
  const bool hasForms = form.arguments[0] == 'a' || call.op == Op::kGetCurrent || call.op == Op::kFindNext;
  std::string text = std::string("Orb") + form.name + (!hasForms ? "(" : call.wide ? "W(" : "A(");
  for (const char* letter = form.arguments; *letter != '\0'; ++letter) {
    if (letter != form.arguments) text += ", ";
    if (*letter == 'a') text += "\"" + call.a + "\"";
    if (*letter == 'b') text += "\"" + call.b + "\"";
    if (*letter == 'x') text += Hex(call.x);
    if (*letter == 'y') text += Hex(call.y);
    if (*letter == 'z') text += Hex(call.z);
    if (*letter == 'c') {
      text += "\"" + (call.op == Op::kFormat ? call.a : "") + ContainerName(static_cast<int>(call.x)) + "\"";
    }
    if (*letter == 'f') text += Hex(kFormats[call.y].bitmapBytes) + ", " + Hex(kFormats[call.y].blockSize);
  }
  return text + ")";
}

bool Save(const Call& call, std::FILE* file) {
  const std::uint32_t numbers[] = {static_cast<std::uint32_t>(call.op), call.wide, call.x, call.y, call.z};
  return std::fwrite(numbers, sizeof numbers, 1, file) == 1 && SaveText(call.a, file) && SaveText(call.b, file) &&
         std::fflush(file) == 0;
}

bool Load(Call* call, std::FILE* file) {
  std::uint32_t numbers[5];
  if (std::fread(numbers, sizeof numbers, 1, file) != 1) return false;
  *call = {static_cast<Op>(numbers[0]), numbers[1] != 0, "", "", numbers[2], numbers[3], numbers[4]};
  return LoadText(&call->a, file) && LoadText(&call->b, file);
}

}  // namespace model
