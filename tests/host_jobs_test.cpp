// Imports by several processes at a time.
#include <map>

#include "host/import.h"
#include "host/session.h"
#include "tests/host_support.h"

namespace {

using namespace host_test;
using samplehost::ImportResult;
using samplehost::Session;

class Jobs : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    for (unsigned i = 0; i < 8; ++i) {
      const std::string name = "s" + std::to_string(i) + ".wav";
      folder.Put(name, Wav({.channels = 1 + i % 2, .length = 5000 * (9 - i)}));
    }
    folder.Put("s4.wav", "no sound at all");
    folder.Put("more/s1.wav", Wav({.length = 14}));
  }

  // What each node of a database holds, raw and encoded, in the order of the list.
  std::vector<std::string> Contents(const std::string& database) {
    std::vector<std::string> contents;
    const Json list = Told(0, "list " + database);
    for (const Json& node : list["nodes"]) {
      const std::string raw = node["classes"][0]["raw_file"];
      contents.push_back(node["node"].get<std::string>() + BytesOf(raw) + BytesOf(EncodedOf(raw)));
    }
    return contents;
  }
};

TEST_F(Jobs, MakeTheSameNodesInTheSameOrder) {
  Run(0, "new other.db --class High=1 --folder other");
  const std::string line =
      " s0.wav s1.wav s2.wav s3.wav s4.wav gone.wav s5.wav more s6.wav s7.wav"
      " --class High --format ADPCM";
  const RunResult one = Run(1, "import game.db" + line);
  const RunResult three = Run(1, "import other.db" + line + " --jobs 3");
  EXPECT_EQ(one.out, three.out);
  EXPECT_EQ(one.err, three.err);
  ExpectParts(three.out, {"s1-2\tmore/s1.wav"});
  const std::vector<std::string> contents = Contents("game.db");
  EXPECT_EQ(contents.size(), 8u);
  EXPECT_EQ(contents, Contents("other.db"));
  Run(0, "verify other.db");
  EXPECT_THAT(Run(0, "clean other.db --dry-run").err, HasSubstr("No folder is left over"));
}

TEST_F(Jobs, LeaveNothingOfWhatWasUndoneOrDropped) {
  const std::map<std::string, std::size_t> filesBehind = {
      {"quit --discard", 0},
      {"undo\nundo\nquit --discard", 0},
      {"undo\nsave", 2},
      {"format s0 High PCM8\nsave", 4},
      {"format s0 High PCM8\nundo\nquit --discard", 0},
      {"remove s0\nsave", 2},
      {"remove s0\nundo\nsave", 4},
  };
  for (const auto& [script, files] : filesBehind) {
    SCOPED_TRACE(script);
    Run(0, "new fresh.db --class High=1 --folder fresh");
    Script(0, "import s0.wav s1.wav --class High --format ADPCM -j 2\n" + script, "fresh.db");
    EXPECT_EQ(FilesIn(folder / "fresh").size(), files);
    Run(0, "verify fresh.db");
    std::filesystem::remove(folder / "fresh.db");
    std::filesystem::remove_all(folder / "fresh");
  }
}

// The processes that this one has started.
std::vector<pid_t> Children() {
  std::ifstream list("/proc/self/task/" + std::to_string(getpid()) + "/children");
  return {std::istream_iterator<pid_t>(list), {}};
}

TEST_F(Jobs, GoOnWhereAWorkerDies) {
  Session session(SAMPLEDATA_SO, folder.Path("game.db"));
  std::vector<std::string> files;
  for (const char* name : {"s0.wav", "s1.wav", "s2.wav", "s3.wav", "s5.wav", "s6.wav"})
    files.push_back(folder / name);
  const ImportResult result = samplehost::ImportFiles(
      session, files, {"High", 2, "", 2}, [](std::size_t number, std::size_t, const auto&) {
        // Both are idle or at work here; those that are idle get their next file all the same.
        if (number == 3) {
          for (const pid_t child : Children())
            kill(child, SIGKILL);
        }
        return true;
      });
  EXPECT_EQ(result.imported.size() + result.failures.size(), files.size());
  EXPECT_FALSE(result.failures.empty());
  EXPECT_GE(result.imported.size(), 2u);
  for (const auto& failure : result.failures)
    EXPECT_THAT(failure.reason, HasSubstr("signal 9"));
  EXPECT_THAT(Children(), ::testing::IsEmpty());
  session.Save();
  EXPECT_EQ(session.root().samples().size(), result.imported.size());
}

}  // namespace
