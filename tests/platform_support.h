// A drive of its own for each test, in a fresh folder.
#ifndef TESTS_PLATFORM_SUPPORT_H_
#define TESTS_PLATFORM_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/faults.h"
#include "platform/native.h"

class PlatformTest : public testing::Test {
 protected:
  void SetUp() override {
    char folder[] = "/tmp/platform_test_XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    root_ = folder;
    platform::MountDrive('T', root_);
  }

  void TearDown() override {
    platform::SetFaultHook({});
    platform::MountDrive('T', "");
    std::filesystem::remove_all(root_);
  }

  void Put(const std::string& name, const std::string& text) const {
    std::ofstream(root_ + '/' + name, std::ios::binary) << text;
  }

  std::string Content(const std::string& name) const {
    std::ifstream file(root_ + '/' + name, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }

  bool Exists(const std::string& name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(root_ + '/' + name));
  }

  static HANDLE Open(const char* name, DWORD access = GENERIC_READ, DWORD share = 0,
                     DWORD disposition = OPEN_EXISTING) {
    return CreateFileA(name, access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  }

  // Opens and closes; the last error on failure.
  static DWORD TryOpen(const char* name, DWORD access = GENERIC_READ, DWORD share = 0,
                       DWORD disposition = OPEN_EXISTING) {
    const HANDLE file = Open(name, access, share, disposition);
    if (file == INVALID_HANDLE_VALUE) return GetLastError();
    CloseHandle(file);
    return NO_ERROR;
  }

  std::string root_;
};

#endif  // TESTS_PLATFORM_SUPPORT_H_
