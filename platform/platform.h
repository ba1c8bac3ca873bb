// The one place that knows the operating system.
//
// All code above this folder calls the names that are declared here, with Windows' contracts. On
// Windows the declarations are the system's own; elsewhere they are a stand-in of exactly the
// calls that are used (platform_posix.h says for each what its callers rely on).
//
// Paths are in Windows notation everywhere above this header: backslashes, an optional drive,
// names that compare without case, text in the ANSI code page (UTF-8 in the stand-in).
#ifndef PLATFORM_PLATFORM_H_
#define PLATFORM_PLATFORM_H_

#if defined(_WIN32)
#include "platform/platform_windows.h"
#else
#include "platform/platform_posix.h"
#endif

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace platform {

// The run-time library's fopen for a path in our notation. An open file keeps others from opening
// it without sharing, and a file that is open without sharing cannot be opened here: the result is
// then null with errno EACCES. Modes: "rb" and "w+b". Close with fclose.
std::FILE* fopen(const char* path, const char* mode);

// fseek and ftell with 64-bit positions. Result 0 for success; -1 for failure.
int fseek64(std::FILE* file, std::int64_t offset, int origin);
std::int64_t ftell64(std::FILE* file);

// Says that a fresh block of the heap is about to be filled, so that the system can give it in
// large pages: 100 MB in small ones are 25,000 page faults, which take longer than reading the
// bytes. Only a hint: content and ownership stay as they are, and what is never touched still takes
// no memory beyond the large page that it shares.
void ExpectFilled(void* block, std::size_t size);

}  // namespace platform

#endif  // PLATFORM_PLATFORM_H_
