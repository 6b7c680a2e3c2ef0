// Mapping memory, which the C library for bare machines does not know: Linux's functions and numbers.
#pragma once

#include <stddef.h>
#include <sys/types.h>

#define PROT_NONE 0
#define PROT_READ 1
#define PROT_WRITE 2
#define PROT_EXEC 4
#define MAP_PRIVATE 2
#define MAP_ANONYMOUS 0x20
#define MAP_FIXED_NOREPLACE 0x100000
#define MAP_FAILED reinterpret_cast<void*>(-1)

extern "C" {
void* mmap(void* address, size_t size, int protection, int flags, int file, long long offset) __asm__("mmap64");
int mprotect(void* address, size_t size, int protection);
int munmap(void* address, size_t size);
}
