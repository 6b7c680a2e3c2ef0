/* Formats the memory file: works only where the library finds libmemfile beside itself. */
#include <orba.h>
#include <stdio.h>

int main(void) {
  static const OrbWideChar container[] = {'?', '?', 'M', 'E', 'M', '?', '?', 0};
  static const OrbWideChar volume[] = {'M', 0};
  if (!OrbCreateVolume(container) || !OrbMountVolume(container, volume) || !OrbUnmountVolumeW(volume)) {
    printf("failed: 0x%08X\n", OrbGetLastError());
    return 1;
  }
  return 0;
}
