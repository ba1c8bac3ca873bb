// Ends samplehost with kill -9 in front of each of its system calls that changes the disk, its
// database's own included, and opens what is left: that is the state before the verb or the one
// behind it, whole, and every raw file byte for byte.
//
// FAULT_STRIDE takes each n-th call only; scripts/soak-faults sets 1.
#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <iostream>
#include <map>

#include "tests/host_support.h"

namespace {

using namespace host_test;
namespace fs = std::filesystem;

constexpr unsigned kStride = 17;

// What a database is to a user: each node's format and sound.
using State = std::map<std::string, std::pair<std::string, std::string>>;

bool ChangesTheDisk(const __ptrace_syscall_info& call) {
  switch (call.entry.nr) {
    case SYS_openat:
      return (call.entry.args[2] & (O_CREAT | O_TRUNC)) != 0;
    case SYS_write:
    case SYS_pwrite64:
    case SYS_ftruncate:
    case SYS_fallocate:
    case SYS_copy_file_range:
    case SYS_sendfile:
    case SYS_linkat:
    case SYS_rename:
    case SYS_renameat2:
    case SYS_unlink:
    case SYS_unlinkat:
    case SYS_rmdir:
    case SYS_mkdir:
    case SYS_fsync:
    case SYS_fdatasync:
    case SYS_utimensat:
      return true;
    default:
      return false;
  }
}

class KillAtEveryCall : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    folder.Put("hat.wav", Wav({.channels = 2, .length = 300}));
    Import("kick.wav");
    Run(0, "import game.db hat.wav --class Low --format ADPCM");
    fs::create_directory(folder / "whole");
    for (const char* part : {"game.db", "samples"})
      fs::copy(folder / part, folder / ("whole/" + std::string(part)), kTree);
  }

  void Restore() {
    fs::remove_all(folder / "game.db-journal");
    for (const char* part : {"game.db", "samples"}) {
      fs::remove_all(folder / part);
      fs::copy(folder / ("whole/" + std::string(part)), folder / part, kTree);
    }
  }

  State Read() {
    State state;
    const Json list = List();
    for (const Json& node : list["nodes"]) {
      for (const Json& sample : node["classes"])
        state[node["node"].get<std::string>() + " " + sample["class"].get<std::string>()] = {
            sample["format"], BytesOf(sample["raw_file"])};
    }
    return state;
  }

  // False where the verb came to its end ahead of its n-th change of the disk.
  bool IsKilled(const std::vector<std::string>& arguments, unsigned n) {
    const pid_t child = Start(folder.path, arguments, RLIM_INFINITY, true);
    int status = 0;
    waitpid(child, &status, 0);  // the program's start
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (!WIFEXITED(status) && !WIFSIGNALED(status)) {
      __ptrace_syscall_info call{};
      const bool atCall = WSTOPSIG(status) == (SIGTRAP | 0x80) &&
                          ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call) > 0;
      if (atCall && call.op == PTRACE_SYSCALL_INFO_ENTRY && ChangesTheDisk(call) && --n == 0) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return true;
      }
      ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
      waitpid(child, &status, 0);
    }
    EXPECT_EQ(status, 0) << BytesOf(folder / ".err");
    return false;
  }

  static constexpr auto kTree = fs::copy_options::recursive;
};

TEST_F(KillAtEveryCall, LeavesTheStateBeforeOrBehind) {
  folder.Put("script.txt",
             "import kick.wav --node third --class Low --format PCM8\nformat hat Low PCM16\nsave\n"
             "remove kick High\nundo\nremove kick\nsave\nquit\n");
  const unsigned stride = FromEnvironment("FAULT_STRIDE", kStride);
  const State before = Read();
  unsigned kills = 0;
  for (const char* verb :
       {"import game.db kick.wav --class High --format ADPCM+", "format game.db kick High PCM8",
        "remove game.db hat", "class game.db add Mid=50", "open game.db --script script.txt"}) {
    Restore();
    Run(0, verb);
    const State behind = Read();
    bool killed = true;
    for (unsigned n = 1; killed && !HasFailure(); n += stride) {
      SCOPED_TRACE(std::string(verb) + ", change " + std::to_string(n));
      Restore();
      killed = IsKilled(samplehost::SplitLine(verb), n);
      kills += killed ? 1 : 0;
      Run(0, "verify game.db");
      const State now = Read();
      // A session has a state of its own between its two saves.
      EXPECT_TRUE(now == before || now == behind || now.count("third Low") != 0);
    }
  }
  std::cout << kills << " kills survived" << std::endl;
}

}  // namespace
