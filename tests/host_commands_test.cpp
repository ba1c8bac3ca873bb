// samplehost as a user runs it: every verb with its example, what it prints where, what it refuses
// and with which exit code.
#include <map>

#include "tests/host_support.h"

namespace {

using namespace host_test;

class CommandLine : public HostTest {
 protected:
  std::string Export(const std::string& node, const std::string& as) {
    Run(0, "export game.db " + node + " --class High --force --as " + as + " exported.wav");
    return folder.Get("exported.wav");
  }
};

TEST_F(CommandLine, RunsTheExampleOfEachVerbsHelp) {
  folder.Put("drums/snare.wav", Wav({}));
  std::filesystem::remove(folder / "game.db");
  folder.Put("louder.sh", "exit 0");
  for (const std::string line :
       {"new game.db --class High=100 --class Low=10 --default-type compressed",
        "class game.db add Medium=50", "class game.db remove Medium", "class game.db list",
        "folder game.db sounds", "import game.db kick.wav drums/ -r --class High --format ADPCM",
        "list game.db", "info game.db kick", "info kick.wav", "lock game.db kick",
        "unlock game.db kick", "export game.db kick --class High --as decoded kick-decoded.wav",
        "format game.db kick High ADPCM+", "edit game.db kick -- sh louder.sh",
        "convert kick.wav kick.mort --codec gb"}) {
    Run(0, line);
    EXPECT_THAT(Run(0, line.substr(0, line.find(' ')) + " --help").out,
                HasSubstr("  samplehost " + line));
  }
  for (const std::string& file : FilesIn(folder / "sounds"))
    EXPECT_NE(Run(0, "dump " + file).out, "") << file;
  EXPECT_THAT(Run(0, "dump --help").out, HasSubstr("samplehost dump "));
}

TEST_F(CommandLine, TellsUsageFromFailure) {
  EXPECT_EQ(Run(2, "").out, "");
  for (const char* line :
       {"frobnicate game.db", "list", "new b.db --class High", "new b.db --class High=256",
        "new b.db --default-type loud", "import game.db kick.wav --class High",
        "import game.db kick.wav kick.wav --node x --class High --format PCM8"})
    Run(2, line);
  EXPECT_FALSE(std::filesystem::exists(folder / "b.db"));
  EXPECT_THAT(Run(1, "new nowhere/b.db").err, HasSubstr("no folder"));
  Import("kick.wav", "MP3", 2);
  Run(1, "import game.db kick.wav --class high --format PCM8");
  Run(1, "list missing.db");
  Run(1, "info game.db nobody");
  EXPECT_THAT(Run(1, "list a:b.db").err, HasSubstr("cannot be used"));
  EXPECT_THAT(Run(1, "--library missing.so list game.db").err, HasSubstr("--library"));
  Expect(0, {"--library", SAMPLEDATA_SO, "list", "game.db"});
  folder.Put("text.db", "no database at all, but long enough to be looked at");
  EXPECT_THAT(Run(1, "list text.db").err, HasSubstr("not a database"));
  EXPECT_THAT(Run(1, "dump text.db").err, HasSubstr("text.db"));
}

TEST_F(CommandLine, NewNeverReplacesAndLeavesNothingBehindAFailure) {
  const std::string before = BytesOf(folder / "game.db");
  Run(1, "new game.db");
  Run(1, "new GAME.db");  // the same name where case makes no difference
  EXPECT_EQ(BytesOf(folder / "game.db"), before);
  for (const char* name : {"a/b", "a:b", "a?", "a.", "", "\xFF"}) {
    Expect(1, {"new", "c.db", "--folder", "other", "--class", std::string(name) + "=1"});
  }
  Run(1, "new c.db --class High=1 --class high=2");
  Run(1, "new c.db --folder .");
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
    Run(0, "import game.db tone.wav --class High --format " + typed + " --node " + typed);
    const Json info = Info(typed)["classes"][0];
    EXPECT_EQ(info["format"], shown);
    EXPECT_EQ((Json{info["rate_hz"], info["channels"], info["length"], info["key"]}),
              (Json{32000, 2, 1001, 48}));
    EXPECT_EQ(info["loop"], (Json{{"start", 100}, {"end", 199}}));
    EXPECT_EQ(BytesOf(info["raw_file"]), Wav(options));
    EXPECT_EQ(info["snr"].size(), 2u);
    for (const Json& channel : info["snr"]) {
      EXPECT_EQ(channel["exact"], shown == "PCM16");
      if (shown != "PCM16") {
        EXPECT_GT(channel["db"].get<double>(), 25.0) << shown;
      }
    }
    const std::string raw = Export(typed, "raw");
    EXPECT_EQ(ChunkOf(raw, "data"), WavSamples(options));
    const std::string decoded = Export(typed, "decoded");
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
  EXPECT_EQ(Run(0, "export game.db two --class High --as encoded two.bin").out,
            folder / "two.ch0.bin\n" + (folder / "two.ch1.bin\n"));
  EXPECT_EQ(folder.Get("two.ch1.bin").size(), 3 * 8u);
  Run(0, "export game.db two --class High --as encoded --channel 1 one.bin");
  EXPECT_EQ(folder.Get("one.bin"), folder.Get("two.ch1.bin"));
  Run(2, "export game.db two --class High --as encoded --channel 2 x");
  const Json extra = Json::parse(Export("two", "extra"));
  EXPECT_EQ(extra["channels"].size(), 2u);
  EXPECT_EQ(extra["channels"][0]["coefficients"].size(), 8u);
  EXPECT_EQ(extra["channels"][0]["blocks"].size(), 3u);
  // The frame's own header says the same as the record beside it.
  EXPECT_EQ(extra["channels"][1]["initial_ps"],
            static_cast<unsigned char>(folder.Get("one.bin")[0]));

  Import("eight.wav");
  EXPECT_EQ(ChunkOf(Export("eight", "raw"), "data"), WavSamples({.length = 29, .bits = 8}));
  EXPECT_THAT(Run(1, "export game.db eight --class High --as extra x").err,
              HasSubstr("no extra data"));
  EXPECT_FALSE(std::filesystem::exists(folder / "x"));
}

TEST_F(CommandLine, NeverOverwritesAnExportUnasked) {
  folder.Put("there.wav", "mine");
  Import("kick.wav");
  const std::string line = "export game.db kick --class High --as raw ";
  Run(1, line + "there.wav");
  EXPECT_EQ(folder.Get("there.wav"), "mine");
  Run(0, line + "there.wav --force");
  EXPECT_EQ(ChunkOf(folder.Get("there.wav"), "data"), WavSamples({}));
  Run(1, line + "samples --force");
  Run(1, "export game.db kick --class Low --as raw low.wav");
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
  const RunResult flat = Run(1, "import game.db in --class High --format PCM8");
  EXPECT_EQ(flat.out, "a\tin/a.wav\n");
  ExpectParts(flat.err,
              {"5 of 6 files failed", "promises 2147483647 bytes",
               "Unsupported bits per sample (24)", "no channels", "unknown type", "WHAT TO DO"});
  EXPECT_EQ(flat.err.find('\r'), std::string::npos);  // no progress bar but on a terminal
  const RunResult deep =
      Run(1, "import game.db . in/noext in/clash.esmp -r --class High --format PCM8");
  // The database's own sample folder lies below "." and stays out.
  EXPECT_EQ(deep.out, "kick\t./kick.wav\na-2\t./in/a.wav\nb\t./in/deep/b.wav\n");
  ExpectParts(deep.err, {"no extension", "would clash"});
  EXPECT_EQ(List()["nodes"].size(), 4u);
}

TEST_F(CommandLine, ANodeGainsAndLosesSamplesWithTheirFilesAndReferences) {
  folder.Put("low.wav", Wav({.length = 100}));
  Import("kick.wav");
  const std::string raw = RawFile("kick");
  Run(0, "format game.db kick High adpcm");
  EXPECT_FALSE(std::filesystem::exists(raw)) << "old files go with the save that replaces them";
  Run(0, "import game.db low.wav --class Low --format PCM8 --node kick");
  EXPECT_THAT(Run(1, "import game.db low.wav --class Low --format PCM16 --node kick").err,
              HasSubstr("already"));
  const Json info = Info("kick");
  EXPECT_EQ(info["selected_class"], "High");
  EXPECT_EQ(info["classes"][0]["format"], "ADPCM");
  EXPECT_EQ(info["classes"][1]["format"], "PCM8");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 4u);

  EXPECT_THAT(Run(1, "class game.db remove High").err, HasSubstr("Quality Class still used"));
  Run(0, "remove game.db kick High");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 2u);
  Run(0, "class game.db remove High");
  Run(1, "class game.db remove Low");
  Run(0, "remove game.db kick");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 0u);
  Run(0, "class game.db remove Low");
  Run(1, "class game.db remove Low");
  Run(0, "class game.db add Top=255 Bottom=0");
  EXPECT_EQ(Run(0, "class game.db list").out,
            "CLASS   LEVEL  SAMPLES\nBottom  0      0\nTop     255    0\n");
}

TEST_F(CommandLine, ALockedNodeDoesNotChange) {
  Import("kick.wav");
  Run(0, "lock game.db kick");
  EXPECT_EQ(List()["nodes"][0]["locked"], true);
  EXPECT_THAT(Run(1, "format game.db kick High PCM8").err, HasSubstr("read only"));
  Run(1, "remove game.db kick High");
  Run(1, "remove game.db kick");
  Run(1, "import game.db kick.wav --class Low --format PCM8 --node kick");
  // An encoded file that is gone is made again all the same: nothing of the node changes by that.
  std::filesystem::remove(EncodedOf(RawFile("kick")));
  EXPECT_EQ(Info("kick")["classes"][0]["snr"][0]["exact"], true);
  Run(0, "unlock game.db kick");
  Run(0, "format game.db kick High PCM8");
}

TEST_F(CommandLine, TheDefaultTypeRulesWhereItIsTheOnlyOne) {
  for (const auto& [type, format] : {std::pair("raw", "PCM16"), std::pair("compressed", "ADPCM")}) {
    const std::string database = std::string(type) + ".db";
    Run(0, "new " + database + " --class High=1 --only-default --default-type " + type);
    EXPECT_THAT(Run(0, "import " + database + " kick.wav --class High --format PCM8").err,
                HasSubstr("default type only"));
    EXPECT_EQ(Told(0, "list " + database)["nodes"][0]["classes"][0]["format"], format);
  }
}

TEST_F(CommandLine, MovesTheSampleFolderForNewSamplesOnly) {
  Import("kick.wav");
  EXPECT_EQ(Run(0, "folder game.db 'my sounds/100%'").out, folder / "my sounds/100%\n");
  Import("kick.wav");
  Run(1, "folder game.db .");
  EXPECT_EQ(Run(0, "folder game.db").out, folder / "my sounds/100%\n");
  EXPECT_EQ(FilesIn(folder / "samples").size(), 2u);
  EXPECT_EQ(FilesIn(folder / "my sounds/100%").size(), 2u);
  EXPECT_EQ(List()["nodes"].size(), 2u);
}

TEST_F(CommandLine, CarriesAwkwardNames) {
  for (const std::string name :
       {"kick drum 100%", "Höhe", "%s%n%d", "-dash", "a.b", "\xE4 latin"}) {
    folder.Put(name + ".wav", Wav({}));
    Import("./" + name + ".wav", "PCM8");
    Expect(0, {"format", "game.db", "--", name, "High", "PCM16"});
  }
  EXPECT_EQ(List()["nodes"].size(), 6u);
  Run(0, "class game.db add 'Höhe 50%=1'");
  Run(0, "import game.db Höhe.wav --class 'Höhe 50%' --format ADPCM --node Höhe");
  EXPECT_EQ(Info("Höhe")["classes"].size(), 2u);
  // No name can write over the screen, not even one that is refused.
  folder.Put("line\nfeed.wav", Wav({}));
  EXPECT_THAT(Import("./line\nfeed.wav", "PCM8", 1).err, HasSubstr("line\\x0Afeed.wav  This name"));
}

}  // namespace
