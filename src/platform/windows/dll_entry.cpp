// The entry point of a desktop DLL. Every table starts zeroed and there is nothing to set up, or to take down.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD /*reason*/, LPVOID /*reserved*/) { return TRUE; }
