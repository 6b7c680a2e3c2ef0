#include "base/error.h"

namespace orba {

namespace {
uint32_t g_dwLastError;
}

uint32_t GetError() { return g_dwLastError; }

void SetError(uint32_t code) { g_dwLastError = code; }

void ClearError() { g_dwLastError = ORB_ERROR_NONE; }

void SetFailure(uint32_t codeWithoutClass) { g_dwLastError = codeWithoutClass ^ kFailureClass; }

void SetFailureIfClear(uint32_t codeWithoutClass) {
  if (g_dwLastError == ORB_ERROR_NONE) SetFailure(codeWithoutClass);
}

bool IsOutOfSpace() {
  return g_dwLastError == ORB_ERROR_DISK_FULL || g_dwLastError == ORB_ERROR_VOLUME_FULL ||
         g_dwLastError == ORB_ERROR_OUT_OF_MEMORY;
}

}  // namespace orba
