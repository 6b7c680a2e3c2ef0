/* Loaded before the C library: writes down each call that changes the host's disk, in HOST_CALLS_LOG, and lets some
 * fail or be the last.
 *
 * HOST_CALLS_AT is "KIND NAME NUMBER ACTION": of the calls of this kind ("any" for all) on a file whose path ends in
 * NAME ("" for any), the one with this number from 1 on, or every one for 0. ACTION is an errno value, "short" (half of
 * a write is done), "flip" (a write changes a bit of its first byte), or "kill" (the process ends as by SIGKILL before
 * the call). Failing with EINTR happens once. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#define REAL(name) (__extension__((__typeof__(&name))dlsym(RTLD_NEXT, #name)))

static void name_of(int file, char* name, size_t size) {
  char link[64];
  ssize_t length;
  snprintf(link, sizeof link, "/proc/self/fd/%d", file);
  length = readlink(link, name, size - 1);
  name[length < 0 ? 0 : length] = '\0';
}

static int ends_with(const char* text, const char* end) {
  const size_t length = strlen(text), tail = strlen(end);
  return length >= tail && strcmp(text + length - tail, end) == 0;
}

enum { HALF = -1, FLIPPED = -2 };

/* Notes the call. 0 to make it, HALF or FLIPPED to make it so, else the errno value to fail with. */
static int note(const char* kind, const char* name, const char* more) {
  static int count;
  const char* const log = getenv("HOST_CALLS_LOG");
  const char* const at = getenv("HOST_CALLS_AT");
  char wanted[16], end[256], action[16];
  int number;
  if (at != NULL && sscanf(at, "%15s %255s %d %15s", wanted, end, &number, action) == 4 &&
      (strcmp(wanted, "any") == 0 || strcmp(wanted, kind) == 0) && (strcmp(end, "*") == 0 || ends_with(name, end)) &&
      (++count == number || number == 0)) {
    if (strcmp(action, "kill") == 0) raise(SIGKILL);
    if (strcmp(action, "short") == 0) return HALF;
    if (strcmp(action, "flip") == 0) return FLIPPED;
    return atoi(action);
  }
  if (log != NULL) {
    const int file = REAL(open)(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    char line[8300];
    const int length = snprintf(line, sizeof line, "%s %s%s%s\n", kind, name, *more ? " " : "", more);
    if (REAL(write)(file, line, (size_t)length) != length) abort();
    close(file);
  }
  return 0;
}

// Devices do not count; what lies in memory does.
static int note_file(const char* kind, int file) {
  char name[4096];
  name_of(file, name, sizeof name);
  const int device = strncmp(name, "/dev/", 5) == 0 && strncmp(name, "/dev/shm/", 9) != 0;
  return name[0] == '/' && !device ? note(kind, name, "") : 0;
}

#define FAIL_IF(verdict)       \
  do {                         \
    const int error = verdict; \
    if (error > 0) {           \
      errno = error;           \
      return -1;               \
    }                          \
  } while (0)

ssize_t write(int file, const void* bytes, size_t count) {
  const int verdict = note_file("write", file);
  FAIL_IF(verdict);
  if (verdict == FLIPPED && count > 0) {
    const char first = (char)(*(const char*)bytes ^ 1);
    return REAL(write)(file, &first, 1);
  }
  return REAL(write)(file, bytes, verdict == HALF ? (count + 1) / 2 : count);
}

ssize_t pwrite(int file, const void* bytes, size_t count, off_t offset) {
  const int verdict = note_file("write", file);
  FAIL_IF(verdict);
  if (verdict == FLIPPED && count > 0) {
    const char first = (char)(*(const char*)bytes ^ 1);
    return REAL(pwrite)(file, &first, 1, offset);
  }
  return REAL(pwrite)(file, bytes, verdict == HALF ? (count + 1) / 2 : count, offset);
}

ssize_t pwrite64(int file, const void* bytes, size_t count, off64_t offset) {
  return pwrite(file, bytes, count, offset);
}

int ftruncate(int file, off_t size) {
  FAIL_IF(note_file("cut", file));
  return REAL(ftruncate)(file, size);
}

int ftruncate64(int file, off64_t size) { return ftruncate(file, size); }

int fsync(int file) {
  FAIL_IF(note_file("sync", file));
  return REAL(fsync)(file);
}

int fdatasync(int file) {
  FAIL_IF(note_file("sync", file));
  return REAL(fdatasync)(file);
}

int syncfs(int file) {
  FAIL_IF(note_file("syncfs", file));
  return REAL(syncfs)(file);
}

int rename(const char* from, const char* to) {
  FAIL_IF(note("rename", from, to));
  return REAL(rename)(from, to);
}

int renameat2(int from_directory, const char* from, int to_directory, const char* to, unsigned flags) {
  FAIL_IF(note("rename", from, to));
  return REAL(renameat2)(from_directory, from, to_directory, to, flags);
}

int unlink(const char* path) {
  FAIL_IF(note("remove", path, ""));
  return REAL(unlink)(path);
}

int mkdir(const char* path, mode_t mode) {
  FAIL_IF(note("mkdir", path, ""));
  return REAL(mkdir)(path, mode);
}
