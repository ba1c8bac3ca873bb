// A folder of its own for each test of the disk layer, and the platform calls under its control.
#ifndef TESTS_DISKIO_SUPPORT_H_
#define TESTS_DISKIO_SUPPORT_H_

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "diskio/diskio.h"
#include "platform/faults.h"
#include "platform/native.h"

namespace diskio_test {

// A new folder, removed with all that is in it.
class TempFolder {
 public:
  TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "diskioXXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "no temporary folder";
    native = name;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(native, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string Native(const std::string& name) const { return native + "/" + name; }

  // In our notation; `name` may hold backslashes, and is the folder itself where it is empty.
  qz::string Path(const std::string& name) const {
    std::string path;
    std::string why;
    EXPECT_TRUE(platform::FromNative(native, path, why)) << why;
    return qz::string((name.empty() ? path : path + "\\" + name).c_str());
  }

  void Put(const std::string& name, const std::string& bytes) const {
    std::ofstream(Native(name), std::ios::binary) << bytes;
  }

  std::string Get(const std::string& name) const {
    std::ifstream file(Native(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // Names of all that is in it, with '/' behind folders.
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(native)) {
      names.insert(entry.path().lexically_relative(native).string() +
                   (entry.is_directory() ? "/" : ""));
    }
    return names;
  }

 private:
  std::string native;
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
