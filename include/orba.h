/* orba.h - the whole public face of the orba file-system library.
 *
 * The library keeps complete private file systems ("volumes": directories and files with attributes, sizes and time
 * stamps), each inside ONE container: an ordinary file of the host, or the memory file "??MEM??".
 *
 *   OrbCreateVolume   formats a new container       OrbMountVolume   opens it under a volume name
 *   Orb...File...     work on files by path/handle  OrbUnmountVolume closes it again
 *
 * Needs no other header. Compiles as C (C89 and later) and as C++ (on Windows any; elsewhere C++11 and later, for
 * char16_t).
 *
 * PATHS    "DATA:/LOGS/DAY1.TXT": volume name, ":", then names separated by "/". Without a volume part a path starts at
 *          the current directory ("/..." at the root of its volume); so does "DATA:X" while that lies on DATA, else at
 *          the root of DATA. "." and ".." work anywhere. "\" does not separate.
 *          Names are 1 to ORB_MAX_NAME characters out of A-Z a-z 0-9 !#$%&'()-^~@{}[]_. ; they are stored in upper
 *          case and compared without regard to case. Volume names follow the same rule.
 *          Runs of "/" count as one; leading "/" makes a path absolute on its volume, trailing "/" adds nothing:
 *          "A/B/" means "A/B". Only OrbCreateFile and OrbCreateDirectory refuse it, and searches read it as "all of".
 *          A path may be of any length and depth; ORB_MAX_PATH limits only the full path names that the library builds
 *          (OrbGetFullPathName, OrbGetCurrentDirectory).
 * STRINGS  Every function with a path comes as an A form (8-bit ANSI strings) and a W form (16-bit characters); the
 *          name without suffix is the W form where UNICODE is defined, else the A form. The A form does the work, the W
 *          form converts and calls it; a string that does not convert (ORB_ERROR_OUT_OF_MEMORY,
 *          ORB_ERROR_INVALID_ARGUMENT) makes every W form return 0 and change nothing. Results are converted last:
 *          where the A form fails, the wide buffer stays as it was. The two names that OrbMountVolume takes, and
 *          containers' names everywhere, are always wide.
 * CONTAINER  A container's name is a host file name: on Windows and Windows CE it goes to CreateFileW as it is, on
 * NAMES      Linux as UTF-8, with "/" between folders and 4095 bytes at most. Relative names start at the process's
 *            current folder, on Windows CE at the device's root. None of the rules for paths above apply to it.
 * RESULTS  OrbBool is 1 for success, 0 for failure. Each comment below says which value means failure. The reason is
 *          read with OrbGetLastError. Every call but that one and _OrbSetError clears it first (a W form after its
 *          strings were converted), so after a success it is 0.
 * POINTERS A null pointer where a string, a record, a result or a buffer (count above 0) is required fails with
 *          ORB_ERROR_INVALID_ARGUMENT and changes nothing. A null "done" counts as required; one that is given is set
 *          to 0 even so.
 * THREADS  None are started and no locks are taken: error value, current directory and handle tables are shared by the
 *          whole process, and callers must serialise all calls.
 * SAFETY   A call that changes a volume first marks the container "update in progress" and clears the mark when it
 *          ends. A container left with the mark set (power lost in between) refuses to mount: ORB_ERROR_NOT_CLEAN. The
 *          library does not repair. An unattended device sets such a container aside under another host name
 *          and goes on with a new one (examples/quickstart.c does); "orba check" and "orba repair" make the old one
 *          mountable again at a desk. The two cases in which a stop leaves no mark are in docs/architecture.md.
 *          After a failed metadata write, other than for a full host disk, and after any failed write of the mark, the
 *          mounted volume refuses all further writes with ORB_ERROR_WRITE; reading goes on. Where clearing the mark
 *          fails, the call returns its failure value although its work was done.
 * DURABLE  The library holds nothing back: what a call writes has gone to the host when it returns, so that the end of
 *          the process loses nothing of a container in a file, unmounted or not. Against a loss of power,
 *          OrbFlushFileBuffers and OrbCloseFile make durable all that was written to that file's volume so far, by any
 *          call. No other call does: after creating, deleting, renaming, moving or copying, close or flush any file of
 *          the volume (one opened with mode 0 will do). Formatting and unmounting flush too little to rely on.
 *          Between two such points the order of writes that SAFETY rests on holds against a loss of power only as far
 *          as the host keeps it. A host that caches writes may bring the cleared mark to the disk before the rest.
 * COMMON   Errors any call on a mounted volume can meet, not repeated below: the container's own ORB_ERROR_READ,
 * ERRORS   ORB_ERROR_WRITE, ORB_ERROR_ACCESS_DENIED, ORB_ERROR_WRITE_PROTECTED, ORB_ERROR_NOT_READY,
 *          ORB_ERROR_ABORTED, ORB_ERROR_DISK_FULL, and for a damaged container ORB_ERROR_DAMAGED_VOLUME and
 *          ORB_ERROR_DAMAGED_RECORD; ORB_ERROR_OUT_OF_MEMORY.
 *          Any call with a path: ORB_ERROR_PATH_NOT_FOUND (empty path, missing directory on the way, a file used as a
 *          directory), ORB_ERROR_INVALID_NAME (volume part illegal or too long, a name above ORB_MAX_NAME),
 *          ORB_ERROR_NOT_MOUNTED (no volume of that name, or no volume mounted at all).
 */
#ifndef ORBA_H
#define ORBA_H

#if defined(_WIN32) && !defined(__cplusplus)
#include <stddef.h> /* wchar_t, a keyword only in C++ */
#endif

/* ---- How the library is linked ------------------------------------------------------------------------------------
 * ORBA_BUILD  defined while the library itself is compiled; ORBA_STATIC  define it to link liborba.a. */
#if defined(_WIN32) && defined(ORBA_BUILD)
#define ORB_EXPORT __declspec(dllexport)
#elif defined(_WIN32) && !defined(ORBA_STATIC)
#define ORB_EXPORT __declspec(dllimport)
#elif defined(__GNUC__) && !defined(_WIN32)
#define ORB_EXPORT __attribute__((visibility("default")))
#else
#define ORB_EXPORT
#endif

/* The platform's standard calling convention for exported functions; only 32-bit x86 Windows has one to name. */
#if defined(_WIN32) && (defined(_M_IX86) || defined(__i386__))
#define ORB_CALL __stdcall
#else
#define ORB_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------------------*/

typedef unsigned char OrbU8;
typedef unsigned short OrbU16;
typedef unsigned int OrbU32; /* 32 bits on every platform the library runs on */
typedef int OrbI32;

typedef OrbI32 OrbBool;   /* 1 success, 0 failure */
typedef OrbU32 OrbHandle; /* 0x10000 | slot for a file, 0x20000 | slot for a search; or ORB_INVALID_HANDLE */

/* Wide characters are 16 bits everywhere: L"card.orb" on Windows, u"card.orb" elsewhere (C11, C++11). */
#if defined(_WIN32)
typedef wchar_t OrbWideChar;
#elif defined(__cplusplus)
typedef char16_t OrbWideChar;
#else
typedef OrbU16 OrbWideChar;
#endif

/* A point in time, UTC. Containers hold the same bytes, little-endian. */
typedef struct OrbTime {
  OrbU16 year;    /* in full, four digits */
  OrbU8 month;    /* 1 to 12 */
  OrbU8 day;      /* 1 to 31 */
  OrbU8 hour;     /* 0 to 23 */
  OrbU8 minute;   /* 0 to 59 */
  OrbU8 second;   /* 0 to 59 */
  OrbU8 reserved; /* not part of the stamp: OrbGetTime leaves it alone */
} OrbTime;

/* What a search returns, byte for byte: attributes at 0, time at 4, size at 12, name at 16. */
typedef struct OrbFindDataA {
  OrbU32 attributes; /* ORB_ATTRIBUTE_ bits */
  OrbTime time;      /* last change, UTC */
  OrbU32 size;       /* bytes; of a directory 32 for each entry, "." and ".." included */
  char name[32];     /* upper case, 1 to 29 characters and a NUL; also "." and ".." */
} OrbFindDataA;

typedef struct OrbFindDataW {
  OrbU32 attributes;
  OrbTime time;
  OrbU32 size;
  OrbWideChar name[60]; /* as above; what lies behind the NUL means nothing */
} OrbFindDataW;

/* ---- Limits -------------------------------------------------------------------------------------------------------*/

#define ORB_MAX_NAME 29          /* characters of a file, directory or volume name */
#define ORB_MAX_PATH 127         /* characters of a full path name */
#define ORB_PATH_BUFFER 128      /* bytes that OrbGetFullPathNameA and OrbGetCurrentDirectoryA need */
#define ORB_WIDE_PATH_BUFFER 256 /* wide characters that their W forms need */
#define ORB_MAX_OPEN_FILES 128   /* open files at a time, all volumes together */
#define ORB_MAX_SEARCHES 64      /* open searches at a time, one for each directory */
#define ORB_MAX_FILE_SIZE 0x7FFFFFFFu
#define ORB_MAX_CONTAINER_SIZE 0x7FFFFFFFu

#define ORB_INVALID_HANDLE 0xFFFFFFFFu
#define ORB_INVALID_POSITION 0xFFFFFFFFu
#define ORB_INVALID_SIZE 0xFFFFFFFFu
#define ORB_INVALID_ATTRIBUTES 0xFFFFu /* 16 bits, not 32 */

/* ---- Attributes, open modes, seek origins -------------------------------------------------------------------------*/

#define ORB_ATTRIBUTE_READ_ONLY 0x0001u /* opening for writing is refused, and nothing else */
#define ORB_ATTRIBUTE_USER 0x0002u      /* the caller's own; the library keeps it and never tests it */
#define ORB_ATTRIBUTE_SYSTEM 0x0004u    /* on root directories only, set by formatting */
#define ORB_ATTRIBUTE_DIRECTORY 0x0008u /* fixed when the object is created */

#define ORB_OPEN_READ 1u
#define ORB_OPEN_WRITE 2u

#define ORB_SEEK_BEGIN 0u
#define ORB_SEEK_CURRENT 1u
#define ORB_SEEK_END 2u

/* ---- Result codes (OrbGetLastError) ---------------------------------------------------------------------------------
 * 0x3....... marks a failure, 0x1....... an ordinary end. 0x30000000, 0x3000001F and 0x30000024 are never used. */
#define ORB_ERROR_NONE 0x00000000u
#define ORB_ERROR_NO_MORE_ENTRIES 0x10000001u     /* a search found no (further) match; not a fault */
#define ORB_ERROR_CANNOT_CREATE 0x30000001u       /* the host would not create the container */
#define ORB_ERROR_CANNOT_OPEN 0x30000002u         /* the host would not open the container */
#define ORB_ERROR_WRITE 0x30000003u               /* write failed or fell short, or the volume refuses writes since */
#define ORB_ERROR_READ 0x30000004u                /* read, seek or size query failed */
#define ORB_ERROR_WRITE_PROTECTED 0x30000005u     /* the medium is write-protected */
#define ORB_ERROR_NOT_READY 0x30000006u           /* the device is not ready */
#define ORB_ERROR_ABORTED 0x30000007u             /* the host aborted the request; an internal node is gone */
#define ORB_ERROR_CONTAINER_IN_USE 0x30000008u    /* the container is open elsewhere */
#define ORB_ERROR_WRONG_VERSION 0x30000009u       /* the container's format version is not "1.0 " */
#define ORB_ERROR_DAMAGED_VOLUME 0x3000000Au      /* not a container, inconsistent header, or it ends too early */
#define ORB_ERROR_DAMAGED_RECORD 0x3000000Bu      /* a record, chain or block map in it fails its check */
#define ORB_ERROR_NOT_CLEAN 0x3000000Cu           /* an update was interrupted: see SAFETY */
#define ORB_ERROR_ALREADY_MOUNTED 0x3000000Du     /* a volume of this name is mounted */
#define ORB_ERROR_INVALID_ARGUMENT 0x3000000Eu    /* block size, bitmap size, attributes, mode, origin, null pointer */
#define ORB_ERROR_INVALID_NAME 0x3000000Fu        /* a name breaks the name rule */
#define ORB_ERROR_PATH_TOO_LONG 0x30000010u       /* a full path name above 127 characters or 62 levels */
#define ORB_ERROR_OUT_OF_MEMORY 0x30000011u       /* allocation failed */
#define ORB_ERROR_NOT_MOUNTED 0x30000012u         /* no volume of this name, or none at all, is mounted */
#define ORB_ERROR_FILE_NOT_FOUND 0x30000013u      /* the last name of the path is missing; no such container */
#define ORB_ERROR_PATH_NOT_FOUND 0x30000014u      /* a directory of the path is missing or is a file */
#define ORB_ERROR_FILE_EXISTS 0x30000015u         /* the name is taken */
#define ORB_ERROR_ALREADY_OPEN 0x30000016u        /* this file is open, or this directory is being searched */
#define ORB_ERROR_NO_FREE_NODE 0x30000017u        /* the volume holds as many files and directories as it can */
#define ORB_ERROR_TOO_MANY_OPEN_FILES 0x30000018u /* all 128 slots are taken; the host is out of descriptors */
#define ORB_ERROR_ACCESS_DENIED 0x30000019u       /* the host refuses; the open mode or read-only flag forbids it */
#define ORB_ERROR_DISK_FULL 0x3000001Au           /* the host's disk is full; from deleting or moving, see there */
#define ORB_ERROR_VOLUME_FULL 0x3000001Bu         /* the container (2 GiB) or the file's block map cannot grow */
#define ORB_ERROR_INVALID_HANDLE 0x3000001Cu      /* not an open file or search */
#define ORB_ERROR_WRONG_KIND 0x3000001Du          /* a directory where a file is required, or the other way round */
#define ORB_ERROR_NOT_A_DIRECTORY 0x3000001Eu     /* a search of "F/" where F is a file */
#define ORB_ERROR_CURRENT_DIRECTORY 0x30000020u   /* it is the current directory */
#define ORB_ERROR_NOT_EMPTY 0x30000021u           /* the directory still holds names */
#define ORB_ERROR_IN_USE 0x30000022u              /* it is open, searched, or otherwise held */
#define ORB_ERROR_MOVE_NOT_ALLOWED 0x30000023u    /* a move to another volume */
#define ORB_ERROR_TOO_MANY_SEARCHES 0x30000025u   /* all 64 search slots are taken */
#define ORB_ERROR_SEEK 0x30000026u                /* a position before the start or past the end of the file */
#define ORB_ERROR_NO_MEMFILE 0x30000027u          /* memfile.dll is not loaded (format "??MEM??" first) */
#define ORB_ERROR_MEMFILE_NOT_FOUND 0x30000028u   /* memfile.dll could not be loaded */

/* ---- Volumes ------------------------------------------------------------------------------------------------------
 * A container is formatted once, then mounted under a name of the caller's choosing. Any number of volumes can be
 * mounted at a time, each from its own container, as far as memory and the host's open files allow.
 *
 * Mounting opens a host file exclusively: a second mount fails with CONTAINER_IN_USE. (Linux: a lock, which stops other
 * users of this library, not programs that ask for none.) The memory file has no such guard. There is one for each
 * process; two volumes mounted from it destroy each other's files, and the first to be unmounted discards it. */

/* Formats a new container with a node bitmap of 1024 bytes (8192 files and directories) and blocks of 4096 bytes:
 * exactly OrbCreateVolumeEx(container, 1024, 4096). */
ORB_EXPORT OrbBool ORB_CALL OrbCreateVolume(const OrbWideChar* container);

/* Formats a new container. Does not mount it.
 *   container     host file name, or "??MEM??" (exactly so) for the memory file. The file must not exist yet; the
 *                 memory file is emptied if it does.
 *   bitmapBytes   size of the node bitmap; the volume holds 8 x bitmapBytes files and directories, the root included,
 *                 and at most 224 x blockSize / 64. 0 to 896 (blockSize 1024), 1792, 3584 or 7168 (8192).
 *   blockSize     1024, 2048, 4096 or 8192 bytes.
 *   fails with 0  INVALID_ARGUMENT: a bad size, nothing was created. FILE_EXISTS, PATH_NOT_FOUND, INVALID_NAME,
 *                 CANNOT_CREATE and the like: nothing was created. MEMFILE_NOT_FOUND, NO_MEMFILE; a memory file that
 *                 cannot be made fails without a code. The new file is closed and opened again: a failure there
 *                 (ACCESS_DENIED, CONTAINER_IN_USE, ...) leaves it empty and closed. Any later failure (DISK_FULL,
 *                 WRITE, OUT_OF_MEMORY) leaves the container incomplete on disk and open until the process ends; it
 *                 will not mount. Where only the last close failed, the container is complete. */
ORB_EXPORT OrbBool ORB_CALL OrbCreateVolumeEx(const OrbWideChar* container, OrbU32 bitmapBytes, OrbU32 blockSize);

/* Mounts a container. Writes nothing to it. The root of the first volume mounted becomes the current directory.
 *   container     as in OrbCreateVolumeEx
 *   volume        the name the volume gets: 1 to ORB_MAX_NAME characters, stored in upper case
 *   fails with 0  INVALID_NAME, ALREADY_MOUNTED (volume name); FILE_NOT_FOUND, PATH_NOT_FOUND, INVALID_NAME,
 *                 CONTAINER_IN_USE, ACCESS_DENIED, WRITE_PROTECTED, NOT_READY, TOO_MANY_OPEN_FILES, CANNOT_OPEN
 *                 (container); READ, DAMAGED_VOLUME, WRONG_VERSION, INVALID_ARGUMENT (block or bitmap size in the
 *                 header), NOT_CLEAN, DAMAGED_RECORD (contents); OUT_OF_MEMORY; NO_MEMFILE ("??MEM??" before it was
 *                 formatted). Nothing is left behind. */
ORB_EXPORT OrbBool ORB_CALL OrbMountVolume(const OrbWideChar* container, const OrbWideChar* volume);

/* Tells the sizes a mounted volume was formatted with; either pointer may be null. Reads nothing from the container.
 *   fails with 0  NOT_MOUNTED; the results are untouched. */
ORB_EXPORT OrbBool ORB_CALL OrbGetVolumeInfoA(const char* volume, OrbU32* bitmapBytes, OrbU32* blockSize);
ORB_EXPORT OrbBool ORB_CALL OrbGetVolumeInfoW(const OrbWideChar* volume, OrbU32* bitmapBytes, OrbU32* blockSize);

/* Unmounts a volume: closes its open files, closes the container, or discards the memory file. The current directory,
 * if it lay there, moves to the root of the volume mounted before, else of the one mounted after, else to none.
 * A process may end without unmounting: each call leaves its container whole.
 *   fails with 0  NOT_MOUNTED: nothing changed. Otherwise the volume IS unmounted, but something did not close cleanly:
 *                 an open search of the volume (INVALID_HANDLE; close it with OrbFindClose), a failed flush or close of
 *                 the container, or a memory file that is gone already (NO_MEMFILE). */
ORB_EXPORT OrbBool ORB_CALL OrbUnmountVolumeA(const char* volume);
ORB_EXPORT OrbBool ORB_CALL OrbUnmountVolumeW(const OrbWideChar* volume);

/* ---- Files and directories by name --------------------------------------------------------------------------------
 * The calls that change a volume clear its update mark at the end, whether or not they succeeded. */

/* Creates an empty file, or a directory. Does not open it.
 *   attributes    low 16 bits: ORB_ATTRIBUTE_READ_ONLY and _USER in any mix, or _DIRECTORY (which then stands alone).
 *   fails with 0  INVALID_NAME (also a path that ends at a root or in "/"), FILE_EXISTS, INVALID_ARGUMENT (other
 *                 bits), NO_FREE_NODE, DISK_FULL, VOLUME_FULL. For lack of space or memory the new object is undone
 *                 again; any other late failure leaves a node that no name leads to. After DISK_FULL on a host that can
 *                 be full under a write over old bytes, the name may stay, leading nowhere, until another is created in
 *                 the directory. */
ORB_EXPORT OrbBool ORB_CALL OrbCreateFileA(const char* path, OrbU32 attributes);
ORB_EXPORT OrbBool ORB_CALL OrbCreateFileW(const OrbWideChar* path, OrbU32 attributes);

/* Exactly OrbCreateFile(path, ORB_ATTRIBUTE_DIRECTORY). */
ORB_EXPORT OrbBool ORB_CALL OrbCreateDirectoryA(const char* path);
ORB_EXPORT OrbBool ORB_CALL OrbCreateDirectoryW(const OrbWideChar* path);

/* Copies a file: data, attributes (a copy of a read-only file is read-only) and time stamp. Source and target may lie
 * on different volumes. Never overwrites.
 *   fails with 0  FILE_NOT_FOUND (source), WRONG_KIND (source is a directory), INVALID_NAME, FILE_EXISTS (target),
 *                 INVALID_ARGUMENT (the source's attributes are damaged), NO_FREE_NODE, DISK_FULL, VOLUME_FULL. For
 *                 lack of space or memory the copy is undone again; after any other failure its blocks stay in use
 *                 under no name. When the target's directory does not resolve, the source counts as in use until its
 *                 volume is unmounted. */
ORB_EXPORT OrbBool ORB_CALL OrbCopyFileA(const char* source, const char* target);
ORB_EXPORT OrbBool ORB_CALL OrbCopyFileW(const OrbWideChar* source, const OrbWideChar* target);

/* Moves a file or directory to another directory of the same volume, under the same or another name; within one
 * directory it is a rename, with the rules of OrbRenameFile. Never overwrites. Data does not move, time stamps of the
 * object stay. Read-only files move like others.
 *   fails with 0  FILE_NOT_FOUND (source), INVALID_NAME, FILE_EXISTS (target), MOVE_NOT_ALLOWED (other volume),
 *                 CURRENT_DIRECTORY, IN_USE (open, searched or held; or a directory into itself or below), DISK_FULL,
 *                 VOLUME_FULL (no block for the target's directory). A root is FILE_NOT_FOUND. A failure after the new
 *                 name went in leaves the object under both names; where it is DISK_FULL, see OrbDeleteFile. When the
 *                 target's directory does not resolve, the source's directory counts as in use until its volume is
 *                 unmounted. */
ORB_EXPORT OrbBool ORB_CALL OrbMoveFileA(const char* source, const char* target);
ORB_EXPORT OrbBool ORB_CALL OrbMoveFileW(const OrbWideChar* source, const OrbWideChar* target);

/* Gives a file or directory another name in its directory. No time stamp changes. Open files, read-only files, searched
 * directories and the current directory can all be renamed.
 *   newName       a bare name, not a path.
 *   fails with 0  FILE_NOT_FOUND (also for a root), INVALID_NAME, FILE_EXISTS (also the same name in other letter
 *                 case). The old name stays; after a failed write of the directory, what the host made of it. */
ORB_EXPORT OrbBool ORB_CALL OrbRenameFileA(const char* path, const char* newName);
ORB_EXPORT OrbBool ORB_CALL OrbRenameFileW(const OrbWideChar* path, const OrbWideChar* newName);

/* Deletes a file, read-only or not, or an empty directory, and frees its space. Two kinds of blocks stay in use until
 * "orba repair" frees them: the block-map blocks of a file that was cut (see OrbSetFileSize), and one block of a
 * directory that ever held more than 190 names (blocks of 1024 bytes; 766 in blocks of 4096).
 *   fails with 0  FILE_NOT_FOUND (also for a root), INVALID_NAME, IN_USE (open, searched or held), CURRENT_DIRECTORY,
 *                 NOT_EMPTY: nothing changed. A failed write of the directory leaves it as it was, or the last name of
 *                 it twice. A later failure leaves the name gone and the object's space not, or not wholly, freed.
 *                 DISK_FULL, which needs a host that can be full under a write over old bytes (compressing, or flash
 *                 that writes elsewhere): the container is not marked but may be inconsistent, and using it on can hide
 *                 names and share blocks. Unmount it and treat it as one that is NOT_CLEAN: see SAFETY. */
ORB_EXPORT OrbBool ORB_CALL OrbDeleteFileA(const char* path);
ORB_EXPORT OrbBool ORB_CALL OrbDeleteFileW(const OrbWideChar* path);

/* Reads the attribute word of a file or directory: ORB_ATTRIBUTE_ bits.
 *   fails with    ORB_INVALID_ATTRIBUTES (0xFFFF); the W form with 0 where its path does not convert.
 *                 FILE_NOT_FOUND. */
ORB_EXPORT OrbU32 ORB_CALL OrbGetFileAttributesA(const char* path);
ORB_EXPORT OrbU32 ORB_CALL OrbGetFileAttributesW(const OrbWideChar* path);

/* Replaces the attribute word of a file. The time stamp does not change.
 *   attributes    ORB_ATTRIBUTE_READ_ONLY and _USER in any mix, or 0.
 *   fails with 0  INVALID_ARGUMENT (other bits; the path is not looked at), FILE_NOT_FOUND, WRONG_KIND (a directory),
 *                 IN_USE (the file is open and the value would change): nothing changed. */
ORB_EXPORT OrbBool ORB_CALL OrbSetFileAttributesA(const char* path, OrbI32 attributes);
ORB_EXPORT OrbBool ORB_CALL OrbSetFileAttributesW(const OrbWideChar* path, OrbI32 attributes);

/* ---- Open files ---------------------------------------------------------------------------------------------------*/

/* Opens an existing file at position 0. A file can be open once at a time.
 *   mode          low 16 bits: ORB_OPEN_READ, ORB_OPEN_WRITE, both, or 0 (position and size only).
 *   result        a file handle
 *   fails with    ORB_INVALID_HANDLE; the W form with 0 where its path does not convert. FILE_NOT_FOUND, WRONG_KIND (a
 *                 directory), INVALID_ARGUMENT (other mode bits), ACCESS_DENIED (read-only file opened for writing),
 *                 ALREADY_OPEN, TOO_MANY_OPEN_FILES, IN_USE (held by something else). */
ORB_EXPORT OrbHandle ORB_CALL OrbOpenFileA(const char* path, OrbU32 mode);
ORB_EXPORT OrbHandle ORB_CALL OrbOpenFileW(const OrbWideChar* path, OrbU32 mode);

/* Moves the position, which stays between 0 and the file's size.
 *   distance      bytes, signed, from the origin: ORB_SEEK_BEGIN, ORB_SEEK_CURRENT or ORB_SEEK_END
 *   result        the new position
 *   fails with    ORB_INVALID_POSITION: SEEK (before the start or past the end), INVALID_ARGUMENT (origin),
 *                 INVALID_HANDLE. The position is unchanged. */
ORB_EXPORT OrbU32 ORB_CALL OrbSetFilePointer(OrbHandle file, OrbI32 distance, OrbU32 origin);

/* Reads from the position on and moves it. At the end of the file it succeeds with 0 bytes.
 *   count         bytes wanted
 *   done          bytes read, set to 0 first; on failure what was read before it
 *   fails with 0  INVALID_HANDLE, ACCESS_DENIED (not opened for reading). */
ORB_EXPORT OrbBool ORB_CALL OrbReadFile(OrbHandle file, void* buffer, OrbU32 count, OrbU32* done);

/* Writes at the position and moves it, extending the file as needed. The time stamp changes when the file grows (and on
 * any write that leaves the file exactly one block long).
 *   count         bytes to write
 *   done          bytes written, set to 0 first; on failure what was written before it, which the file keeps
 *   fails with 0  INVALID_HANDLE, ACCESS_DENIED (not opened for writing), DISK_FULL, VOLUME_FULL. */
ORB_EXPORT OrbBool ORB_CALL OrbWriteFile(OrbHandle file, const void* buffer, OrbU32 count, OrbU32* done);

/* Makes all that was written to the file's volume durable on the host, by this handle and every call before: see
 * DURABLE.
 *   fails with 0  INVALID_HANDLE, or the host's reason. */
ORB_EXPORT OrbBool ORB_CALL OrbFlushFileBuffers(OrbHandle file);

/* Cuts or extends the file to a size of 0 to ORB_MAX_FILE_SIZE bytes. New bytes are zero and take up space. A position
 * past the new end moves to it.
 * A file that is cut keeps its block-map blocks for the next growth. Deleting it frees them only while it has six
 * blocks or more; with fewer it leaves them in use under no name: 230 blocks of 1024 bytes where 60,000,000 bytes were
 * cut to 0. Delete such a file uncut, or extend it to six blocks before.
 *   fails with 0  INVALID_HANDLE, INVALID_ARGUMENT (size), ACCESS_DENIED (not opened for writing), DISK_FULL,
 *                 VOLUME_FULL. The file keeps the size it had reached. */
ORB_EXPORT OrbBool ORB_CALL OrbSetFileSize(OrbHandle file, OrbU32 size);

/* The file's size in bytes.  fails with ORB_INVALID_SIZE: INVALID_HANDLE. */
ORB_EXPORT OrbU32 ORB_CALL OrbGetFileSize(OrbHandle file);

/* Flushes, as OrbFlushFileBuffers does, and closes. The handle is invalid afterwards even when the flush failed.
 *   fails with 0  INVALID_HANDLE, or the flush's reason. */
ORB_EXPORT OrbBool ORB_CALL OrbCloseFile(OrbHandle file);

/* ---- Current directory and full path names ------------------------------------------------------------------------*/

/* The current directory as a full path name, such as "DATA:/LOGS". The buffer holds ORB_PATH_BUFFER bytes (A) or
 * ORB_WIDE_PATH_BUFFER wide characters (W).
 *   fails with 0  NOT_MOUNTED, PATH_TOO_LONG. The A form's buffer then holds an empty string. */
ORB_EXPORT OrbBool ORB_CALL OrbGetCurrentDirectoryA(char* buffer);
ORB_EXPORT OrbBool ORB_CALL OrbGetCurrentDirectoryW(OrbWideChar* buffer);

/* Makes a directory the current one.
 *   fails with 0  PATH_NOT_FOUND, WRONG_KIND (a file): the current directory stays. */
ORB_EXPORT OrbBool ORB_CALL OrbSetCurrentDirectoryA(const char* path);
ORB_EXPORT OrbBool ORB_CALL OrbSetCurrentDirectoryW(const OrbWideChar* path);

/* Turns any path into its full form. The last name need not exist; it comes in upper case. Output first, then the path.
 *   fails with 0  PATH_TOO_LONG (above ORB_MAX_PATH characters or 62 levels). The A form's output is then empty. */
ORB_EXPORT OrbBool ORB_CALL OrbGetFullPathNameA(char* output, const char* path);
ORB_EXPORT OrbBool ORB_CALL OrbGetFullPathNameW(OrbWideChar* output, const OrbWideChar* path);

/* ---- Searches -----------------------------------------------------------------------------------------------------
 * A search goes through a directory's entries in their order: ".", "..", then names in the order they were added, but
 * for those that filled a gap. (Deleting a name, or moving it out, brings the directory's last entry into its place.)
 * There is one search at a time for each directory; until it is closed the directory cannot be deleted or moved.
 *
 * Collect the names, close the search, then change the directory. A search sees changes at once: deleting each name as
 * it is found leaves every second one, for the last entry moves to where the search has been; creating a matching name
 * for each that is found never ends, for new names go to the end. Renaming during a search is safe: names stay in their
 * places. */

/* Starts a search of one directory and returns its first match.
 *   pattern       a path whose last part may hold "*" (any characters, up to the first one that matches what follows
 *                 the star: "*.TXT" finds A.TXT, not A.B.TXT) and "?" (exactly one character); at most 29 characters.
 *                 "*" finds every name, "*.*" only those with a dot; both find "." and "..". A path that ends in "/"
 *                 lists all of that directory.
 *   result        a search handle; close it with OrbFindClose
 *   fails with    ORB_INVALID_HANDLE; the W form with 0 where its path does not convert. NO_MORE_ENTRIES (no match),
 *                 ALREADY_OPEN (this directory is being searched), TOO_MANY_SEARCHES; where F is a file,
 *                 NOT_A_DIRECTORY for "F/" and PATH_NOT_FOUND for any pattern in F; the W form INVALID_ARGUMENT where
 *                 the name found does not widen. Nothing stays open. */
ORB_EXPORT OrbHandle ORB_CALL OrbFindFirstFileA(const char* pattern, OrbFindDataA* found);
ORB_EXPORT OrbHandle ORB_CALL OrbFindFirstFileW(const OrbWideChar* pattern, OrbFindDataW* found);

/* The next match.
 *   fails with 0  NO_MORE_ENTRIES; INVALID_HANDLE (also after the volume was unmounted); the W form INVALID_ARGUMENT
 *                 where the name found does not widen, with the other fields filled in. The search stays open; an entry
 *                 whose node cannot be read has been passed. */
ORB_EXPORT OrbBool ORB_CALL OrbFindNextFileA(OrbHandle search, OrbFindDataA* found);
ORB_EXPORT OrbBool ORB_CALL OrbFindNextFileW(OrbHandle search, OrbFindDataW* found);

/* Ends a search.  fails with 0: INVALID_HANDLE. */
ORB_EXPORT OrbBool ORB_CALL OrbFindClose(OrbHandle search);

/* ---- Errors, time, byte order -------------------------------------------------------------------------------------*/

/* The code of the last failure inside the last call, 0 after a success. Does not clear it. */
ORB_EXPORT OrbU32 ORB_CALL OrbGetLastError(void);

/* Sets the code, any value, and nothing else. The leading underscore, and the spelling of the next one, are the names
 * callers link to. */
ORB_EXPORT void ORB_CALL _OrbSetError(OrbU32 code); /* NOLINT(*-reserved-identifier) */

/* Sets the code to 0. */
ORB_EXPORT void ORB_CALL _OrbCrearError(void); /* NOLINT(*-reserved-identifier) */

/* Turns a little-endian field of n bytes into the host's byte order, in place. On a little-endian host nothing
 * changes. */
ORB_EXPORT void ORB_CALL OrbConvertEndian(void* bytes, OrbU32 n);

/* Fills the first 7 bytes with the current UTC time. */
ORB_EXPORT void ORB_CALL OrbGetTime(OrbTime* now);

/* ---- Statistics ---------------------------------------------------------------------------------------------------
 * Reads, writes and seeks on host containers (not on the memory file), successful or not, and the milliseconds spent in
 * them. They start at 0, wrap modulo 2^32 and are never reset by the library; callers may write to them. */
ORB_EXPORT extern OrbU32 g_dwReadCount;
ORB_EXPORT extern OrbU32 g_dwReadTime;
ORB_EXPORT extern OrbU32 g_dwWriteCount;
ORB_EXPORT extern OrbU32 g_dwWriteTime;
ORB_EXPORT extern OrbU32 g_dwSeekCount;
ORB_EXPORT extern OrbU32 g_dwSeekTime;

#ifdef __cplusplus
}
#endif

/* ---- The names without suffix -------------------------------------------------------------------------------------
 * Define ORB_NO_SHORT_NAMES to do without these macros. */

#ifndef ORB_NO_SHORT_NAMES

#ifdef UNICODE
#define ORB_NAME(name) name##W
#else
#define ORB_NAME(name) name##A
#endif

#define OrbFindData ORB_NAME(OrbFindData)
#define OrbGetVolumeInfo ORB_NAME(OrbGetVolumeInfo)
#define OrbUnmountVolume ORB_NAME(OrbUnmountVolume)
#define OrbCreateFile ORB_NAME(OrbCreateFile)
#define OrbCreateDirectory ORB_NAME(OrbCreateDirectory)
#define OrbCopyFile ORB_NAME(OrbCopyFile)
#define OrbMoveFile ORB_NAME(OrbMoveFile)
#define OrbRenameFile ORB_NAME(OrbRenameFile)
#define OrbDeleteFile ORB_NAME(OrbDeleteFile)
#define OrbGetFileAttributes ORB_NAME(OrbGetFileAttributes)
#define OrbSetFileAttributes ORB_NAME(OrbSetFileAttributes)
#define OrbOpenFile ORB_NAME(OrbOpenFile)
#define OrbGetCurrentDirectory ORB_NAME(OrbGetCurrentDirectory)
#define OrbSetCurrentDirectory ORB_NAME(OrbSetCurrentDirectory)
#define OrbGetFullPathName ORB_NAME(OrbGetFullPathName)
#define OrbFindFirstFile ORB_NAME(OrbFindFirstFile)
#define OrbFindNextFile ORB_NAME(OrbFindNextFile)

#endif /* ORB_NO_SHORT_NAMES */

#endif /* ORBA_H */
