// The ANSI code page is Windows-1252. A 16-bit character that it lacks becomes the default character, "?" unless the
// caller names one, without looking for a similar letter; both halves of a surrogate pair become one each, as the
// device makes of them. The bytes 81 8D 8F 90 9D, which the code page leaves open, are the control characters of the
// same number, so every byte survives the way to 16 bits and back.
#include "platform/posix/posix.h"

namespace orba {
namespace {

constexpr uint32_t kFirstSpecial = 0x80;  // bytes from here to 0x9F are not the character of their own number
constexpr uint32_t kSpecials = 32;
constexpr uint16_t kSpecial[kSpecials] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

WideChar WideFromAnsi(uint8_t byte) {
  const uint32_t special = byte - kFirstSpecial;
  return static_cast<WideChar>(special < kSpecials ? kSpecial[special] : byte);
}

bool AnsiFromWide(WideChar wide, uint8_t* byte) {
  if (wide < kFirstSpecial || (wide >= kFirstSpecial + kSpecials && wide <= 0xFF)) {
    *byte = static_cast<uint8_t>(wide);
    return true;
  }
  for (uint32_t i = 0; i < kSpecials; i++) {
    if (kSpecial[i] != wide) continue;
    *byte = static_cast<uint8_t>(kFirstSpecial + i);
    return true;
  }
  return false;
}

// The units of `text` that a call asks for: `count`, or all including the terminator when it is negative.
template <typename Unit>
int32_t UnitCount(const Unit* text, int32_t count) {
  if (count >= 0) return count;
  int32_t length = 0;
  while (text[length] != 0) length++;
  return length + 1;
}

// 0, or the host code that refuses the arguments which both directions share.
uint32_t ArgumentError(uint32_t codePage, uint32_t flags, const void* text, int32_t count, const void* out,
                       int32_t outSize) {
  if (codePage != coredll::kAnsiCodePage) return coredll::kHostInvalidParameter;
  if (text == nullptr || count == 0) return coredll::kHostInvalidParameter;
  if (outSize < 0 || (out == nullptr && outSize != 0)) return coredll::kHostInvalidParameter;
  return flags == 0 ? coredll::kHostNoError : posix::kHostInvalidFlags;
}

}  // namespace

int32_t coredll::WideCharToMultiByte(uint32_t codePage, uint32_t flags, const WideChar* wide, int32_t wideCount,
                                     char* out, int32_t outSize, const char* defaultChar, int32_t* usedDefault) {
  const uint32_t error = ArgumentError(codePage, flags, wide, wideCount, out, outSize);
  if (error != kHostNoError) return posix::Fail(error);
  const int32_t count = UnitCount(wide, wideCount);
  int32_t used = 0;
  for (int32_t i = 0; i < count; i++) {
    uint8_t byte;
    if (!AnsiFromWide(wide[i], &byte)) {
      byte = static_cast<uint8_t>(defaultChar != nullptr ? *defaultChar : '?');
      used = 1;
    }
    if (outSize == 0) continue;
    if (i == outSize) return posix::Fail(kHostInsufficientBuffer);
    out[i] = static_cast<char>(byte);
  }
  if (usedDefault != nullptr) *usedDefault = used;
  return count;
}

int32_t coredll::MultiByteToWideChar(uint32_t codePage, uint32_t flags, const char* ansi, int32_t ansiCount,
                                     WideChar* out, int32_t outCount) {
  const uint32_t error = ArgumentError(codePage, flags, ansi, ansiCount, out, outCount);
  if (error != kHostNoError) return posix::Fail(error);
  const int32_t count = UnitCount(ansi, ansiCount);
  if (outCount == 0) return count;
  for (int32_t i = 0; i < count; i++) {
    if (i == outCount) return posix::Fail(kHostInsufficientBuffer);
    out[i] = WideFromAnsi(static_cast<uint8_t>(ansi[i]));
  }
  return count;
}

bool posix::Utf8FromWide(const WideChar* wide, char* out, size_t outSize) {
  size_t used = 0;
  const auto put = [&](uint32_t byte) {
    if (used < outSize) out[used] = static_cast<char>(byte);
    used++;
  };
  for (;;) {
    uint32_t character = *wide++;
    if (character >= 0xD800 && character <= 0xDFFF) {
      if (character > 0xDBFF || *wide < 0xDC00 || *wide > 0xDFFF) return false;
      character = 0x10000 + ((character - 0xD800) << 10) + (*wide++ - 0xDC00u);
    }
    if (character < 0x80) {
      put(character);
    } else if (character < 0x800) {
      put(0xC0 | character >> 6);
      put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
      put(0xE0 | character >> 12);
      put(0x80 | (character >> 6 & 0x3F));
      put(0x80 | (character & 0x3F));
    } else {
      put(0xF0 | character >> 18);
      put(0x80 | (character >> 12 & 0x3F));
      put(0x80 | (character >> 6 & 0x3F));
      put(0x80 | (character & 0x3F));
    }
    if (character == 0 || used > outSize) return used <= outSize;
  }
}

}  // namespace orba
