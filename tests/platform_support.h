// A drive of its own for each test, in a fresh folder.
#ifndef TESTS_PLATFORM_SUPPORT_H_
#define TESTS_PLATFORM_SUPPORT_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/faults.h"
#include "tests/platform_folder.h"

class PlatformTest : public testing::Test {
 protected:
  explicit PlatformTest(const std::string& parent = std::filesystem::temp_directory_path())
      : folder_(parent) {}

  void SetUp() override { platform::MountDrive('T', root_); }

  void TearDown() override {
    platform::SetFaultHook({});
    platform::MountDrive('T', "");
  }

  void Put(const std::string& name, const std::string& text) const { folder_.Put(name, text); }
  std::string Content(const std::string& name) const { return folder_.Get(name); }
  bool Exists(const std::string& name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(root_ + '/' + name));
  }

  // What another process gets when it tries `body`.
  template <typename Body>
  static int InChild(Body body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

  const platform_test::TempFolder folder_;
  const std::string& root_ = folder_.path;
};

#endif  // TESTS_PLATFORM_SUPPORT_H_
