/* Holds a file open until standard input ends: hold.exe FILE shared|alone. Says when it does. */
#include <stdio.h>
#include <string.h>
#include <windows.h>

int main(int argc, char** argv) {
  const int alone = argc == 3 && strcmp(argv[2], "alone") == 0;
  const HANDLE file = CreateFileA(argv[1], alone ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                                  alone ? 0 : FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
  if (file == INVALID_HANDLE_VALUE) return 1;
  puts("held");
  fflush(stdout);
  while (getchar() != EOF) continue;
  return 0;
}
