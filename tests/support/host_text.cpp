// The test host's ANSI code page: Windows-1252, "?" for what it lacks.
#include <string.h>

#include <algorithm>
#include <string>

#include "support/host_call.h"

namespace testhost {

namespace {

namespace coredll = orba::coredll;

int32_t g_FailedConversion = 0;

// Bytes 0x80 to 0x9F; all others are the character of the same number. Five of them stand for no character of the code
// page and pass through.
constexpr char16_t kUpperControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

char16_t ToWide(char c) {
  const uint8_t byte = static_cast<uint8_t>(c);
  return byte >= 0x80 && byte < 0xA0 ? kUpperControls[byte - 0x80] : char16_t{byte};
}

// The byte of a character; false where the code page has none.
bool ToAnsi(char16_t c, char* out) {
  const char16_t* const end = std::end(kUpperControls);
  const char16_t* const found = std::find(std::begin(kUpperControls), end, c);
  uint8_t byte = static_cast<uint8_t>(c);
  if (found != end) {
    byte = static_cast<uint8_t>(0x80 + (found - kUpperControls));
  } else if (c >= 0x100 || (c >= 0x80 && c < 0xA0)) {
    return false;
  }
  memcpy(out, &byte, 1);
  return true;
}

// The text a count speaks of: -1 is everything up to and with the terminator.
template <typename Char>
std::basic_string<Char> Counted(const Char* text, int32_t count) {
  if (count >= 0) return std::basic_string<Char>(text, static_cast<size_t>(count));
  std::basic_string<Char> whole(text);
  return whole + Char{};
}

template <typename Char, typename Out>
bool ArgumentsAreGood(uint32_t codePage, uint32_t flags, const Char* text, int32_t count, const Out* out,
                      int32_t outSize) {
  return codePage == coredll::kAnsiCodePage && flags == 0 && text != nullptr && (count > 0 || count == -1) &&
         outSize >= 0 && (outSize == 0 || out != nullptr);
}

// Puts out what fits and returns the length; 0 where not all of it fits. A size of 0 only measures.
template <typename Char>
int32_t PutOut(HostCall& call, const std::basic_string<Char>& text, Char* out, int32_t outSize) {
  if (outSize != 0) {
    const size_t fits = std::min(text.size(), static_cast<size_t>(outSize));
    std::copy_n(text.begin(), fits, out);
    if (fits < text.size()) return call.Fail(coredll::kHostInsufficientBuffer);
  }
  return static_cast<int32_t>(text.size());
}

}  // namespace

void ResetText() { g_FailedConversion = 0; }

void SetFailedConversion(int32_t result) { g_FailedConversion = result; }

}  // namespace testhost

namespace orba {
namespace coredll {

using testhost::Call;
using testhost::HostCall;

int32_t WideCharToMultiByte(uint32_t codePage, uint32_t flags, const WideChar* wide, int32_t wideCount, char* out,
                            int32_t outSize, const char* defaultChar, int32_t* usedDefault) {
  HostCall call(Call::kWideToAnsi);
  call.record.count = static_cast<uint32_t>(outSize);
  if (call.fails()) return testhost::g_FailedConversion;
  if (!testhost::ArgumentsAreGood(codePage, flags, wide, wideCount, out, outSize)) {
    return call.Fail(kHostInvalidParameter);
  }
  std::string ansi;
  bool lacking = false;
  for (const WideChar c : testhost::Counted(wide, wideCount)) {
    char byte = defaultChar != nullptr ? *defaultChar : '?';
    if (!testhost::ToAnsi(c, &byte)) lacking = true;
    ansi += byte;
  }
  if (usedDefault != nullptr) *usedDefault = lacking;
  return testhost::PutOut(call, ansi, out, outSize);
}

int32_t MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* ansi, int32_t ansiCount, WideChar* out,
                            int32_t outCount) {
  HostCall call(Call::kAnsiToWide);
  call.record.count = static_cast<uint32_t>(outCount);
  if (call.fails()) return testhost::g_FailedConversion;
  if (!testhost::ArgumentsAreGood(codePage, flags, ansi, ansiCount, out, outCount)) {
    return call.Fail(kHostInvalidParameter);
  }
  std::basic_string<WideChar> wide;
  for (const char c : testhost::Counted(ansi, ansiCount)) wide += testhost::ToWide(c);
  return testhost::PutOut(call, wide, out, outCount);
}

}  // namespace coredll
}  // namespace orba
