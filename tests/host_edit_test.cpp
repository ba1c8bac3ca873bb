// edit: what a program makes of a node's sounds comes back, or nothing does.
#include "tests/host_support.h"

namespace {

using namespace host_test;

class Edit : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    std::filesystem::create_directory(folder / "tmp");
    setenv("TMPDIR", (folder / "tmp").c_str(), 1);
    folder.Put("kick drum.wav", Wav({.length = 500}));
    folder.Put("new.wav", Wav({.length = 700}));
    Import("kick drum.wav", "ADPCM");
    before_ = FilesIn(folder / "samples");
  }
  void TearDown() override {
    unsetenv("TMPDIR");
    EXPECT_TRUE(std::filesystem::is_empty(folder / "tmp"));
  }

  RunResult RunEdit(int code, const std::string& script) {
    folder.Put("louder.sh", script);
    return Expect(code, {"edit", "game.db", "kick drum", "--", "sh", "louder.sh"});
  }
  void ExpectUntouched() {
    EXPECT_EQ(FilesIn(folder / "samples"), before_);
    EXPECT_EQ(Info("kick drum")["classes"][0]["length"], 500);
  }

  std::set<std::string> before_;
};

TEST_F(Edit, TakesWhatTheProgramChangedInEachClass) {
  Expect(0, {"import", "game.db", "kick drum.wav", "--class", "Low", "--format", "PCM8", "--node",
             "kick drum"});
  const RunResult result = RunEdit(0, "echo \"editing $1\"; echo careful >&2; cp new.wav \"$1\"");
  EXPECT_NE(result.out.find("kick drum (High).wav\n"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("kick drum (Low).wav\n"), std::string::npos) << result.out;
  EXPECT_EQ(result.err, "careful\ncareful\n");
  const nlohmann::json classes = Info("kick drum")["classes"];
  for (const nlohmann::json& sample : classes) {
    EXPECT_EQ(sample["length"], 700);
    EXPECT_EQ(BytesOf(sample["raw_file"]), BytesOf(folder / "new.wav"));
  }
  EXPECT_EQ(classes[0]["format"], "ADPCM");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 4u) << "the old files went with the save";
  EXPECT_NE(
      Expect(0, {"edit", "--help"}).out.find("  samplehost edit game.db kick -- sh louder.sh"),
      std::string::npos);
}

TEST_F(Edit, TakesNothingWhereTheProgramFailsOrChangesNothing) {
  const RunResult failed = RunEdit(1, "cp new.wav \"$1\"; exit 3");
  EXPECT_NE(failed.err.find("\"sh\" ended with 3"), std::string::npos) << failed.err;
  EXPECT_NE(RunEdit(1, "kill -9 $$").err.find("ended with 137"), std::string::npos);
  EXPECT_NE(RunEdit(0, "exit 0").err.find("no file has changed"), std::string::npos);
  const RunResult cut = RunEdit(1, "head -c 900 new.wav > \"$1\"");
  EXPECT_NE(cut.err.find("kick drum (High).wav\" cannot be taken back: The header promises"),
            std::string::npos)
      << cut.err;
  EXPECT_NE(RunEdit(1, "rm \"$1\"").err.find("no such file"), std::string::npos);
  EXPECT_NE(Expect(1, {"edit", "game.db", "kick drum", "--", "no-such-program"})
                .err.find("could not be started"),
            std::string::npos);
  Expect(0, {"lock", "game.db", "kick drum"});
  EXPECT_NE(RunEdit(1, "cp new.wav \"$1\"").err.find("unlock"), std::string::npos);
  Expect(2, {"edit", "game.db", "kick drum"});
  ExpectUntouched();
}

TEST_F(Edit, GivesTheProgramItsArgumentsAsTheyStand) {
  const std::vector<std::string> words = {"two words", "", "a \"b\" \\", "c:\\d\\\\\"", "$HOME"};
  std::vector<std::string> arguments = {"edit", "game.db", "kick drum", "--", "printf", "<%s>"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  const std::string out = Expect(0, arguments).out;
  std::string expected;
  for (const std::string& word : words)
    expected += "<" + word + ">";
  EXPECT_EQ(out.substr(0, expected.size()), expected);
  ExpectUntouched();
}

}  // namespace
