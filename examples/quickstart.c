/* A small logger for an unattended device. It mounts its container, or makes it on the first start; deletes the
 * oldest log, appends a line to the newest, reads it back and lists them. A container that power loss or a full disk
 * left unsound is set aside for the desk ("orba repair" makes it mountable again), and a new one is begun.
 *
 *   cc quickstart.c -lorba -o quickstart && ./quickstart
 */
#include <stdio.h>

#include "orba.h"

static const char kContainer[] = "quickstart.orba";
static const OrbWideChar kVolume[] = {'D', 'A', 'T', 'A', 0};

/* Container names are 16-bit strings: L"quickstart.orba" on Windows, u"quickstart.orba" elsewhere since C11. */
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

static int Exists(const char* name) {
  FILE* file = fopen(name, "rb");
  if (file != NULL) fclose(file);
  return file != NULL;
}

/* Renames the container, which must not be mounted, to the first name that is free. (On Windows CE: MoveFile.) */
static int SetAside(void) {
  char name[] = "quickstart-aside-0.orba";
  char* digit = name + sizeof "quickstart-aside-" - 1;
  while (*digit < '9' && Exists(name)) ++*digit;
  if (Exists(name) || rename(kContainer, name) != 0) return 0; /* somebody has to fetch those first */
  printf("the container was set aside as %s\n", name);
  return 1;
}

static int Start(void) {
  if (!OrbMountVolume(Wide(kContainer), kVolume)) {
    switch (OrbGetLastError()) {
      case ORB_ERROR_FILE_NOT_FOUND: /* the first start */
        break;
      case ORB_ERROR_NOT_CLEAN:      /* power was lost during an update */
      case ORB_ERROR_DAMAGED_VOLUME: /* or while the container was being made; or it is damaged */
      case ORB_ERROR_DAMAGED_RECORD:
        if (!SetAside()) return 0;
        break;
      default: /* in use, no access, ...: nothing is wrong with the container itself */
        return 0;
    }
    if (!OrbCreateVolume(Wide(kContainer)) || !OrbMountVolume(Wide(kContainer), kVolume)) return 0;
  }
  return OrbCreateDirectoryA("DATA:/LOGS") || OrbGetLastError() == ORB_ERROR_FILE_EXISTS;
}

/* A deletion that meets a full disk may leave the container inconsistent without a mark: it must not be used on. */
static int Delete(const char* path) {
  if (OrbDeleteFileA(path) || OrbGetLastError() == ORB_ERROR_FILE_NOT_FOUND) return 1;
  if (OrbGetLastError() != ORB_ERROR_DISK_FULL) return 0;
  OrbUnmountVolumeA("DATA");
  return SetAside() && Start(); /* fails while there is no room for a new container either */
}

int main(void) {
  static const char text[] = "14:05:09 21.4 C\n";
  char back[sizeof text - 1];
  OrbFindDataA found;
  OrbHandle file, search;
  OrbU32 done;

  if (!Start()) return Failed("starting");
  if (!Delete("DATA:/LOGS/DAY0.TXT")) return Failed("deleting the oldest log");

  if (!OrbCreateFileA("DATA:/LOGS/DAY1.TXT", 0) && OrbGetLastError() != ORB_ERROR_FILE_EXISTS)
    return Failed("creating");
  file = OrbOpenFileA("DATA:/LOGS/DAY1.TXT", ORB_OPEN_READ | ORB_OPEN_WRITE);
  if (file == ORB_INVALID_HANDLE) return Failed("opening");
  if (OrbSetFilePointer(file, 0, ORB_SEEK_END) == ORB_INVALID_POSITION) return Failed("seeking");
  if (!OrbWriteFile(file, text, sizeof text - 1, &done)) return Failed("writing");
  if (OrbSetFilePointer(file, 0, ORB_SEEK_BEGIN) == ORB_INVALID_POSITION) return Failed("seeking");
  if (!OrbReadFile(file, back, sizeof back, &done)) return Failed("reading");
  if (!OrbCloseFile(file)) return Failed("closing"); /* from here on, a loss of power does not take the line away */
  printf("read back %u bytes: %.*s", (unsigned)done, (int)done, back);

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
