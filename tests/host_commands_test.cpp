// samplehost as a user runs it: every verb with its example, what it prints where, what it refuses
// and with which exit code.
#include <sqlite3.h>

#include <map>

#include "tests/host_support.h"

namespace {

using namespace host_test;
using ::testing::Test;

class CommandLine : public HostTest {
 protected:
  std::string Export(const std::string& node, const std::string& as, const std::string& target) {
    Expect(0, {"export", "game.db", node, "--class", "High", "--as", as, target});
    return BytesOf(folder / target);
  }
};

TEST_F(CommandLine, RunsTheExampleOfEachVerbsHelp) {
  folder.Put("kick.wav", Wav({}));
  folder.Put("drums/snare.wav", Wav({}));
  std::filesystem::remove(folder / "game.db");
  const std::vector<std::pair<std::string, std::vector<std::string>>> examples = {
      {"new",
       {"new", "game.db", "--class", "High=100", "--class", "Low=10", "--default-type",
        "compressed"}},
      {"class", {"class", "game.db", "add", "Medium=50"}},
      {"class", {"class", "game.db", "remove", "Medium"}},
      {"class", {"class", "game.db", "list"}},
      {"folder", {"folder", "game.db", "sounds"}},
      {"import",
       {"import", "game.db", "kick.wav", "drums/", "-r", "--class", "High", "--format", "ADPCM"}},
      {"list", {"list", "game.db"}},
      {"info", {"info", "game.db", "kick"}},
      {"lock", {"lock", "game.db", "kick"}},
      {"unlock", {"unlock", "game.db", "kick"}},
      {"export",
       {"export", "game.db", "kick", "--class", "High", "--as", "decoded", "kick-decoded.wav"}},
      {"format", {"format", "game.db", "kick", "High", "ADPCM+"}}};
  for (const auto& [verb, arguments] : examples) {
    Expect(0, arguments);
    std::string line = "  samplehost";
    for (const std::string& argument : arguments)
      line += " " + argument;
    const std::string help = Expect(0, {verb, "--help"}).out;
    EXPECT_NE(help.find(line), std::string::npos) << line << '\n' << help;
  }
  Expect(0, {"import", "game.db", "kick.wav", "--class", "Low", "--format", "default", "--node",
             "kick"});
  Expect(0, {"remove", "game.db", "kick", "Low"});
}

TEST_F(CommandLine, DumpsAFileOfANode) {
  folder.Put("kick.wav", Wav({}));
  Import("kick.wav");
  for (const std::string& file : FilesIn(folder / "samples")) {
    EXPECT_NE(Expect(0, {"dump", file}).out, "") << file;
  }
  folder.Put("text.txt", "no file of ours");
  EXPECT_NE(Expect(1, {"dump", "text.txt"}).err.find("text.txt"), std::string::npos);
  EXPECT_NE(Expect(0, {"dump", "--help"}).out.find("samplehost dump "), std::string::npos);
}

TEST_F(CommandLine, TellsUsageFromFailure) {
  folder.Put("kick.wav", Wav({}));
  EXPECT_EQ(Expect(2, {}).out, "");
  Expect(2, {"frobnicate", "game.db"});
  Expect(2, {"list"});
  Expect(2, {"new", "b.db", "--class", "High"});
  Expect(2, {"new", "b.db", "--class", "High=256"});
  Expect(2, {"new", "b.db", "--default-type", "loud"});
  EXPECT_FALSE(std::filesystem::exists(folder / "b.db"));
  EXPECT_NE(Expect(1, {"new", "nowhere/b.db"}).err.find("no folder"), std::string::npos);
  Import("kick.wav", "MP3", 2);
  Expect(2, {"import", "game.db", "kick.wav", "--class", "High"});
  Expect(2, {"import", "game.db", "kick.wav", "kick.wav", "--node", "x", "--class", "High",
             "--format", "PCM8"});
  Expect(1, {"import", "game.db", "kick.wav", "--class", "high", "--format", "PCM8"});
  Expect(1, {"list", "missing.db"});
  Expect(1, {"info", "game.db", "nobody"});
  EXPECT_NE(Expect(1, {"list", "a:b.db"}).err.find("cannot be used"), std::string::npos);
  EXPECT_NE(Expect(1, {"--library", "missing.so", "list", "game.db"}).err.find("--library"),
            std::string::npos);
  Expect(0, {"--library", SAMPLEDATA_SO, "list", "game.db"});
  folder.Put("text.db", "no database at all, but long enough to be looked at");
  EXPECT_NE(Expect(1, {"list", "text.db"}).err.find("not a database"), std::string::npos);
}

TEST_F(CommandLine, NewNeverReplacesAndLeavesNothingBehindAFailure) {
  const std::string before = BytesOf(folder / "game.db");
  Expect(1, {"new", "game.db"});
  Expect(1, {"new", "GAME.db"});  // the same name where case makes no difference
  EXPECT_EQ(BytesOf(folder / "game.db"), before);
  for (const char* name : {"a/b", "a:b", "a?", "a.", "", "\xFF"}) {
    Expect(1, {"new", "c.db", "--folder", "other", "--class", std::string(name) + "=1"});
  }
  Expect(1, {"new", "c.db", "--class", "High=1", "--class", "high=2"});
  Expect(1, {"new", "c.db", "--folder", "."});
  EXPECT_FALSE(std::filesystem::exists(folder / "c.db"));
  EXPECT_FALSE(std::filesystem::exists(folder / "other"));
  for (const std::string& file : FilesIn(folder.path)) {
    EXPECT_EQ(file.find(".part"), std::string::npos) << file;
  }
}

TEST_F(CommandLine, ReopensWhatWasImportedInAllFormats) {
  const WavOptions options{
      .channels = 2, .length = 1001, .loopStart = 100, .loopEnd = 199, .key = 48};
  folder.Put("tone.wav", Wav(options));
  const std::map<std::string, std::string> formats = {{"pcm16", "PCM16"},     {"adpcm", "ADPCM"},
                                                      {"Adpcm+", "ADPCM+"},   {"PCM8", "PCM8"},
                                                      {"adpcmvs", "ADPCMVS"}, {"default", "ADPCM"}};
  for (const auto& [typed, shown] : formats) {
    Expect(0, {"import", "game.db", "tone.wav", "--class", "High", "--format", typed, "--node",
               typed});
    const nlohmann::json info = Info(typed)["classes"][0];
    EXPECT_EQ(info["format"], shown);
    EXPECT_EQ(info["rate_hz"], 32000);
    EXPECT_EQ(info["channels"], 2);
    EXPECT_EQ(info["length"], 1001);
    EXPECT_EQ(info["loop"], (nlohmann::json{{"start", 100}, {"end", 199}}));
    EXPECT_EQ(info["key"], 48);
    EXPECT_EQ(BytesOf(info["raw_file"]), Wav(options));
    EXPECT_EQ(info["snr"].size(), 2u);
    for (const nlohmann::json& channel : info["snr"]) {
      EXPECT_EQ(channel["exact"], shown == "PCM16");
      if (shown != "PCM16") {
        EXPECT_GT(channel["db"].get<double>(), 25.0) << shown;
      }
    }
    const std::string raw = Export(typed, "raw", typed + "-raw.wav");
    EXPECT_EQ(ChunkOf(raw, "data"), WavSamples(options));
    const std::string decoded = Export(typed, "decoded", typed + "-decoded.wav");
    EXPECT_EQ(ChunkOf(decoded, "data").size(), WavSamples(options).size());
    EXPECT_EQ(ChunkOf(decoded, "fmt "), ChunkOf(raw, "fmt "));
    EXPECT_EQ(ChunkOf(decoded, "smpl"), ChunkOf(Wav(options), "smpl"));
    EXPECT_EQ(ChunkOf(raw, "smpl"), ChunkOf(Wav(options), "smpl"));
  }
}

TEST_F(CommandLine, ExportsEncodedDataByChannelAndExtraDataAsJson) {
  folder.Put("two.wav", Wav({.channels = 2, .length = 29}));
  folder.Put("eight.wav", Wav({.length = 29, .bits = 8}));
  Import("two.wav", "ADPCM+");
  EXPECT_EQ(
      Expect(0, {"export", "game.db", "two", "--class", "High", "--as", "encoded", "two.bin"}).out,
      folder / "two.ch0.bin\n" + (folder / "two.ch1.bin\n"));
  EXPECT_EQ(BytesOf(folder / "two.ch1.bin").size(), 3 * 8u);
  Expect(0, {"export", "game.db", "two", "--class", "High", "--as", "encoded", "--channel", "1",
             "one.bin"});
  EXPECT_EQ(BytesOf(folder / "one.bin"), BytesOf(folder / "two.ch1.bin"));
  Expect(2,
         {"export", "game.db", "two", "--class", "High", "--as", "encoded", "--channel", "2", "x"});
  const nlohmann::json extra = nlohmann::json::parse(Export("two", "extra", "two.json"));
  EXPECT_EQ(extra["channels"].size(), 2u);
  EXPECT_EQ(extra["channels"][0]["coefficients"].size(), 8u);
  EXPECT_EQ(extra["channels"][0]["blocks"].size(), 3u);
  // The frame's own header says the same as the record beside it.
  EXPECT_EQ(extra["channels"][1]["initial_ps"],
            static_cast<unsigned char>(BytesOf(folder / "one.bin")[0]));

  Import("eight.wav");
  EXPECT_EQ(ChunkOf(Export("eight", "raw", "eight-raw.wav"), "data"),
            WavSamples({.length = 29, .bits = 8}));
  EXPECT_NE(Expect(1, {"export", "game.db", "eight", "--class", "High", "--as", "extra", "x"})
                .err.find("no extra data"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(folder / "x"));
}

TEST_F(CommandLine, NeverOverwritesAnExportUnasked) {
  folder.Put("kick.wav", Wav({}));
  folder.Put("there.wav", "mine");
  Import("kick.wav");
  std::vector<std::string> arguments = {"export", "game.db", "kick", "--class",
                                        "High",   "--as",    "raw",  "there.wav"};
  Expect(1, arguments);
  EXPECT_EQ(BytesOf(folder / "there.wav"), "mine");
  arguments.push_back("--force");
  Expect(0, arguments);
  EXPECT_EQ(ChunkOf(BytesOf(folder / "there.wav"), "data"), WavSamples({}));
  Expect(1, {"export", "game.db", "kick", "--class", "High", "--as", "raw", "samples", "--force"});
  Expect(1, {"export", "game.db", "kick", "--class", "Low", "--as", "raw", "low.wav"});
}

TEST_F(CommandLine, ImportGoesOnAfterBadFilesAndSaysWhatToDo) {
  folder.Put("in/a.wav", Wav({}));
  folder.Put("in/cut.wav", Wav({}).substr(0, 900));
  folder.Put("in/pipe.wav", Wav({.promised = 0x7FFFFFFF}));
  folder.Put("in/none.wav", Wav({.channels = 0}));
  folder.Put("in/wide.wav", Wav({.bits = 24}));
  folder.Put("in/text.wav", "hello");
  folder.Put("in/noext", Wav({}));
  folder.Put("in/clash.esmp", Wav({}));
  folder.Put("in/deep/b.wav", Wav({}));
  folder.Put("in/readme.txt", "no sound");
  const RunResult flat =
      Expect(1, {"import", "game.db", "in", "--class", "High", "--format", "PCM8"});
  EXPECT_EQ(flat.out, "a\tin/a.wav\n");
  EXPECT_NE(flat.err.find("5 of 6 files failed"), std::string::npos) << flat.err;
  for (const char* text : {"promises 2147483647 bytes", "Unsupported bits per sample (24)",
                           "no channels", "unknown type", "WHAT TO DO"}) {
    EXPECT_NE(flat.err.find(text), std::string::npos) << text << '\n' << flat.err;
  }
  EXPECT_EQ(flat.err.find('\r'), std::string::npos);  // no progress bar but on a terminal
  const RunResult deep = Expect(1, {"import", "game.db", ".", "in/noext", "in/clash.esmp", "-r",
                                    "--class", "High", "--format", "PCM8"});
  // The database's own sample folder lies below "." and stays out.
  EXPECT_EQ(deep.out, "a-2\t./in/a.wav\nb\t./in/deep/b.wav\n");
  EXPECT_NE(deep.err.find("no extension"), std::string::npos);
  EXPECT_NE(deep.err.find("clash"), std::string::npos);
  EXPECT_EQ(List()["nodes"].size(), 3u);
}

TEST_F(CommandLine, ImportsAFurtherClassIntoANodeButReplacesNone) {
  folder.Put("kick.wav", Wav({}));
  folder.Put("low.wav", Wav({.length = 100}));
  Import("kick.wav");
  Expect(0,
         {"import", "game.db", "low.wav", "--class", "Low", "--format", "ADPCM", "--node", "kick"});
  EXPECT_EQ(Info("kick")["classes"].size(), 2u);
  EXPECT_EQ(Info("kick")["selected_class"], "High");
  const RunResult again = Expect(
      1, {"import", "game.db", "low.wav", "--class", "Low", "--format", "PCM8", "--node", "kick"});
  EXPECT_NE(again.err.find("already"), std::string::npos);
  EXPECT_EQ(Info("kick")["classes"][1]["format"], "ADPCM");
}

TEST_F(CommandLine, CountsTheReferencesOfAClass) {
  folder.Put("kick.wav", Wav({}));
  Import("kick.wav");
  Import("kick.wav");
  Expect(0, {"import", "game.db", "kick.wav", "--class", "Low", "--format", "ADPCM", "--node",
             "kick"});
  EXPECT_NE(Expect(1, {"class", "game.db", "remove", "High"}).err.find("Quality Class still used"),
            std::string::npos);
  Expect(0, {"remove", "game.db", "kick-2"});
  Expect(1, {"class", "game.db", "remove", "High"});
  Expect(0, {"remove", "game.db", "kick", "High"});
  Expect(0, {"class", "game.db", "remove", "High"});
  Expect(1, {"class", "game.db", "remove", "Low"});
  Expect(0, {"remove", "game.db", "kick"});
  Expect(0, {"class", "game.db", "remove", "Low"});
  Expect(1, {"class", "game.db", "remove", "Low"});
  Expect(0, {"class", "game.db", "add", "Top=255", "Bottom=0"});
  EXPECT_EQ(Expect(0, {"class", "game.db", "list"}).out,
            "CLASS   LEVEL  SAMPLES\nBottom  0      0\nTop     255    0\n");
}

TEST_F(CommandLine, OldFilesGoWithTheSaveThatReplacesThem) {
  folder.Put("kick.wav", Wav({}));
  Import("kick.wav");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 2u);
  const std::string raw = Info("kick")["classes"][0]["raw_file"];
  Expect(0, {"format", "game.db", "kick", "High", "adpcm"});
  EXPECT_EQ(Info("kick")["classes"][0]["format"], "ADPCM");
  EXPECT_FALSE(std::filesystem::exists(raw));
  EXPECT_EQ(FilesIn(folder / "samples").size(), 2u);
  Expect(0, {"remove", "game.db", "kick", "High"});
  EXPECT_EQ(FilesIn(folder / "samples").size(), 0u);
  EXPECT_EQ(List()["nodes"][0]["classes"].size(), 0u);
  Expect(0, {"remove", "game.db", "kick"});
  EXPECT_EQ(List()["nodes"].size(), 0u);
}

TEST_F(CommandLine, ALockedNodeDoesNotChange) {
  folder.Put("kick.wav", Wav({}));
  Import("kick.wav");
  Expect(0, {"lock", "game.db", "kick"});
  EXPECT_EQ(List()["nodes"][0]["locked"], true);
  EXPECT_NE(Expect(1, {"format", "game.db", "kick", "High", "PCM8"}).err.find("read only"),
            std::string::npos);
  Expect(1, {"remove", "game.db", "kick", "High"});
  Expect(1, {"remove", "game.db", "kick"});
  Expect(1,
         {"import", "game.db", "kick.wav", "--class", "Low", "--format", "PCM8", "--node", "kick"});
  // An encoded file that is gone is made again all the same: nothing of the node changes by that.
  for (const std::string& file : FilesIn(folder / "samples")) {
    if (file.ends_with(".esmp")) std::filesystem::remove(file);
  }
  EXPECT_EQ(Info("kick")["classes"][0]["snr"][0]["exact"], true);
  Expect(0, {"unlock", "game.db", "kick"});
  Expect(0, {"format", "game.db", "kick", "High", "PCM8"});
}

TEST_F(CommandLine, TheDefaultTypeRulesWhereItIsTheOnlyOne) {
  folder.Put("kick.wav", Wav({}));
  for (const auto& [type, format] : {std::pair("raw", "PCM16"), std::pair("compressed", "ADPCM")}) {
    const std::string database = std::string(type) + ".db";
    Expect(0, {"new", database, "--class", "High=1", "--default-type", type, "--only-default"});
    const RunResult import =
        Expect(0, {"import", database, "kick.wav", "--class", "High", "--format", "PCM8"});
    EXPECT_NE(import.err.find("default type only"), std::string::npos);
    const RunResult list = Expect(0, {"list", database, "--json"});
    EXPECT_EQ(nlohmann::json::parse(list.out)["nodes"][0]["classes"][0]["format"], format);
  }
}

TEST_F(CommandLine, MovesTheSampleFolderForNewSamplesOnly) {
  folder.Put("kick.wav", Wav({}));
  EXPECT_EQ(Expect(0, {"folder", "game.db"}).out, folder / "samples\n");
  Import("kick.wav");
  EXPECT_EQ(Expect(0, {"folder", "game.db", "my sounds/100%"}).out, folder / "my sounds/100%\n");
  Import("kick.wav");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 2u);
  EXPECT_EQ(FilesIn(folder / "my sounds/100%").size(), 2u);
  const nlohmann::json list = List();
  EXPECT_EQ(list["nodes"].size(), 2u);
  for (const nlohmann::json& node : list["nodes"])
    EXPECT_TRUE(node["damaged"].is_null());
  Expect(1, {"folder", "game.db", "."});
  EXPECT_EQ(Expect(0, {"folder", "game.db"}).out, folder / "my sounds/100%\n");
}

TEST_F(CommandLine, DatabaseAndSamplesMoveTogether) {
  folder.Put("there/kick.wav", Wav({}));
  Expect(0, {"new", "there/my.db", "--class", "Höhe 50%=1"});
  Expect(0,
         {"import", "there/my.db", "there/kick.wav", "--class", "Höhe 50%", "--format", "ADPCM"});
  std::filesystem::rename(folder / "there", folder / "ümgezogen nach %s");
  const RunResult info = Expect(0, {"info", "ümgezogen nach %s/my.db", "kick", "--json"});
  const nlohmann::json sample = nlohmann::json::parse(info.out)["classes"][0];
  EXPECT_EQ(sample["class"], "Höhe 50%");
  EXPECT_EQ(BytesOf(sample["raw_file"]), Wav({}));
  EXPECT_TRUE(
      sample["raw_file"].get<std::string>().starts_with(folder / "ümgezogen nach %s/samples"));
}

TEST_F(CommandLine, CarriesAwkwardNames) {
  const std::vector<std::string> names = {"kick drum 100%", "Höhe",      "%s%n%d", "-dash", "a.b",
                                          "\xE4 latin",     "line\nfeed"};
  for (const std::string& name : names) {
    folder.Put(name + ".wav", Wav({}));
    Import("./" + name + ".wav", "PCM8");
  }
  EXPECT_EQ(List()["nodes"].size(), names.size());
  for (const std::string& name : names) {
    Expect(0, {"info", "game.db", "--", name});
    Expect(0, {"format", "game.db", "--", name, "High", "PCM16"});
  }
  // No name can write over the screen.
  EXPECT_NE(Expect(0, {"list", "game.db"}).out.find("line\\x0Afeed"), std::string::npos);
  Expect(1, {"info", "game.db", "kick drum 100"});
}

}  // namespace
