#include "base/text.h"

#include "base/error.h"

namespace orba {

namespace {

uint32_t WideLength(const WideChar* wide) {
  uint32_t length = 0;
  while (wide[length] != 0) ++length;
  return length;
}

}  // namespace

char* OrbWideToAnsiAlloc(const WideChar* wide) {
  if (wide == nullptr) {
    Fail(ORB_ERROR_INVALID_ARGUMENT);
    return nullptr;
  }
  // Two bytes for each character hold any ANSI code page.
  const uint32_t size = 2 * WideLength(wide) + 1;
  char* ansi = static_cast<char*>(malloc(size));
  if (ansi == nullptr) {
    Fail(ORB_ERROR_OUT_OF_MEMORY);
    return nullptr;
  }
  if (OrbWideToAnsi(ansi, wide, static_cast<int32_t>(size)) > 0) return ansi;
  free(ansi);
  return nullptr;
}

int32_t OrbWideToAnsi(char* out, const WideChar* wide, int32_t outSize) {
  if (out == nullptr || outSize == 0) return 0;
  const int32_t written =
      coredll::WideCharToMultiByte(coredll::kAnsiCodePage, 0, wide, -1, out, outSize, nullptr, nullptr);
  if (written > 0) {
    out[written - 1] = '\0';
  } else {
    Fail(ORB_ERROR_INVALID_ARGUMENT);
  }
  return written;
}

int32_t OrbAnsiToWide(WideChar* out, const char* ansi, int32_t outChars) {
  const int32_t written = coredll::MultiByteToWideChar(coredll::kAnsiCodePage, 0, ansi, -1, out, outChars);
  if (written > 0) {
    out[written - 1] = 0;
  } else {
    Fail(ORB_ERROR_INVALID_ARGUMENT);
  }
  return written;
}

}  // namespace orba
