#include <cstdio>

#include "platform/platform.h"

namespace platform {

std::FILE* fopen(const char* path, const char* mode) {
  return std::fopen(path, mode);
}

int fseek64(std::FILE* file, std::int64_t offset, int origin) {
  return _fseeki64(file, offset, origin);
}

std::int64_t ftell64(std::FILE* file) {
  return _ftelli64(file);
}

// Large pages are a privilege there, and faults come in clusters anyway.
void ExpectFilled(void*, std::size_t) {}

}  // namespace platform
