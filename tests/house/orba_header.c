/* Compiled once for each language the public header promises to serve, with UNICODE and without; see CMakeLists.txt. */
#include <stddef.h>

#include "orba.h"
#include "orba.h" /* twice does no harm */

#define CHECK(name, condition) typedef char check_##name[(condition) ? 1 : -1]

CHECK(u8, sizeof(OrbU8) == 1);
CHECK(u16, sizeof(OrbU16) == 2);
CHECK(u32, sizeof(OrbU32) == 4);
CHECK(i32, sizeof(OrbI32) == 4);
CHECK(wide_char, sizeof(OrbWideChar) == 2);
CHECK(time, sizeof(OrbTime) == 8);
CHECK(find_data, sizeof(OrbFindDataA) == 48);
CHECK(find_data_time, offsetof(OrbFindDataA, time) == 4);
CHECK(find_data_size, offsetof(OrbFindDataA, size) == 12);
CHECK(find_data_name, offsetof(OrbFindDataA, name) == 16);
CHECK(wide_find_data, sizeof(OrbFindDataW) == 136);
CHECK(wide_find_data_name, offsetof(OrbFindDataW, name) == 16);

#ifdef UNICODE
typedef OrbWideChar Char;
typedef OrbFindDataW FindData;
#else
typedef char Char;
typedef OrbFindDataA FindData;
#endif

/* The names without suffix reach the form that UNICODE selects: any other would not initialise these. */
typedef struct ShortNames {
  OrbBool(ORB_CALL* createFile)(const Char*, OrbU32);
  OrbHandle(ORB_CALL* openFile)(const Char*, OrbU32);
  OrbHandle(ORB_CALL* findFirstFile)(const Char*, FindData*);
  OrbBool(ORB_CALL* findNextFile)(OrbHandle, OrbFindData*);
  OrbBool(ORB_CALL* getCurrentDirectory)(Char*);
} ShortNames;

extern const ShortNames orb_short_names;
const ShortNames orb_short_names = {OrbCreateFile, OrbOpenFile, OrbFindFirstFile, OrbFindNextFile,
                                    OrbGetCurrentDirectory};
