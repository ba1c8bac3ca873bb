// Files: who keeps whom out, what the read-only bit stops, what a copy keeps and leaves behind.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "platform_support.h"

namespace {

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE;

using Files = PlatformTest;

TEST_F(Files, AnOpenWithoutSharingShutsOutEverybody) {
  Put("a.wav", "1");
  const HANDLE file = Open("T:\\a.wav");
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  const auto attempts = [] {
    if (TryOpen("T:\\a.wav") != ERROR_SHARING_VIOLATION) return 1;
    if (TryOpen("T:\\A.WAV", GENERIC_READ, kShared) != ERROR_SHARING_VIOLATION) return 2;
    if (TryOpen("T:\\a.wav", kReadWrite, 0, CREATE_ALWAYS) != ERROR_SHARING_VIOLATION) return 3;
    if (DeleteFileA("T:\\a.wav") || GetLastError() != ERROR_SHARING_VIOLATION) return 4;
    if (MoveFileA("T:\\a.wav", "T:\\b.wav")) return 5;
    if (CopyFileA("T:\\a.wav", "T:\\b.wav", TRUE)) return 6;
    return GetFileAttributesA("T:\\a.wav") == FILE_ATTRIBUTE_ARCHIVE ? 0 : 7;
  };
  EXPECT_EQ(attempts(), 0);
  EXPECT_EQ(InChild(attempts), 0);
  EXPECT_EQ(Content("a.wav"), "1") << "a refused CREATE_ALWAYS must not empty the file";
  EXPECT_FALSE(Exists("b.wav"));
  CloseHandle(file);
  const HANDLE one = Open("T:\\a.wav", GENERIC_READ, kShared);
  EXPECT_EQ(InChild([] { return static_cast<int>(TryOpen("T:\\a.wav", GENERIC_READ, kShared)); }),
            0);
  EXPECT_FALSE(DeleteFileA("T:\\a.wav"));
  CloseHandle(one);
}

TEST_F(Files, TheLockEndsWithTheHandleEvenWhileAForkedChildLives) {
  Put("a.wav", "1");
  const HANDLE file = Open("T:\\a.wav");
  const pid_t child = fork();
  if (child == 0) {
    pause();
    _exit(0);
  }
  CloseHandle(file);
  EXPECT_EQ(TryOpen("T:\\a.wav", kReadWrite), NO_ERROR);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(Files, NoOpenWinsAFileThatIsBeingReplaced) {
  // Whoever gets in must hold the file that the name leads to, not one that was just deleted, so
  // that two are never in at once.
  std::atomic<bool> held{false};
  std::atomic<bool> clash{false};
  const auto work = [&] {
    for (int i = 0; i < 1000; ++i) {
      const HANDLE file = Open("T:\\lock", kReadWrite, 0, OPEN_ALWAYS);
      if (file != INVALID_HANDLE_VALUE) {
        if (held.exchange(true)) clash = true;
        usleep(100);
        held = false;
        CloseHandle(file);
      }
      DeleteFileA("T:\\lock");
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back(work);
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_FALSE(clash);
}

TEST_F(Files, WritingMarksArchiveAndOrdinaryFilesHaveNoRecord) {
  Put("a.wav", "1");
  ASSERT_TRUE(SetFileAttributesA("T:\\a.wav", FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(TryOpen("T:\\a.wav", kReadWrite), NO_ERROR);
  EXPECT_EQ(GetFileAttributesA("T:\\a.wav"), FILE_ATTRIBUTE_NORMAL)
      << "an open alone marks nothing";
  const HANDLE file = Open("T:\\a.wav", kReadWrite);
  DWORD done = 0;
  EXPECT_TRUE(WriteFile(file, "x", 1, &done, nullptr));
  CloseHandle(file);
  EXPECT_EQ(GetFileAttributesA("T:\\a.wav"), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(listxattr((root_ + "/a.wav").c_str(), nullptr, 0), 0);
}

TEST_F(Files, ReadOnlyOfAFolderStopsItsRemovalAlone) {
  ASSERT_TRUE(CreateDirectoryA("T:\\dir", nullptr));
  ASSERT_TRUE(SetFileAttributesA("T:\\dir", FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(TryOpen("T:\\dir\\a", GENERIC_WRITE, 0, CREATE_NEW), NO_ERROR);
  EXPECT_TRUE(DeleteFileA("T:\\dir\\a"));
  EXPECT_FALSE(RemoveDirectoryA("T:\\dir"));
  ASSERT_TRUE(SetFileAttributesA("T:\\dir", FILE_ATTRIBUTE_NORMAL));
  EXPECT_TRUE(RemoveDirectoryA("T:\\dir"));
}

TEST_F(Files, ACopyKeepsTimeAttributesAndHoles) {
  const std::string native = root_ + "/big.wav";
  const off_t size = (off_t{5} << 30) + 3;
  Put("big.wav", "front");
  ASSERT_EQ(truncate(native.c_str(), size), 0);
  const timespec times[2] = {{0, UTIME_NOW}, {1000000000, 123456700}};
  ASSERT_EQ(utimensat(AT_FDCWD, native.c_str(), times, 0), 0);
  ASSERT_TRUE(SetFileAttributesA("T:\\big.wav", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));

  ASSERT_TRUE(CopyFileA("T:\\big.wav", "T:\\copy.wav", TRUE));
  struct stat copy;
  ASSERT_EQ(stat((root_ + "/copy.wav").c_str(), &copy), 0);
  EXPECT_LT(copy.st_blocks, 10000) << "the hole was filled";
  WIN32_FIND_DATAA found;
  ASSERT_TRUE(FindClose(FindFirstFileA("T:\\copy.wav", &found)));
  EXPECT_EQ(found.dwFileAttributes,
            FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(off_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow, size);
  char text[5];
  std::ifstream(root_ + "/copy.wav").read(text, sizeof text);
  EXPECT_EQ(std::string(text, sizeof text), "front");
  SYSTEMTIME time;
  ASSERT_TRUE(FileTimeToSystemTime(&found.ftLastWriteTime, &time));
  // 2001-09-09T01:46:40.123, a Sunday
  EXPECT_EQ(time.wYear * 10000 + time.wMonth * 100 + time.wDay, 20010909);
  EXPECT_EQ(time.wHour * 10000 + time.wMinute * 100 + time.wSecond, 14640);
  EXPECT_EQ(time.wMilliseconds * 10 + time.wDayOfWeek, 1230);
}

TEST_F(Files, CallsThatMakeNoSenseAreRefused) {
  Put("a.wav", "1");
  ASSERT_TRUE(CreateDirectoryA("T:\\dir", nullptr));
  const HANDLE pipe =
      CreateNamedPipeA("\\\\.\\pipe\\p", PIPE_ACCESS_INBOUND, 0, 1, 0, 0, 0, nullptr);
  CloseHandle(Open("\\\\.\\pipe\\p", GENERIC_WRITE));  // its only writer
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  OVERLAPPED read{0, 0, 0, 0, event};
  const HANDLE none = reinterpret_cast<HANDLE>(std::intptr_t{-6});
  DWORD number = 0;
  FILETIME late{0, 0x80000000u};
  SYSTEMTIME time;
  WIN32_FIND_DATAA data;
  const auto error = [](auto answer) { return answer ? NO_ERROR : GetLastError(); };
  const std::pair<DWORD, DWORD> answers[] = {
      {error(SetFileAttributesA("T:\\a.wav\\", 0)), ERROR_INVALID_NAME},
      {error(SetFileAttributesA("T:\\a.wav", FILE_ATTRIBUTE_DIRECTORY)), ERROR_INVALID_PARAMETER},
      {error(CopyFileA("T:\\a.wav\\", "T:\\b", TRUE)), ERROR_INVALID_NAME},
      {error(CopyFileA("T:\\a.wav", "T:\\b\\", TRUE)), ERROR_INVALID_NAME},
      {error(MoveFileA("T:\\", "T:\\b")), ERROR_ACCESS_DENIED},
      {error(MoveFileA("T:\\a.wav", "T:\\")), ERROR_ACCESS_DENIED},
      {error(MoveFileA("T:\\a.wav\\", "T:\\b")), ERROR_INVALID_NAME},
      {error(MoveFileA("T:\\a.wav", "T:\\b\\")), ERROR_INVALID_NAME},
      {error(SetCurrentDirectoryA("T:\\a.wav")), ERROR_DIRECTORY},
      {TryOpen("T:\\"), ERROR_ACCESS_DENIED},
      {TryOpen("T:\\", GENERIC_WRITE, 0, CREATE_NEW), ERROR_FILE_EXISTS},
      {TryOpen("\\\\server\\x"), ERROR_PATH_NOT_FOUND},
      {error(platform::fopen("T:\\a.wav", "a") != nullptr), ERROR_INVALID_PARAMETER},
      {error(FileTimeToSystemTime(&late, &time)), ERROR_INVALID_PARAMETER},
      {error(FindNextFileA(none, &data)), ERROR_INVALID_HANDLE},
      {error(WriteFile(none, "", 0, nullptr, nullptr)), ERROR_INVALID_HANDLE},
      {error(GetFileTime(none, nullptr, nullptr, nullptr)), ERROR_INVALID_HANDLE},
      {error(SetEvent(none)), ERROR_INVALID_HANDLE},
      {error(GetExitCodeProcess(none, &number)), ERROR_INVALID_HANDLE},
      {error(GetOverlappedResult(none, &read, &number, FALSE)), ERROR_INVALID_HANDLE},
      {error(PeekNamedPipe(none, nullptr, 0, nullptr, &number, nullptr)), ERROR_INVALID_HANDLE},
      {error(CancelIo(none)), ERROR_INVALID_HANDLE},
      {error(SetStdHandle(7, nullptr)), ERROR_INVALID_HANDLE},
      {error(WaitForSingleObject(none, 0) != WAIT_FAILED), ERROR_INVALID_HANDLE},
      {error(WaitForMultipleObjects(0, &none, FALSE, 0) != WAIT_FAILED), ERROR_INVALID_PARAMETER},
      {error(CreateNamedPipeA("x", 1, 0, 1, 0, 0, 0, nullptr) != INVALID_HANDLE_VALUE),
       ERROR_INVALID_NAME},
      {TryOpen("\\\\.\\pipe\\none", GENERIC_WRITE), ERROR_FILE_NOT_FOUND},
      {TryOpen("\\\\.\\pipe\\p", GENERIC_WRITE), ERROR_PIPE_BUSY},
      {WaitForSingleObject(event, 0), WAIT_TIMEOUT},
      {error(ReadFile(pipe, &number, 1, &number, &read)), ERROR_BROKEN_PIPE},
      {error(MultiByteToWideChar(1, 0, "a", 1, nullptr, 0)), ERROR_INVALID_PARAMETER},
      {error(MultiByteToWideChar(CP_ACP, 0, "a", 0, nullptr, 0)), ERROR_INVALID_PARAMETER},
      {error(WideCharToMultiByte(1, 0, u"a", 1, nullptr, 0, nullptr, nullptr)),
       ERROR_INVALID_PARAMETER}};
  for (std::size_t i = 0; i < std::size(answers); ++i)
    EXPECT_EQ(answers[i].first, answers[i].second) << i;
  EXPECT_TRUE(CloseHandle(pipe) && CloseHandle(event));
}

TEST_F(Files, MovesAndCopiesCrossFileSystems) {
  const platform_test::TempFolder other(platform_test::FastPlace());
  platform::MountDrive('S', other.path);
  Put("a.wav", "text");
  ASSERT_TRUE(SetFileAttributesA("T:\\a.wav", FILE_ATTRIBUTE_HIDDEN));
  EXPECT_TRUE(CopyFileA("T:\\a.wav", "S:\\b.wav", TRUE));
  EXPECT_FALSE(MoveFileA("T:\\a.wav", "S:\\B.WAV"));
  EXPECT_TRUE(MoveFileA("T:\\a.wav", "S:\\c.wav"));
  EXPECT_FALSE(Exists("a.wav"));
  EXPECT_EQ(other.Get("b.wav") + other.Get("c.wav"), "texttext");
  EXPECT_EQ(GetFileAttributesA("S:\\c.wav"), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
  CreateDirectoryA("T:\\dir", nullptr);
  EXPECT_FALSE(MoveFileA("T:\\dir", "S:\\dir"));
  EXPECT_EQ(GetLastError(), ERROR_NOT_SAME_DEVICE);
  platform::MountDrive('S', "");
}

}  // namespace
