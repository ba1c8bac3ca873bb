#include "common/qzassert.h"

#include <cstdio>
#include <cstdlib>

namespace qz {
namespace {

void PrintAndAbort(const char* text, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  std::abort();
}

AssertHandler current = PrintAndAbort;

}  // namespace

AssertHandler SetAssertHandler(AssertHandler handler) {
  const AssertHandler former = current;
  current = handler != nullptr ? handler : PrintAndAbort;
  return former;
}

void AssertFailed(const char* text, const char* file, int line) {
  current(text, file, line);
}

}  // namespace qz
