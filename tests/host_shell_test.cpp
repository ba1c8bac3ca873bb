// A session line by line: what scripts do and leave, undo with all that hangs on it, node files,
// and the prompt on a terminal.
#include <poll.h>
#include <pty.h>

#include "host/paths.h"
#include "host/shell.h"
#include "tests/host_support.h"

namespace {

using namespace host_test;
using samplehost::QuoteWord;
using samplehost::Session;
using samplehost::SplitLine;

class Shell : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    folder.Put("other.wav", Wav({.length = 500}));
    std::filesystem::create_directories(folder / "out");
  }

  std::string Raw(const std::string& node, std::size_t n = 0) { return BytesOf(RawFile(node, n)); }

  // Nothing but what the database names is left on the disk.
  void ExpectTidy() {
    EXPECT_EQ(Run(0, "clean game.db --dry-run").out, "");
    std::size_t samples = 0;
    const Json list = List();
    for (const Json& node : list["nodes"])
      samples += node["classes"].size();
    EXPECT_EQ(FilesIn(folder / "samples").size(), 2 * samples);
  }

  std::string Classes() { return Run(0, "class game.db list").out; }
};

TEST_F(Shell, AScriptDoesADaysWork) {
  Script(0,
         "# the first half\n"
         "import kick.wav --class High --format ADPCM\n"
         "import other.wav kick.wav --class High --format PCM16  # other, kick-2\n"
         "undo\n"
         "import 'kick.wav' --class Low --format PCM8 --node kick\n"
         "copy kick spare\n"
         "rename spare \"big kick\"\n"
         "remove \"big kick\" Low\n"
         "select kick Low\n"
         "history\n"
         "save\n"
         "quit\n");
  EXPECT_THAT(Classes(), HasSubstr("Low    10     1\nHigh   100    3\n"));
  const RunResult second = Script(0,
                                  "checkout kick out\n"
                                  "status\n"
                                  "export other 'out/kick (High).wav' --class High --as raw "
                                  "--force\n"
                                  "status\n"
                                  "checkin kick\n"
                                  "save\n"
                                  "status\n"
                                  "undo-checkin kick\n"
                                  "checkout other out\n"
                                  "undo-checkout other\n"
                                  "checkout other out\n"
                                  "redo-checkout other\n"
                                  "save\n"
                                  "quit\n");
  ExpectParts(second.out, {"kick  High   unchanged", "kick  High   changed", "all is saved"});
  EXPECT_EQ(Raw("kick"), Wav({}));
  EXPECT_EQ(Raw("kick", 1), Wav({}));
  EXPECT_EQ(Raw("big kick"), Wav({}));
  EXPECT_EQ(List()["nodes"].size(), 3u);
  ExpectTidy();
}

TEST_F(Shell, StopsAtTheFailingLineAndDropsWhatWasNotSaved) {
  const std::string lines =
      "import kick.wav --class High --format PCM16\nsave\n\nimport other.wav --class High "
      "--format PCM8\nselect kick Low\nlock kick\n";
  RunResult result = Script(1, lines);
  ExpectParts(result.err, {"script.txt:5: ", "not saved"});
  EXPECT_EQ(List()["nodes"].size(), 1u);
  ExpectTidy();
  result = Script(1, lines + "frobnicate\nunlock 'kick\nsave\n", "game.db", "--keep-going");
  ExpectParts(result.err, {":5: ", ":7: ", ":8: "});
  EXPECT_EQ(List()["nodes"].size(), 3u);
  // An end with unsaved changes is a failure unless they are dropped by word.
  Script(1, "import other.wav --class Low --format PCM8\nquit\n");
  Script(0,
         "import other.wav --class Low --format PCM8\nformat kick-2 High ADPCM\ndelete other\n"
         "quit --discard\nfrobnicate\n");
  Run(1, "open game.db --script missing.txt");
  ExpectTidy();
}

TEST_F(Shell, UndoGoesBackThroughEverything) {
  Import("kick.wav");
  Import("other.wav");
  const RunResult result = Script(1,
                                  "format kick High ADPCM\n"
                                  "import other.wav --class Low --format PCM8 --node kick\n"
                                  "copy kick kick-2\n"
                                  "delete kick\n"
                                  "rename kick-2 kick\n"
                                  "remove kick Low\n"
                                  "select kick High\n"
                                  "undo\nundo\nundo\nundo\nundo\nundo\nundo\n"
                                  "class list\n"
                                  "save\n"
                                  "undo\n");
  EXPECT_THAT(result.err, HasSubstr("script.txt:17: There is nothing to undo"));
  EXPECT_THAT(result.out, HasSubstr("Low    10     0\nHigh   100    2\n"));
  EXPECT_EQ(Raw("kick"), Wav({}));
  ExpectTidy();
}

TEST_F(Shell, UndoIsRefusedWhereItWouldDoHarm) {
  const std::string start = "import kick.wav --class High --format PCM16\n";
  const std::pair<const char*, const char*> refused[] = {
      {"lock kick\nundo\n", "locked"},
      {"checkout kick out\nundo\n", "checked out"},
      {"checkout kick out\ndelete kick\n", "checked out"},
      {"checkout kick out\nrename kick x\n", "checked out"},
      {"checkout kick out\nload-setup none.node\n", "checked out"},
      {"remove kick High\nclass remove High\nundo\n", "class add High"},
      {"checkout kick out\ncheckin kick\nformat kick High PCM8\nundo-checkin kick\n", "--force"},
      {"copy kick kick\n", "already"},
      {"copy kick 'a/b'\n", "cannot be a name"},
      {"checkout kick missing\n", "Make it first"}};
  for (const auto& [lines, reason] : refused) {
    EXPECT_THAT(Script(1, start + lines).err, HasSubstr(reason));
    ExpectTidy();
  }
  // The edits of an earlier check-out are not written over unasked.
  folder.Put("out/kick (High).wav", "mine");
  Script(1, start + "checkout kick out\n");
  EXPECT_EQ(folder.Get("out/kick (High).wav"), "mine");
  Script(0, start + "checkout kick out --force\nquit --discard\n");
  EXPECT_EQ(folder.Get("out/kick (High).wav"), Wav({}));
}

// A loaded node has files of its own, so that neither database can delete the other's.
TEST_F(Shell, NodeFilesCarryNodesWithinAndBetweenDatabases) {
  Script(0,
         "import kick.wav --class High --format ADPCM\n"
         "save-node kick kick.node\n"
         "save-setup classes.node\n"
         "format kick High PCM8\n"
         "save\n"
         "load-node kick kick.node\n"
         "load-node again kick.node\n"
         "undo\n"
         "save\n"
         "save-node kick kick.node --force\n");
  EXPECT_EQ(Info("kick")["classes"][0]["format"], "ADPCM");
  EXPECT_THAT(Classes(), HasSubstr("High   100    1\n"));
  ExpectTidy();
  folder.Put("far/kick.wav", Wav({}));
  Run(0, "new far/away.db --class Other=1");
  Script(0,
         "load-setup classes.node\n"
         "load-node thump kick.node --from game.db\n"
         "save\n"
         "format thump High PCM16\n"
         "save\n",
         "far/away.db");
  EXPECT_EQ(Raw("kick"), Wav({}));
  ExpectTidy();
  EXPECT_EQ(Told(0, "list far/away.db")["nodes"][0]["classes"][0]["format"], "PCM16");
  EXPECT_THAT(Run(0, "class far/away.db list").out, HasSubstr("High   100    1"));
  // What cannot be loaded changes nothing; nor is a file written over.
  Script(1, "load-node kick kick.wav\n");
  Script(1, "load-node kick kick.node --from far/away.db\n");
  Script(1, "load-setup kick.node\n");
  Script(1, "save-node kick kick.wav\n");
  EXPECT_EQ(BytesOf(folder / "kick.wav"), Wav({}));
  EXPECT_EQ(Info("kick")["classes"][0]["format"], "ADPCM");
  EXPECT_THAT(Classes(), HasSubstr("High   100    1\n"));
  ExpectTidy();
}

TEST_F(Shell, ASetupFileKeepsTheClassesThatAreInUse) {
  Run(0, "new other.db --class high=100 --class Mid=50 --folder two");
  Script(0, "save-setup classes.node\n", "other.db");
  const RunResult result = Script(0,
                                  "import kick.wav --class High --format PCM16\n"
                                  "load-setup classes.node\n"
                                  "class list\n"
                                  "import kick.wav --class Mid --format PCM16\n"
                                  "save\n");
  EXPECT_THAT(result.out, HasSubstr("Mid    50     0\nHigh   100    1\n"));
  EXPECT_EQ(FilesIn(folder / "two").size(), 2u) << "the folder is the loaded one's";
}

// A terminal with samplehost behind it.
class Terminal {
 public:
  explicit Terminal(const Folder& folder) {
    child_ = forkpty(&fd_, nullptr, nullptr, nullptr);
    if (child_ != 0) return;
    setenv("XDG_STATE_HOME", (folder / "state").c_str(), 1);
    setenv("TERM", "xterm", 1);
    // The line editor keeps the names of added keys for good, which is no leak of ours.
    setenv("ASAN_OPTIONS", "intercept_tls_get_addr=0:detect_leaks=0", 1);
    if (chdir(folder.path.c_str()) == 0) execl(SAMPLEHOST, SAMPLEHOST, "open", "game.db", nullptr);
    _exit(127);
  }
  ~Terminal() {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
    }
    close(fd_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // A control key means something else until the editor, which shows its prompt first, has switched
  // the terminal over.
  void Type(const std::string& keys) {
    if (keys == "\x03" || keys == "\x04") usleep(300000);
    EXPECT_EQ(write(fd_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  // Waits until the screen shows `text` behind what was shown before.
  void Await(const std::string& text) {
    constexpr int kPatience = 20000;  // ms
    while (seen_.find(text) == std::string::npos) {
      pollfd ready{fd_, POLLIN, 0};
      char block[4096];
      const bool shows = poll(&ready, 1, kPatience) == 1;
      const ssize_t count = shows ? read(fd_, block, sizeof block) : -1;
      if (count <= 0) {
        ADD_FAILURE() << "no \"" << text << "\" in: " << seen_;
        return;
      }
      seen_.append(block, static_cast<std::size_t>(count));
    }
    seen_.erase(0, seen_.find(text) + text.size());
  }

  // The exit code of the program, which ends by itself.
  int End() {
    char block[4096];
    while (read(fd_, block, sizeof block) > 0) {
    }
    int status = 0;
    waitpid(child_, &status, 0);
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  }

 private:
  int fd_ = -1;
  pid_t child_ = -1;
  std::string seen_;
};

TEST_F(Shell, ATerminalHasAPromptWithCompletionAndHistory) {
  Script(0, "import kick.wav --class High --format PCM16\nrename kick 'big kick'\nsave\n");
  {
    Terminal terminal(folder);
    const std::pair<const char*, const char*> steps[] = {
        {"stat\t\r", "all is saved"},  // a verb
        {"select bi\tHi\t\r", ""},     // a node with a blank, and a class
        {"history\r", "change selected quality class"},
        {"copy nobody x\r", "no node \"nobody\""},  // a failure does not end the session
        {"un\t", "undo-checkin"},                   // more than one verb
        {"\x03", ""},                               // drops the line, not the session
        {"status\r", "unsaved changes"},
        {"\x04", "[y/N]"},
    };
    for (const auto& [keys, shown] : steps) {
      terminal.Await("samplehost> ");
      terminal.Type(keys);
      terminal.Await(shown);
    }
    terminal.Type("n\r");
    terminal.Await("samplehost> ");
    terminal.Type("save\rquit\r");
    EXPECT_EQ(terminal.End(), 0);
  }
  Terminal terminal(folder);
  terminal.Await("samplehost> ");
  terminal.Type("\x1b[A\x1b[A\x1b[A\r");  // three lines up, in the session before this one
  terminal.Await("all is saved");
  EXPECT_TRUE(std::filesystem::exists(folder / "state/samplehost/history"));
  terminal.Type("quit\r");
  EXPECT_EQ(terminal.End(), 0);
}

TEST(ShellWords, AreSplitAndQuoted) {
  using Words = std::vector<std::string>;
  EXPECT_EQ(SplitLine(" a  'b c'\t\"d 'e'\"x# #f g"), (Words{"a", "b c", "d 'e'x#"}));
  EXPECT_EQ(SplitLine("'' # nothing"), Words{""});
  EXPECT_ANY_THROW(SplitLine("a \"b"));
  for (const std::string word : {"plain", "", "two words", "it's", "#1", "say \"x\""})
    EXPECT_EQ(SplitLine(QuoteWord(word)), Words{word});
}

}  // namespace
