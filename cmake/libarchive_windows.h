// What libarchive's sources are compiled with for desktop Windows: its own settings for that system, with zlib and
// without ciphers, which no archive of ours needs.
#define __LIBARCHIVE_CONFIG_H_INCLUDED 1
#include "contrib/android/config/windows_host.h"

#undef HAVE_BCRYPT_H
#undef ARCHIVE_CRYPTO_MD5_WIN
#undef ARCHIVE_CRYPTO_SHA1_WIN
#undef ARCHIVE_CRYPTO_SHA256_WIN
#undef ARCHIVE_CRYPTO_SHA384_WIN
#undef ARCHIVE_CRYPTO_SHA512_WIN
#define HAVE_LIBZ 1
#define HAVE_ZLIB_H 1
