// A folder for a test, removed with all that is in it.
#ifndef TESTS_PLATFORM_FOLDER_H_
#define TESTS_PLATFORM_FOLDER_H_

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "platform/native.h"

namespace platform_test {

// In memory where the machine has such a place, which may keep no attributes.
inline std::string FastPlace() {
  return std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
}

class TempFolder {
 public:
  explicit TempFolder(const std::string& parent = std::filesystem::temp_directory_path())
      : path(parent + "/testXXXXXX") {
    if (mkdtemp(path.data()) == nullptr) std::abort();
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string Native(const std::string& name) const { return path + "/" + name; }

  // In our notation; `name` may hold backslashes, and is the folder itself where it is empty.
  std::string Path(const std::string& name) const {
    std::string folder;
    std::string why;
    EXPECT_TRUE(platform::FromNative(path, folder, why)) << why;
    return name.empty() ? folder : folder + "\\" + name;
  }

  void Put(const std::string& name, const std::string& bytes) const {
    std::filesystem::create_directories(std::filesystem::path(Native(name)).parent_path());
    std::ofstream(Native(name), std::ios::binary) << bytes;
  }

  std::string Get(const std::string& name) const {
    std::ifstream file(Native(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // Names of all that is in it, with '/' behind folders.
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
      names.insert(entry.path().lexically_relative(path).string() +
                   (entry.is_directory() ? "/" : ""));
    }
    return names;
  }

  std::string path;
};

}  // namespace platform_test

#endif  // TESTS_PLATFORM_FOLDER_H_
