// Every operation on a system that fails at any one place, or from there on: it tells so by its own
// code, leaves what it should and leaks nothing, and works when it is called again. And on one that
// stops there: what was saved is whole.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "tests/sd_fault_world.h"

namespace sdtest {
namespace {

using platform::Call;
using Names = Lines;

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  for (const auto& group :
       {NodeOperations(), SetupOperations(), SoundOperations(), StreamOperations()})
    all.insert(all.end(), group.begin(), group.end());
  return all;
}

// Of the failures of one operation each FAULT_STRIDE-th is tried; scripts/soak sets 1.
int Stride() {
  const char* const text = std::getenv("FAULT_STRIDE");
  return text != nullptr ? std::atoi(text) : FAULT_STRIDE;
}

struct {
  long fullDisks = 0;
  long repairs = 0;
  long kills = 0;
} counts;

int Perform(const Operation& operation, World& world) {
  try {
    return operation.body(world);
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "an exception came out: " << exception.what();
    return kMismatch;
  }
}

void ExpectNothingLeft(const heap_faults::Watch& watch) {
  // A thread that has done its work may still be on its way out.
  for (int i = 0; i < 100 && watch.Live() != 0; ++i)
    usleep(1000);
  EXPECT_EQ(0u, watch.Live());
}

// While it lives, no file grows beyond `size` bytes, as on a full disk.
class FullDisk {
 public:
  explicit FullDisk(int size) {
    ++counts.fullDisks;
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &former_);
    const rlimit limit{static_cast<rlim_t>(size), former_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &former_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit former_{};
};

class Faults : public ::testing::TestWithParam<Operation> {
 protected:
  // What the operation comes to where nothing fails.
  struct Outcome {
    Lines after;
    World::ByClass content;
    std::string result;
    int calls = 0;    // of the platform
    int writes = 0;   // of them those that make files longer
    int longest = 0;  // bytes of the longest file
  };

  Faults() {
    World world;
    Prepare(world);
    world.Now();
    {
      const FailingCall counter(0, [this](Call call, const std::string&) {
        ++whole_.calls;
        whole_.writes += call == Call::kWriteFile || call == Call::kCopyFile ? 1 : 0;
        return false;
      });
      EXPECT_EQ(0, Perform(operation_, world));
    }
    whole_.after = world.Now();
    whole_.content = world.Content();
    whole_.result = world.result;
    for (const auto& [name, bytes] : ReadTree(world.folder_ + "/s"))
      whole_.longest = std::max(whole_.longest, static_cast<int>(bytes.size()));
  }

  void Prepare(World& world) const {
    if (operation_.prepare) operation_.prepare(world);
  }

  // Behind a run with a failure. `leftOver`: lines that stay because nothing could be taken back.
  void Judge(World& world, const Lines& before, int code, Names leftOver) {
    leftOver = leftOver + (code == 0 ? operation_.shrugs : operation_.leaves);
    if (code != 0) {
      EXPECT_THAT(operation_.codes, ::testing::Contains(code));
      EXPECT_EQ("", Difference(before, world.Now(), leftOver)) << code;
      EXPECT_EQ(0, Perform(operation_, world)) << "behind " << code;
    }
    if (operation_.encodes) counts.repairs += world.Repair();
    EXPECT_TRUE(whole_.content == world.Content());
    EXPECT_EQ(whole_.result, world.result);
    if (code == 0 || operation_.leaves.empty()) {
      EXPECT_EQ("", Difference(whole_.after, world.Now(), leftOver));
    }
  }

  const Operation& operation_ = GetParam();
  Outcome whole_;
};

const Names kNewFiles = {"+ disk "};

TEST_P(Faults, OfMemory) {
  for (const bool forGood : {false, true}) {
    bool fired = true;
    for (int n = 1; fired && !HasFailure(); n += Stride()) {
      SCOPED_TRACE(::testing::Message()
                   << "allocation " << n << (forGood ? " and all behind" : ""));
      const heap_faults::Watch watch;
      {
        World world;
        Prepare(world);
        const Lines before = world.Now();
        FailingAllocation fault(n, forGood);
        const int code = Perform(operation_, world);
        fired = fault.Fired();
        EXPECT_TRUE(fired || code == 0);
        Judge(world, before, code, forGood ? kNewFiles : Names());
      }
      if (!HasFailure()) ExpectNothingLeft(watch);
    }
  }
}

bool TakesBack(Call call) {
  return call == Call::kDeleteFile || call == Call::kRemoveDirectory ||
         call == Call::kGetFileAttributes;
}

TEST_P(Faults, OfThePlatform) {
  constexpr DWORD kErrors[] = {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_FILE_EXISTS,
                               ERROR_DISK_FULL,     ERROR_IO_DEVICE,      platform::kShortTransfer};
  // Sampled runs take turns with the errors.
  const int step = Stride() == 1 ? 1 : static_cast<int>(std::size(kErrors)) + 1;
  const int all = whole_.calls * static_cast<int>(std::size(kErrors)) * 2;
  // Its threads make their calls in any order; a test of its own fails them kind by kind.
  if (operation_.name == "program") return;
  { SCOPED_TRACE("room for the list of traces"); }
  for (int i = 0; i < all && !HasFailure(); i += step) {
    const int n = i / 2 / static_cast<int>(std::size(kErrors)) + 1;
    const DWORD error = kErrors[static_cast<std::size_t>(i / 2) % std::size(kErrors)];
    const bool forGood = i % 2 == 1;
    const heap_faults::Watch watch;
    {
      World world;
      Prepare(world);
      const Lines before = world.Now();
      auto fault = std::make_unique<FailingCall>(
          n,
          [error](Call call, const std::string&) {
            return error != platform::kShortTransfer || call == Call::kReadFile ||
                   call == Call::kWriteFile;
          },
          error, forGood);
      const int code = Perform(operation_, world);
      SCOPED_TRACE(::testing::Message() << "call " << n << ": " << fault->What() << ", error "
                                        << error << (forGood ? " and all behind" : ""));
      if (code == 0 && fault->Fired() && error != platform::kShortTransfer) {
        EXPECT_TRUE(operation_.untold.count(fault->Kind()) != 0);
      }
      const bool leaves = forGood || TakesBack(fault->Kind());
      fault.reset();
      Judge(world, before, code, leaves ? kNewFiles : Names());
    }
    if (!HasFailure()) ExpectNothingLeft(watch);
  }
}

TEST_P(Faults, OfAFullDisk) {
  for (int size = whole_.writes == 0 ? whole_.longest : 0; !HasFailure(); size += Stride()) {
    SCOPED_TRACE(size);
    World world;
    Prepare(world);
    const Lines before = world.Now();
    auto disk = std::make_unique<FullDisk>(std::min(size, whole_.longest));
    const int code = Perform(operation_, world);
    disk.reset();
    Judge(world, before, code, {});
    if (size < whole_.longest) continue;
    EXPECT_EQ(0, code);
    break;
  }
}

// --- Kills ---

// Does the operation in a process that stops itself at the n-th platform call; false where it came
// to its end.
bool IsKilled(const Operation& operation, World& world, int n) {
  const pid_t child = fork();
  if (child == 0) {
    const FailingCall counter(0, [&n](Call, const std::string&) {
      if (--n == 0) raise(SIGKILL);
      return false;
    });
    _exit(Perform(operation, world) == 0 && !::testing::Test::HasFailure() ? 0 : 1);
  }
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : status == 0);
  return WIFSIGNALED(status);
}

TEST_P(Faults, EndingTheProcess) {
  bool killed = whole_.calls > 0;
  for (int n = 1; killed && !HasFailure(); n += Stride()) {
    SCOPED_TRACE(n);
    World world;
    ASSERT_TRUE(world.Save());
    Prepare(world);
    const Lines before = world.Now();
    killed = IsKilled(operation_, world, n);
    counts.kills += killed ? 1 : 0;
    // Files go in a close and in undo alone, and none that is saved.
    EXPECT_EQ("", Difference(before, world.Now(), kNewFiles + operation_.deletes));
    if (!killed) continue;
    EXPECT_EQ(world.saved, world.Reopen());
  }
}

INSTANTIATE_TEST_SUITE_P(, Faults, ::testing::ValuesIn(AllOperations()), [](const auto& test) {
  std::string name = test.param.name;
  for (char& c : name) {
    if (c == '+') c = 'P';
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return name;
});

class Totals : public ::testing::Environment {
 public:
  void TearDown() override {
    std::cout << heap_faults::Failures() << " allocations failed, " << FailingCall::Failures()
              << " platform calls failed, " << counts.fullDisks << " full disks, " << counts.repairs
              << " encoded files repaired, " << counts.kills << " kills survived" << std::endl;
  }
};
const auto* const totals = ::testing::AddGlobalTestEnvironment(new Totals);

}  // namespace
}  // namespace sdtest
