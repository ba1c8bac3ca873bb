// The narrow form of a text is spared from failing allocations: a text that cannot have one stops
// the program. The linker sends calls of qz::string::c_str here.
#include "common/qzclasses.h"
#include "tests/heap_faults.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" {
const char* __real__ZNK2qz6string5c_strEv(const qz::string* text);
const char* __wrap__ZNK2qz6string5c_strEv(const qz::string* text);
}

const char* __wrap__ZNK2qz6string5c_strEv(const qz::string* text) {
  const heap_faults::Spared narrow;
  return __real__ZNK2qz6string5c_strEv(text);
}
// NOLINTEND(bugprone-reserved-identifier)
