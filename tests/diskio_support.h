// A folder of its own for each test of the disk layer, and the platform calls under its control.
#ifndef TESTS_DISKIO_SUPPORT_H_
#define TESTS_DISKIO_SUPPORT_H_

#include <map>
#include <set>

#include "diskio/diskio.h"
#include "platform/faults.h"
#include "tests/platform_folder.h"

namespace diskio_test {

struct TempFolder : platform_test::TempFolder {
  qz::string Path(const std::string& name) const {
    return platform_test::TempFolder::Path(name).c_str();
  }
};

// Counts platform calls while it lives and makes chosen ones fail.
class Faults {
 public:
  Faults() {
    platform::SetFaultHook([this](platform::Call call, const char*) -> DWORD {
      const int number = ++counts[call];
      const auto found = failures.find(call);
      return found != failures.end() && found->second.count(number) != 0 ? ERROR_IO_DEVICE
                                                                         : NO_ERROR;
    });
  }
  ~Faults() { platform::SetFaultHook({}); }
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;

  // The n-th call of that kind from now, 1 for the next.
  void Fail(platform::Call call, int n = 1) { failures[call].insert(counts[call] + n); }

  // Calls of that kind since this was asked last.
  int Take(platform::Call call) {
    const int since = counts[call] - taken[call];
    taken[call] = counts[call];
    return since;
  }

 private:
  std::map<platform::Call, int> counts;
  std::map<platform::Call, int> taken;
  std::map<platform::Call, std::set<int>> failures;
};

}  // namespace diskio_test

#endif  // TESTS_DISKIO_SUPPORT_H_
