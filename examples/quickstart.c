/* The shortest useful program: makes a container, mounts it, writes a file, reads it back, lists the directory.
 *
 *   cc quickstart.c -lorba -o quickstart && ./quickstart
 */
#include <stdio.h>

#include "orba.h"

/* Container names are 16-bit strings. On Windows that is L"quickstart.orba". */
static const OrbWideChar* Wide(const char* text) {
  static OrbWideChar wide[64];
  int i = 0;
  do {
    wide[i] = (OrbWideChar)text[i];
  } while (text[i++] != '\0');
  return wide;
}

static int Failed(const char* what) {
  printf("%s failed: 0x%08X\n", what, (unsigned)OrbGetLastError());
  return 1;
}

int main(void) {
  static const OrbWideChar volume[] = {'D', 'A', 'T', 'A', 0};
  static const char text[] = "14:05:09 21.4 C\n";
  char back[sizeof text];
  OrbFindDataA found;
  OrbHandle file, search;
  OrbU32 done;

  remove("quickstart.orba");
  if (!OrbCreateVolume(Wide("quickstart.orba"))) return Failed("formatting");
  if (!OrbMountVolume(Wide("quickstart.orba"), volume)) return Failed("mounting");
  if (!OrbCreateDirectoryA("DATA:/LOGS")) return Failed("creating a directory");
  if (!OrbCreateFileA("DATA:/LOGS/DAY1.TXT", 0)) return Failed("creating a file");

  file = OrbOpenFileA("DATA:/LOGS/DAY1.TXT", ORB_OPEN_READ | ORB_OPEN_WRITE);
  if (file == ORB_INVALID_HANDLE) return Failed("opening");
  if (!OrbWriteFile(file, text, sizeof text, &done)) return Failed("writing");
  if (OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN) == ORB_INVALID_POSITION) return Failed("seeking");
  if (!OrbReadFile(file, back, sizeof back, &done)) return Failed("reading");
  if (!OrbCloseFile(file)) return Failed("closing");
  printf("read back %u bytes: %s", (unsigned)done, back);

  search = OrbFindFirstFileA("DATA:/LOGS/*.TXT", &found);
  if (search == ORB_INVALID_HANDLE) return Failed("searching");
  do {
    printf("%-12s %6u bytes  %04u-%02u-%02u %02u:%02u:%02u UTC\n", found.name, (unsigned)found.size,
           (unsigned)found.time.year, (unsigned)found.time.month, (unsigned)found.time.day, (unsigned)found.time.hour,
           (unsigned)found.time.minute, (unsigned)found.time.second);
  } while (OrbFindNextFileA(search, &found));
  if (OrbGetLastError() != ORB_ERROR_NO_MORE_ENTRIES) return Failed("listing");
  OrbFindClose(search);

  if (!OrbUnmountVolumeA("DATA")) return Failed("unmounting");
  return 0;
}
