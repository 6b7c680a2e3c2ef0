// The one seam of a program on bare Linux between the two halves it is made of: calls made with Linux's own headers
// (linux_calls.cpp), and the C library for bare machines (newlib_calls.cpp), which knows other types and numbers.
#pragma once

extern "C" {

// A call of the kernel; start.S.
long linux_call(long a, long b, long c, long d, long e, long f, long number);

// Kind and permissions, and the size, of an open file. 0, or an error number's negative.
long linux_file_status(int file, unsigned* mode, long long* size);

// The calls behind the C library's own, with its flags and errors turned into Linux's. An error number's negative on
// failure.
long linux_open(const char* path, bool read, bool write, bool create, bool exclusive, bool truncate, bool append,
                unsigned mode);
long linux_read(int file, void* buffer, unsigned count);
long linux_write(int file, const void* buffer, unsigned count);
long linux_close(int file);
long linux_seek(int file, long offset, int origin);
long linux_unlink(const char* path);
long linux_rename(const char* from, const char* to);
long linux_make_directory(const char* path, unsigned mode);
long linux_working_directory(char* buffer, unsigned size);
long linux_break(unsigned long address);  // the end of the heap
long linux_random(void* buffer, unsigned count);
long long linux_microseconds(void);  // since 1970
[[noreturn]] void linux_exit(int status);

}  // extern "C"
