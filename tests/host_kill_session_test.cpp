// Ends a session with kill -9 at random moments of a script of everything that a session can do.
// Behind each kill the saved state has to be whole, and what is left over has to be listed.
//
// KILL_TEST_RUNS gives the number of kills, KILL_TEST_SEED the seed (scripts/kill-test sets both).
#include <signal.h>

#include <chrono>
#include <iostream>
#include <random>
#include <thread>

#include "tests/host_support.h"

namespace {

using namespace host_test;
namespace fs = std::filesystem;

constexpr unsigned kSounds = 4;
constexpr unsigned kLines = 25;
constexpr unsigned kDefaultRuns = 10;

class KillSessionTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    for (unsigned i = 0; i < kSounds; ++i)
      folder.Put("s" + std::to_string(i) + ".wav", Wav({.length = 2000 + 500 * i}));
    fs::create_directories(folder / "out");
    fs::create_directories(folder / "orphans");
  }

  unsigned Below(unsigned count) { return static_cast<unsigned>(random_() % count); }
  std::string Node() { return "s" + std::to_string(Below(kSounds)); }
  std::string Class() { return Below(2) == 0 ? "High" : "Low"; }
  std::string Format() {
    const char* const formats[] = {"PCM16", "PCM8", "ADPCM", "ADPCM+", "ADPCMVS"};
    return formats[Below(5)];
  }

  std::string Line() {
    const std::string node = Node();
    switch (Below(12)) {
      case 0:
      case 1:
        return "import " + node + ".wav --node " + node + " --class " + Class() + " --format " +
               Format();
      case 2:
        return "format " + node + " " + Class() + " " + Format();
      case 3:
        return "remove " + node + " " + Class();
      case 4:
        return Below(2) == 0 ? "delete " + node : "copy " + node + " " + Node();
      case 5:
      case 6:
        return "undo";
      case 7:
        return "save-node " + node + " file.node --force\nload-node " + Node() + " file.node";
      case 8:
        return "rename " + node + " " + Node() + "\nselect " + node + " " + Class();
      case 9:
        return "checkout " + node + " out --force\nexport " + Node() + " 'out/" + node +
               " (High).wav' --class High --as raw --force\ncheckin " + node;
      case 10:
        return "undo-checkin " + node;
      default:
        return "save";
    }
  }

  // The folders in the sample folder that no node of the list names.
  std::set<std::string> Unnamed() {
    std::set<std::string> folders;
    for (const auto& entry : fs::directory_iterator(folder / "samples"))
      folders.insert(entry.path().string());
    const nlohmann::json list = List();
    for (const nlohmann::json& node : list["nodes"]) {
      for (const nlohmann::json& sample : node["classes"])
        folders.erase(fs::path(sample["raw_file"].get<std::string>()).parent_path().string());
    }
    return folders;
  }

  void ExpectWhole(const std::string& script) {
    const RunResult verified = Expect(0, {"verify", "game.db"});
    if (verified.code != 0) ADD_FAILURE() << verified.out << script;
    const std::string listed = Expect(0, {"clean", "game.db", "--dry-run"}).out;
    std::set<std::string> found;
    for (std::size_t at = 0; (at = listed.find(folder.path, at)) != std::string::npos; ++at)
      found.insert(listed.substr(at, listed.find(' ', at) - at));
    EXPECT_EQ(found, Unnamed()) << script;
  }

  std::mt19937 random_;
};

TEST_F(KillSessionTest, LeavesAWholeStateAndKnowsWhatIsLeftOver) {
  using Clock = std::chrono::steady_clock;
  const unsigned runs = FromEnvironment("KILL_TEST_RUNS", kDefaultRuns);
  const unsigned seed = FromEnvironment("KILL_TEST_SEED", std::random_device()());
  std::cout << "repeat with: scripts/kill-test " << runs << ' ' << seed << std::endl;
  random_.seed(seed);
  Clock::duration lasts{};
  std::size_t leftOver = 0;
  unsigned kills = 0;
  for (unsigned run = 0; kills < runs && !HasFailure() && run < 10 * runs; ++run) {
    std::string script;
    for (unsigned i = 0; i < kLines; ++i)
      script += Line() + "\n";
    script += Below(2) == 0 ? "save\nquit\n" : "quit --discard\n";
    folder.Put("script.txt", script);
    const auto start = Clock::now();
    const pid_t child =
        Start(folder.path, {"open", "game.db", "--script", "script.txt", "--keep-going"});
    if (run > 0) {
      std::this_thread::sleep_for(lasts * Below(1001) / 1000);
      kill(child, SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) ++kills;
    EXPECT_TRUE(WIFEXITED(status) || WTERMSIG(status) == SIGKILL) << script;
    lasts = std::max(lasts, run == 0 ? Clock::now() - start : Clock::duration{});
    ExpectWhole(script);
    leftOver += Unnamed().size();
    if (Below(4) == 0) {
      Expect(0, {"clean", "game.db"});
      EXPECT_TRUE(Unnamed().empty());
    }
  }
  EXPECT_EQ(kills, runs);
  std::cout << kills << " kills, " << leftOver << " folders listed as left over" << std::endl;
}

}  // namespace
