// Children of every behaviour: what arrives of their output, how their end is told, what is left.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

#include "diskio/diskio_stream.h"
#include "tests/diskio_support.h"

namespace {

using diskio_test::Faults;
using diskio_test::TempFolder;
using platform::Call;
using namespace std::chrono_literals;

constexpr qz::ulong kUntouched = 0xABCDu;

// Callbacks are plain functions, so what they collect lies here.
std::string out;
std::string err;

void TakeOut(char byte) {
  out += byte;
}

void TakeErr(char byte) {
  err += byte;
}

using Outcome = std::pair<DIOFile::DIOError, qz::ulong>;

Outcome Execute(const std::string& line, DIOFile::DIOCallback stdOut = TakeOut,
                DIOFile::DIOCallback errOut = TakeErr) {
  out.clear();
  err.clear();
  qz::ulong result = kUntouched;
  const DIOFile::DIOError error = DIOFile::Execute(line.c_str(), result, stdOut, errOut);
  return {error, result};
}

// `script` must hold no double quote.
Outcome Shell(const std::string& script, DIOFile::DIOCallback stdOut = TakeOut,
              DIOFile::DIOCallback errOut = TakeErr) {
  return Execute("sh -c \"" + script + '"', stdOut, errOut);
}

constexpr Outcome Ended(qz::ulong result) {
  return {DIOFile::ERROR_OK, result};
}

constexpr Outcome Failed(DIOFile::DIOError error) {
  return {error, kUntouched};
}

std::string Numbers(int last) {
  std::string text;
  for (int i = 1; i <= last; ++i)
    text += std::to_string(i) + '\n';
  return text;
}

std::size_t Entries(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
    ++count;
  return count;
}

// Waits up to 5 s.
template <typename Condition>
bool Becomes(Condition condition) {
  for (int i = 0; i < 500; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

// Leaves those that there are for the layer to take note of.
bool NoChildIsLeft() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1;
}

// Each test leaves descriptors, threads, children and standard handles as they were.
class ExecuteTest : public ::testing::Test {
 protected:
  ExecuteTest() {
    Shell(":");  // what the first run sets up for good
    descriptors = Entries("/proc/self/fd");
    threads = Entries("/proc/self/task");
  }

  void TearDown() override {
    EXPECT_TRUE(Becomes([] {
      Shell(":");  // a run takes note of earlier children that ended since
      return NoChildIsLeft();
    }));
    EXPECT_EQ(Entries("/proc/self/fd"), descriptors);
    // A thread that was waited for is in the list a moment longer.
    EXPECT_TRUE(Becomes([&] { return Entries("/proc/self/task") == threads; }));
    EXPECT_EQ(::GetStdHandle(STD_OUTPUT_HANDLE), nullptr);
    EXPECT_EQ(::GetStdHandle(STD_ERROR_HANDLE), nullptr);
  }

  TempFolder folder;
  std::size_t descriptors = 0;
  std::size_t threads = 0;
};

TEST_F(ExecuteTest, MegabytesOnBothStreamsArriveInOrder) {
  EXPECT_EQ(Shell("seq 300000 & seq 200000 >&2; wait; exit 3"), Ended(3));
  EXPECT_TRUE(out == Numbers(300000));
  EXPECT_TRUE(err == Numbers(200000));
  // What nobody takes holds up neither the child nor the other stream.
  EXPECT_EQ(Shell("seq 200000; seq 100000 >&2", nullptr, TakeErr), Ended(0));
  EXPECT_TRUE(out.empty() && err == Numbers(100000));
  EXPECT_EQ(Shell("seq 200000; seq 100000 >&2", TakeOut, nullptr), Ended(0));
  EXPECT_TRUE(err.empty() && out == Numbers(200000));
}

TEST_F(ExecuteTest, EveryEndHasItsCode) {
  const std::map<std::string, qz::ulong> codes = {
      {"exit 0", 0},
      {"exit 3", 3},
      {"exit 255", 255},
      {"exit 259", 3},  // the system hands on a byte
      {"kill -9 $$", 137},
      {"kill -TERM $$", 143},
      {"(sleep .1; kill -CONT $$) & kill -STOP $$; exit 4", 4}};
  for (const auto& [script, code] : codes) {
    EXPECT_EQ(Shell(script), Ended(code)) << script;
    EXPECT_EQ(out + err, "") << script;
  }
  EXPECT_EQ(Shell("printf last; kill -9 $$"), Ended(137));
  EXPECT_EQ(out, "last");
}

TEST_F(ExecuteTest, TheEndOfTheChildIsTheEndOfTheRun) {
  // Not that of its streams...
  EXPECT_EQ(Shell("echo early; exec >&- 2>&-; sleep .2; exit 5"), Ended(5));
  EXPECT_EQ(out, "early\n");
  // ...nor that of others who have them, silent or not.
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Shell("sleep 3 & echo parent; exit 6"), Ended(6));
  EXPECT_EQ(out, "parent\n");
  const auto takeSlowly = [](char byte) {
    err += byte;
    if (err.size() % 4096 == 0) std::this_thread::sleep_for(1ms);  // the pipe is always full
  };
  EXPECT_EQ(Shell("yes >&2 & sleep .1; echo parent; exit 7", TakeOut, takeSlowly), Ended(7));
  EXPECT_EQ(out, "parent\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
}

TEST_F(ExecuteTest, WhatIsNoProgramDoesNotStart) {
  const std::string path = folder.Path("").c_str();
  folder.Put("text.exe", "not a program");
  folder.Put("damaged", "not a program");
  std::filesystem::permissions(folder.Native("damaged"), std::filesystem::perms::owner_all);
  for (const std::string& line :
       {std::string(), std::string("\"\" x"), std::string("no_such_program x"),
        std::string("C:\\no\\such"), path, path + "\\text.exe", path + "\\damaged"})
    EXPECT_EQ(Execute(line), Failed(DIOFile::ERROR_COULDNOTEXECUTE)) << line;
}

TEST_F(ExecuteTest, ProgramsAreFoundByPathAndByName) {
  folder.Put("My Tool", "#!/bin/sh\nprintf '<%s>' \"$@\"; pwd\n");
  std::filesystem::permissions(folder.Native("My Tool"), std::filesystem::perms::owner_all);
  const std::string path = folder.Path("").c_str();
  const std::string here = std::filesystem::current_path().string() + '\n';
  EXPECT_EQ(Execute('"' + path + "\\my tool\" 1 2"), Ended(0));
  EXPECT_EQ(out, "<1><2>" + here);
  EXPECT_EQ(Execute(path + "\\My\" \"Tool x"), Ended(0));
  EXPECT_EQ(out, "<x>" + here);
  const std::string search = std::getenv("PATH");
  setenv("PATH", ("/no/such:" + folder.Native("")).c_str(), 1);
  EXPECT_EQ(Execute("\"My Tool\" y"), Ended(0));
  EXPECT_EQ(out, "<y>" + here);
  EXPECT_EQ(Execute("sh"), Failed(DIOFile::ERROR_COULDNOTEXECUTE));
  setenv("PATH", search.c_str(), 1);
}

TEST_F(ExecuteTest, ArgumentsFollowWindowsQuoting) {
  const std::map<std::string, std::string> lines = {
      {"  a\t b  ", "[a][b]"},
      {R"("a b" c"d e"f)", "[a b][cd ef]"},
      {R"(a "" b)", "[a][][b]"},
      {R"(a\b c\\d "e\f\\g")", R"([a\b][c\\d][e\f\\g])"},
      {R"(a\"b \"c d\")", R"([a"b]["c][d"])"},
      {R"(a\\"b c" d)", R"([a\b c][d])"},
      {R"(a\\\"b c)", R"([a\"b][c])"},
      {R"("C:\folder\\" x)", R"([C:\folder\][x])"},
      {R"("C:\folder\" x")", R"([C:\folder" x])"},
      {R"("a""b c" d)", R"([a"b c][d])"},
      {R"("open end)", "[open end]"},
      {R"($HOME * ; | > 'x y')", "[$HOME][*][;][|][>]['x][y']"},
      {"line\nfeed", "[line\nfeed]"},
      {"\xC3\xA4 \xFF", "[\xC3\xA4][\xFF]"}};
  for (const auto& [line, arguments] : lines) {
    EXPECT_EQ(Execute("printf [%s] " + line), Ended(0)) << line;
    EXPECT_EQ(out, arguments) << line;
  }
}

TEST_F(ExecuteTest, AChildHasNoDescriptorsOfOurs) {
  const std::string list = "exec ls /proc/self/fd >" + folder.Native("plain");
  ASSERT_EQ(std::system(list.c_str()), 0);
  DIOFile* file = DIOFile::OpenFile(folder.Path("open"), DIOFile::OPENMODE_CREATE);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(Execute("ls /proc/self/fd"), Ended(0));
  EXPECT_EQ(out, folder.Get("plain"));
  EXPECT_TRUE(DIOFile::CloseFile(file));
}

TEST_F(ExecuteTest, WithoutCaptureTheChildWritesWhereWeDo) {
  testing::internal::CaptureStdout();
  qz::ulong result = kUntouched;
  out.clear();
  EXPECT_EQ(_DIOFile::ExecuteWin95("sh -c \"printf shown; exit 6\"", result, TakeOut, TakeErr),
            DIOFile::ERROR_OK);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "shown");
  EXPECT_EQ(out, "");
  EXPECT_EQ(result, 6u);
  Faults faults;
  faults.Fail(Call::kCreateThread);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(_DIOFile::ExecuteWin95("no_such_program", result, TakeOut, TakeErr),
              DIOFile::ERROR_COULDNOTEXECUTE);
  }
  EXPECT_EQ(result, 6u);
}

TEST_F(ExecuteTest, ARunInsideARunIsRefusedAndDoesNoHarm) {
  const auto takeAndRun = [](char byte) {
    out += byte;
    qz::ulong result = kUntouched;
    EXPECT_EQ(DIOFile::Execute("true", result, nullptr, nullptr),
              DIOFile::ERROR_COULDNOTCAPTUREOUTPUT);
    EXPECT_EQ(result, kUntouched);
  };
  EXPECT_EQ(Shell("printf abc; sleep .1; printf d; echo e >&2; exit 2", takeAndRun), Ended(2));
  EXPECT_EQ(out + err, "abcde\n");
}

TEST_F(ExecuteTest, EveryFailingCallIsToldAndLeavesNothing) {
  const auto capture = DIOFile::ERROR_COULDNOTCAPTUREOUTPUT;
  const std::map<Call, DIOFile::DIOError> kinds = {
      {Call::kCreateNamedPipe, capture},
      {Call::kCreateFile, capture},
      {Call::kCreateEvent, capture},
      {Call::kReadFile, capture},
      {Call::kGetOverlappedResult, capture},
      {Call::kPeekNamedPipe, capture},
      {Call::kCreateThread, DIOFile::ERROR_COULDNOTEXECUTE},
      {Call::kCreateProcess, DIOFile::ERROR_COULDNOTEXECUTE},
      {Call::kGetExitCodeProcess, DIOFile::ERROR_NORESULTKNOWN}};
  for (const auto& [kind, error] : kinds) {
    int n = 1;
    for (;; ++n) {
      Faults faults;
      faults.Fail(kind, n);
      const Outcome run = Shell("echo x; echo y >&2");
      if (faults.Take(kind) < n) break;
      EXPECT_EQ(run, Failed(error)) << platform::CallName(kind) << ' ' << n;
    }
    EXPECT_GT(n, 1) << platform::CallName(kind);
  }
  Faults faults;
  faults.Fail(Call::kWaitForMultipleObjects);  // of whichever thread waits first
  EXPECT_EQ(Shell("sleep .1").second, kUntouched);
}

TEST_F(ExecuteTest, AChildWhoseOutputFailsRunsOn) {
  Faults faults;
  faults.Fail(Call::kReadFile, 3);
  const std::string script = "echo x; sleep .2; trap : PIPE; echo y; echo z >" + folder.Native("z");
  EXPECT_EQ(Shell(script), Failed(DIOFile::ERROR_COULDNOTCAPTUREOUTPUT));
  EXPECT_EQ(out, "x\n");
  EXPECT_FALSE(std::filesystem::exists(folder.Native("z")));
  EXPECT_TRUE(Becomes([&] { return folder.Get("z") == "z\n"; }));
}

TEST_F(ExecuteTest, AnEndThatNobodyIsToldIsNotTakenForACode) {
  const auto old = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(Shell("echo x; sleep .1; exit 3"), Failed(DIOFile::ERROR_NORESULTKNOWN));
  EXPECT_EQ(out, "x\n");
  std::signal(SIGCHLD, old);
}

// scripts/soak-execute sets the number.
TEST_F(ExecuteTest, ManyRunsLeakNothing) {
  const char* const text = std::getenv("EXECUTE_RUNS");
  const int runs = text != nullptr ? std::atoi(text) : 50;
  for (int i = 0; i < runs; ++i) {
    const auto code = static_cast<qz::ulong>(i % 100);
    ASSERT_EQ(Shell("echo $0; echo err >&2; exit " + std::to_string(code)), Ended(code)) << i;
    ASSERT_EQ(out + err, "sh\nerr\n") << i;
  }
}

}  // namespace
