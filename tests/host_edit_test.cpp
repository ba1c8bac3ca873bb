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
  Run(0, "import game.db 'kick drum.wav' --class Low --format PCM8 --node 'kick drum'");
  const RunResult result = RunEdit(0, "echo \"editing $1\"; echo careful >&2; cp new.wav \"$1\"");
  ExpectParts(result.out, {"kick drum (High).wav\n", "kick drum (Low).wav\n"});
  EXPECT_EQ(result.err, "careful\ncareful\n");
  const Json classes = Info("kick drum")["classes"];
  for (const Json& sample : classes) {
    EXPECT_EQ(sample["length"], 700);
    EXPECT_EQ(BytesOf(sample["raw_file"]), BytesOf(folder / "new.wav"));
  }
  EXPECT_EQ(classes[0]["format"], "ADPCM");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 4u) << "the old files went with the save";
}

TEST_F(Edit, TakesNothingWhereTheProgramFailsOrChangesNothing) {
  EXPECT_THAT(RunEdit(1, "cp new.wav \"$1\"; exit 3").err, HasSubstr("\"sh\" ended with 3"));
  EXPECT_THAT(RunEdit(1, "kill -9 $$").err, HasSubstr("ended with 137"));
  EXPECT_THAT(RunEdit(0, "exit 0").err, HasSubstr("no file has changed"));
  EXPECT_THAT(RunEdit(1, "head -c 900 new.wav > \"$1\"").err,
              HasSubstr("kick drum (High).wav\" cannot be taken back: The header promises"));
  EXPECT_THAT(RunEdit(1, "rm \"$1\"").err, HasSubstr("no such file"));
  EXPECT_THAT(Run(1, "edit game.db 'kick drum' -- no-such-program").err,
              HasSubstr("could not be started"));
  Run(0, "lock game.db 'kick drum'");
  EXPECT_THAT(RunEdit(1, "cp new.wav \"$1\"").err, HasSubstr("unlock"));
  Run(2, "edit game.db 'kick drum'");
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
