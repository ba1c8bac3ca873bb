// Ends samplehost with kill -9 at random moments of imports, format changes and removals, and opens
// the database again: it has to be what it was before the verb or what it is after it, every raw
// file of it byte for byte.
//
// KILL_TEST_RUNS gives the number of kills, KILL_TEST_SEED the seed (scripts/kill-test sets both).
#include <signal.h>

#include <chrono>
#include <iostream>
#include <map>
#include <random>
#include <thread>

#include "tests/host_support.h"

namespace {

using namespace host_test;

constexpr unsigned kSounds = 8;
constexpr unsigned kDefaultRuns = 10;

// What a database is to a user: each node's format and sound.
using State = std::map<std::string, std::pair<std::string, std::string>>;

class KillTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    for (unsigned i = 0; i < kSounds; ++i) {
      folder.Put("in/s" + std::to_string(i) + ".wav", Wav({.length = 2000 + 500 * i}));
    }
  }

  State Read() {
    State state;
    const nlohmann::json list = List();
    for (const nlohmann::json& node : list["nodes"]) {
      const nlohmann::json sample = node["classes"][0];
      state[node["node"]] = {sample["format"], BytesOf(sample["raw_file"])};
      EXPECT_EQ(BytesOf(sample["raw_file"]), BytesOf(sample["original"])) << node;
    }
    return state;
  }

  // A verb that changes something, and the state behind it.
  struct Change {
    std::vector<std::string> arguments;
    State after;
  };

  Change Choose(const State& now) {
    const auto some = std::next(now.begin(), now.empty() ? 0 : Below(now.size()));
    const int kind = now.empty() ? 0 : Below(4);
    Change change{{}, now};
    if (kind < 2) {
      if (now.size() > 6 * kSounds) return Remove(now, some->first);
      const std::string format = kind == 0 ? "PCM16" : "ADPCM";
      change.arguments = {"import", "game.db", "in", "--class", "High", "--format", format};
      for (unsigned i = 0; i < kSounds; ++i) {
        const std::string stem = "s" + std::to_string(i);
        std::string name = stem;
        for (int n = 2; change.after.count(name) != 0; ++n)
          name = stem + "-" + std::to_string(n);
        change.after[name] = {format, BytesOf(folder / ("in/" + stem + ".wav"))};
      }
      return change;
    }
    if (kind == 2) return Remove(now, some->first);
    const std::string format = some->second.first == "PCM8" ? "PCM16" : "PCM8";
    change.arguments = {"format", "game.db", some->first, "High", format};
    change.after[some->first].first = format;
    return change;
  }

  static Change Remove(const State& now, const std::string& node) {
    Change change{{"remove", "game.db", node}, now};
    change.after.erase(node);
    return change;
  }

  int Below(std::size_t count) { return static_cast<int>(random_() % count); }

  std::mt19937 random_;
};

TEST_F(KillTest, LeavesTheLastSavedState) {
  using Clock = std::chrono::steady_clock;
  const unsigned runs = FromEnvironment("KILL_TEST_RUNS", kDefaultRuns);
  const unsigned seed = FromEnvironment("KILL_TEST_SEED", std::random_device()());
  std::cout << "repeat with: scripts/kill-test " << runs << ' ' << seed << std::endl;
  random_.seed(seed);
  State now = Read();
  std::map<std::string, Clock::duration> lasts;  // how long a verb takes when nobody kills it
  unsigned kills = 0;
  unsigned unchanged = 0;
  for (unsigned run = 0; kills < runs && !HasFailure() && run < 10 * runs; ++run) {
    const Change change = Choose(now);
    const auto start = Clock::now();
    const pid_t child = Start(folder.path, change.arguments);
    const auto known = lasts.find(change.arguments[0]);
    if (known != lasts.end()) {
      std::this_thread::sleep_for(known->second * Below(1301) / 1000);
      kill(child, SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const bool killed = WIFSIGNALED(status);
    if (known == lasts.end()) lasts[change.arguments[0]] = Clock::now() - start;
    const State then = Read();
    if (killed) {
      ++kills;
      EXPECT_TRUE(then == now || then == change.after) << "run " << run;
      unchanged += then == now ? 1 : 0;
    } else {
      EXPECT_EQ(status, 0) << BytesOf(folder / ".err");
      EXPECT_TRUE(then == change.after) << "run " << run << BytesOf(folder / ".err");
    }
    now = then;
  }
  EXPECT_EQ(kills, runs);
  std::cout << kills << " kills, " << unchanged << " of them ahead of the commit" << std::endl;
}

}  // namespace
