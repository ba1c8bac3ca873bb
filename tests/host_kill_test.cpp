// Ends samplehost with kill -9, in front of each of its system calls that changes the disk, its
// database's own included, and at random moments, and opens what is left: that is the state before
// the verb or the one behind it, whole, every raw file byte for byte; and what is left over besides
// is listed as such.
//
// FAULT_STRIDE takes each n-th call only; scripts/soak-faults sets 1. KILL_TEST_RUNS gives the
// number of random moments, KILL_TEST_SEED the seed; scripts/kill-test sets both.
#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <chrono>
#include <iostream>
#include <map>
#include <random>
#include <thread>

#include "tests/host_support.h"

namespace {

using namespace host_test;
namespace fs = std::filesystem;

constexpr unsigned kStride = 17;
constexpr unsigned kRandomKills = 10;

// What a database is to a user: each node's format and sound.
using State = std::map<std::string, std::pair<std::string, std::string>>;

bool ChangesTheDisk(const __ptrace_syscall_info& call) {
  static const std::set<std::uint64_t> changes = {
      SYS_write,  SYS_pwrite64, SYS_ftruncate, SYS_fallocate, SYS_copy_file_range, SYS_sendfile,
      SYS_linkat, SYS_rename,   SYS_renameat2, SYS_unlink,    SYS_unlinkat,        SYS_rmdir,
      SYS_mkdir,  SYS_fsync,    SYS_fdatasync, SYS_utimensat};
  if (call.entry.nr == SYS_openat) return (call.entry.args[2] & (O_CREAT | O_TRUNC)) != 0;
  return changes.count(call.entry.nr) != 0;
}

class Kills : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    folder.Put("hat.wav", Wav({.channels = 2, .length = 300}));
    Import("kick.wav");
    Run(0, "import game.db hat.wav --class Low --format ADPCM");
    folder.Put("script.txt",
               "import kick.wav --node third --class Low --format PCM8\nformat hat Low PCM16\n"
               "save\nremove kick High\nundo\nremove kick\nsave\nquit\n");
    fs::create_directory(folder / "whole");
    for (const std::string part : {"game.db", "samples"})
      fs::copy(folder / part, folder / ("whole/" + part), fs::copy_options::recursive);
    before_ = Read();
  }

  void Restore() {
    for (const char* part : {"game.db", "game.db-journal", "samples", "orphans"})
      fs::remove_all(folder / part);
    fs::copy(folder / "whole", folder.path, fs::copy_options::recursive);
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

  void ExpectWhole(const State& behind) {
    Run(0, "verify game.db");
    const State now = Read();
    // A session has a state of its own between its two saves.
    EXPECT_TRUE(now == before_ || now == behind || now.count("third Low") != 0);
    // What no node names is known as such: of each node there stay a folder and two files.
    Run(0, "clean game.db");
    const auto left = fs::recursive_directory_iterator(folder / "samples");
    EXPECT_EQ(std::distance(begin(left), end(left)), 3 * std::ssize(now));
  }

  static constexpr const char* kVerbs[] = {
      "import game.db kick.wav --class High --format ADPCM+", "format game.db kick High PCM8",
      "remove game.db hat", "class game.db add Mid=50", "open game.db --script script.txt"};
  State before_;
};

class KillAtEveryCall : public Kills {};
class KillTest : public Kills {};

TEST_F(KillAtEveryCall, LeavesTheStateBeforeOrBehind) {
  const unsigned stride = FromEnvironment("FAULT_STRIDE", kStride);
  unsigned kills = 0;
  for (const char* verb : kVerbs) {
    Restore();
    Run(0, verb);
    const State behind = Read();
    bool killed = true;
    for (unsigned n = 1; killed && !HasFailure(); n += stride) {
      SCOPED_TRACE(std::string(verb) + ", change " + std::to_string(n));
      Restore();
      killed = IsKilled(samplehost::SplitLine(verb), n);
      kills += killed ? 1 : 0;
      ExpectWhole(behind);
    }
  }
  std::cout << kills << " kills survived" << std::endl;
}

TEST_F(KillTest, AtRandomMomentsLeavesTheStateBeforeOrBehind) {
  using Clock = std::chrono::steady_clock;
  for (int i = 0; i < 8; ++i)
    folder.Put("in/s" + std::to_string(i) + ".wav", Wav({.length = 4000}));
  const unsigned runs = FromEnvironment("KILL_TEST_RUNS", kRandomKills);
  const unsigned seed = FromEnvironment("KILL_TEST_SEED", std::random_device()());
  std::cout << "repeat with: scripts/kill-test " << runs << ' ' << seed << std::endl;
  std::mt19937 random(seed);
  struct Whole {
    State behind;
    Clock::duration lasts;
  };
  std::map<std::string, Whole> wholes;
  unsigned kills = 0;
  for (unsigned run = 0; kills < runs && !HasFailure() && run < 10 * runs; ++run) {
    // Every other time the import of a folder, which has the most to save.
    const std::string verb = run % 2 == 0 ? "import game.db in --class High --format ADPCM"
                                          : kVerbs[random() % std::size(kVerbs)];
    SCOPED_TRACE(verb + ", run " + std::to_string(run));
    if (wholes.count(verb) == 0) {
      Restore();
      const auto start = Clock::now();
      Run(0, verb);
      const auto lasts = Clock::now() - start;
      wholes[verb] = {Read(), lasts};
    }
    Restore();
    const pid_t child = Start(folder.path, samplehost::SplitLine(verb));
    std::this_thread::sleep_for(wholes[verb].lasts * static_cast<int>(random() % 1101) / 1000);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) || status == 0) << BytesOf(folder / ".err");
    kills += WIFSIGNALED(status) ? 1 : 0;
    ExpectWhole(wholes[verb].behind);
  }
  EXPECT_EQ(kills, runs);
}

}  // namespace
