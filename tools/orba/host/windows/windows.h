// What the files of this folder share: paths and texts as Windows takes them, its errors as errno values, its handles
// as descriptors. Stands on host.
#pragma once

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <string>

#undef RemoveDirectory  // a name of ours too

#include "tools/orba/host/host.h"

namespace orba::tool::host {

std::wstring Wide(const std::string& text);
std::string Narrow(const std::wstring& text);

// A path as calls take it: absolute, and in the form that has no limit of 260 characters and no names with a meaning of
// their own, except for paths that are devices ("NUL").
std::wstring WidePath(const std::string& path);

// Leaves the reason of the last call's failure in errno. Returns false.
bool FailAsWindows();
int ErrnoOf(DWORD error);

// A kernel handle has 32 significant bits, so it is a descriptor; 0 to 2, which no handle is, are the standard
// streams.
HANDLE HandleOf(int file);
int FileOf(HANDLE handle);  // -1, with errno, for INVALID_HANDLE_VALUE

// Waits for a thread's end. False where a signal comes first.
bool AwaitThread(HANDLE thread);

}  // namespace orba::tool::host
