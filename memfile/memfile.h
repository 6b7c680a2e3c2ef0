/* memfile.h - the memory-file library: one file per process that lives in memory, with a position.
 *
 * The container "??MEM??" is this file. liborba loads the library by name when a volume is formatted there and finds
 * the entry points by theirs. Needs calloc, free and memcpy/memset of the C library, on Linux its mapping calls,
 * nothing else.
 *
 * Results are 1 for success and 0 for failure where nothing else is said. A failed call changes neither the file nor
 * its position. Every call but CreateMemFile fails while there is no memory file, and with a null pointer where one is
 * needed. Not to be called by two threads at once. Entry points use the C calling convention.
 */
#ifndef MEMFILE_H
#define MEMFILE_H

/* Windows takes the names to export from memfile.def. */
#if defined(__GNUC__) && !defined(_WIN32)
#define MEMFILE_API __attribute__((visibility("default")))
#else
#define MEMFILE_API
#endif

#define MEMFILE_INVALID 0xFFFFFFFFu  /* failure of SeekMemFile and GetMemFileSize */
#define MEMFILE_MAX_SIZE 0x7FFFFFFFu /* bytes; also the last position */

/* Origins of SeekMemFile. */
#define MEMFILE_BEGIN 0u
#define MEMFILE_CURRENT 1u
#define MEMFILE_END 2u

typedef unsigned int MemFileU32; /* 32 bits on every platform the library runs on */
typedef int MemFileI32;

#ifdef __cplusplus
extern "C" {
#endif

/* Makes an empty memory file, position 0; one that exists is emptied. Never fails. */
MEMFILE_API MemFileU32 CreateMemFile(void);

/* Reads `count` bytes at the position into `buffer` and moves the position behind them. `*done` is the number read:
 * fewer at the end of the file, 0 behind it, 0 after a failure. `buffer` may be null for a count of 0. */
MEMFILE_API MemFileU32 ReadMemFile(void* buffer, MemFileU32 count, MemFileU32* done);

/* Writes `count` bytes at the position and moves the position behind them; the file grows as needed, and bytes between
 * its old end and the position read as zeros. Writes all or nothing: `*done` is `count`, or 0 after a failure. Fails
 * when memory runs out and when the file would exceed MEMFILE_MAX_SIZE. */
MEMFILE_API MemFileU32 WriteMemFile(const void* buffer, MemFileU32 count, MemFileU32* done);

/* Moves the position to `distance` bytes from the origin `method`. Result: the new position, 0 to MEMFILE_MAX_SIZE,
 * which may lie behind the end; MEMFILE_INVALID for one outside that range or an unknown method. */
MEMFILE_API MemFileU32 SeekMemFile(MemFileI32 distance, MemFileU32 method);

/* The size in bytes, or MEMFILE_INVALID without a memory file. */
MEMFILE_API MemFileU32 GetMemFileSize(void);

/* Ends the memory file and frees all its memory. */
MEMFILE_API MemFileU32 DeleteMemFile(void);

#ifdef __cplusplus
}
#endif

#endif
