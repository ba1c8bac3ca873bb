// Sound files on the command line: what comes in by content, what a header may promise, what
// convert writes and refuses, and what info tells of files good and bad.
#include "tests/host_support.h"

namespace {

using namespace host_test;

// 16 bits, mono; the key 72 and a loop of the samples 100 to 499.
std::string Aiff(qz::ulong length, double rate = 44100, qz::ushort bits = 16) {
  using namespace audiotest;
  return AsText(AiffFile(AiffCommon(1, length, bits, rate) + AiffMarks({{100, ""}, {500, ""}}, 2) +
                         AiffInst(72, 2, 0) + AiffSamples(Noise(length * 2))));
}

class SoundFiles : public HostTest {
 protected:
  // The bytes of `name` converted to `target`.
  std::string Convert(const std::string& name, const std::string& target,
                      const std::string& options = {}) {
    Run(0, "convert " + name + " " + target + " " + options);
    return folder.Get(target);
  }
  Json Tell(const std::string& file, int code = 0) { return Told(code, "info " + file); }
};

TEST_F(SoundFiles, ComeInByContentAndMayPromiseWhatTheirStreamCanHaveHeld) {
  const auto patched = [](std::string bytes, std::size_t at, std::uint32_t value) {
    return bytes.replace(at, 4, Little(value, 4));
  };
  folder.Put("a.wav", Wav({}));
  const std::string gsm = Convert("a.wav", "gsm.mort");  // 7 blocks of 160
  folder.Put("all.wav", patched(gsm, 24, 1120));
  Import("all.wav");
  folder.Put("aiff.dat", Aiff(600));
  Import("aiff.dat");
  EXPECT_EQ(Info("aiff")["classes"][0]["loop"], (Json{{"start", 100}, {"end", 499}}));
  // Silence that a marker stands for and the last block do not come back, and are no broken
  // promise.
  const std::string silence(320 * 2, '\0');
  std::string wav = Wav({.length = 352});
  folder.Put("quiet.wav", wav.replace(wav.find("data") + 8, silence.size(), silence));
  const std::string gb = Convert("quiet.wav", "gb.mort", "--codec gb");
  EXPECT_EQ(gb.size(), 44u + 16u);
  Import("gb.mort");
  EXPECT_EQ(Info("gb")["classes"][0]["length"], 352);

  const std::pair<std::string, const char*> refused[] = {
      {patched(gsm, 24, 1121), "promises 1121 samples, the stream gives at most 1120"},
      {patched(gsm, 52, 0xFFFFFFFF), "promises 4294967295 words"},
      {patched(gsm, 44, 0x54524F4E), "does not begin with \"MORT\""},
      {gsm.substr(0, gsm.size() - 8), "the stream ends behind 0 of 7 blocks"},
      {patched(gb, 24, 353), "promises 353 samples, the stream gives at most 352"},
      {Aiff(600).substr(0, 1208), "promises 1200 bytes of samples, the file holds 1100"}};
  for (const auto& [bytes, reason] : refused) {
    folder.Put("bad.wav", bytes);
    EXPECT_THAT(Import("bad.wav", "PCM16", 1).err, HasSubstr(reason));
  }
}

TEST_F(SoundFiles, ConvertKeepsWhatTheTargetCanHold) {
  folder.Put("loop.aiff", Aiff(600));
  const std::string data = ChunkOf(Convert("loop.aiff", "loop.wav"), "data");
  EXPECT_EQ((std::string{data[1], data[0]}), AsText(audiotest::Noise(2)));
  EXPECT_EQ(Tell("loop.wav")["loop"],
            (Json{{"start", 100}, {"end", 499}, {"count", nullptr}, {"from", "smpl"}}));
  const RunResult result = Run(0, "convert loop.wav loop.mort");
  EXPECT_EQ(result.out, "loop.mort\n");
  EXPECT_THAT(result.err, HasSubstr("the loop 100..499 is left out"));
  // Back from either codec: as long as it was, with its key, and no loop made up.
  Convert("loop.mort", "other.mort", "--codec gb");
  for (const char* from : {"loop.mort", "other.mort"}) {
    const std::string back = Convert(from, "back.wav", "--force");
    EXPECT_EQ(ChunkOf(back, "data").size(), 1200u);
    const Json told = Tell("back.wav");
    EXPECT_EQ(told["key"], 72);
    EXPECT_EQ(told["rate_hz"], 44100);
    EXPECT_EQ(told["loop"], nullptr);
  }
  EXPECT_EQ(Convert("loop.mort", "same.mort").substr(44), folder.Get("loop.mort").substr(44));
}

TEST_F(SoundFiles, ConvertRefusesAndLeavesNothingBehind) {
  folder.Put("mono.wav", Wav({}));
  folder.Put("stereo.wav", Wav({.channels = 2}));
  folder.Put("small.wav", Wav({.bits = 8}));
  folder.Put("cut.wav", Wav({}).substr(0, 900));
  folder.Put("fast.aiff", Aiff(600, 96000));
  std::string fast = Wav({});
  folder.Put("fast.wav", fast.replace(24, 4, Little(96000, 4)));
  const std::set<std::string> before = FilesIn(folder.path);
  const struct {
    int code;
    const char* arguments;
    const char* text;
  } refused[] = {{1, "stereo.wav x.mort", "sox IN -c 1 OUT.wav"},
                 {1, "small.wav x.mort", "sox IN -b 16 OUT.wav"},
                 {1, "fast.wav x.mort", "or take --codec gb"},
                 {1, "fast.aiff x.wav", "reads as 30464"},
                 {1, "cut.wav x.wav", "promises 2000 bytes"},
                 {1, "missing.wav x.wav", "no such file"},
                 {1, "mono.wav stereo.wav", "--force"},
                 {2, "mono.wav x.aiff", ".wav or .mort"},
                 {2, "mono.wav x.wav --codec gb", "--codec"},
                 {2, "mono.wav x.mort --codec mp3", "--codec"}};
  for (const auto& test : refused)
    EXPECT_THAT(Run(test.code, std::string("convert ") + test.arguments).err, HasSubstr(test.text));
  EXPECT_EQ(RunHost(folder, {"convert", "mono.wav", "x.wav"}, 100).code, 1);
  EXPECT_EQ(RunHost(folder, {"convert", "mono.wav", "x.mort"}, 100).code, 1);
  EXPECT_EQ(RunHost(folder, {"convert", "mono.wav", "x.mort", "--codec", "gb"}, 540).code, 1);
  EXPECT_EQ(FilesIn(folder.path), before);
  Run(0, "convert fast.wav fast.mort --codec gb");
  EXPECT_EQ(Tell("fast.mort")["rate_hz"], 96000);
}

TEST_F(SoundFiles, InfoTellsWhatAFileHoldsAndWhere) {
  folder.Put("a.wav", Wav({.channels = 2, .loopStart = 10, .loopEnd = 19, .key = 50}));
  Json told = Tell("a.wav");
  EXPECT_EQ(told["container"], "WAV");
  EXPECT_EQ(told["channels"], 2);
  EXPECT_EQ(told["length"], 1000);
  EXPECT_EQ(told["key_from"], "smpl");
  EXPECT_EQ(told["chunks"][1],
            (Json{{"name", "smpl"}, {"offset", 36}, {"size", 60}, {"held", 60}}));
  folder.Put("a.aiff", Aiff(600));
  told = Tell("a.aiff");
  EXPECT_EQ(told["loop"]["from"], "MARK");
  EXPECT_EQ(told["key_from"], "INST");
  Run(0, "convert a.aiff a.mort");
  told = Tell("a.mort");
  EXPECT_EQ(told["codec"], "gsm");
  EXPECT_EQ(told["length"], 600);
  ExpectParts(Run(0, "info a.aiff").out,
              {"AIFF, 1308 bytes", "44100 Hz", "72 (from \"INST\")",
               "100..499 (both included, from \"MARK\"), without end", "0x0000000C  18    COMM"});
  EXPECT_THAT(Run(2, "info game.db").err, HasSubstr("name one of its nodes"));
}

TEST_F(SoundFiles, InfoSaysWhatIsWrongAndWhatHelps) {
  const std::string plain = Wav({});
  std::string extensible = plain;
  extensible.replace(16, 6, Little(40, 4) + Little(0xFFFE, 2)).insert(36, std::string(24, '\0'));
  const struct {
    std::string bytes;
    const char *problem, *advice;
  } cases[] = {
      {Wav({.bits = 24}), "Unsupported bits per sample (24)!", "24 bits per sample: convert to 16"},
      {extensible, "Unsupported compression scheme (65534)!", "extensible kind. Convert"},
      {std::string(plain).replace(20, 2, Little(3, 2)), "scheme (3)", "no plain PCM"},
      {Aiff(600, 44100, 24), "(24)", "OUT.aiff"},
      {Aiff(600).replace(8, 4, "AIFC"), "unknown type", "compressed AIFF"},
      {std::string(plain).replace(0, 4, "RF64"), "unknown type", "WAV of another kind"},
      {std::string("MORT\0\0\2\0", 8), "unknown type", "MORT of version 2"},
      {plain.substr(0, 60), "Error locating `data' chunk!", "part of the file is missing"},
      {plain.substr(0, 900), "promises 2000 bytes", "cut short"},
      {"hello", "unknown type", "sox"}};
  for (const auto& test : cases) {
    folder.Put("bad", test.bytes);
    const Json told = Tell("bad", 1);
    EXPECT_EQ(told["taken"], false);
    const std::string problem = told["problem"];
    EXPECT_THAT(problem, HasSubstr(test.problem));
    EXPECT_THAT(told["advice"].get<std::string>(), HasSubstr(test.advice));
    EXPECT_THAT(Run(1, "info bad").out, HasSubstr("refused   " + problem));
  }
  Run(1, "info missing.wav");
}

// Neither memory nor output grows with what a file says, and no walk is endless.
TEST_F(SoundFiles, InfoEndsOnHostileFiles) {
  std::string many = Wav({}).substr(0, 12);
  for (int i = 0; i < 20000; ++i)
    many += std::string("\x1B[2J\0\0\0\0", 8);
  folder.Put("many.wav", many + Wav({}).substr(12));
  const Json told = Tell("many.wav");
  EXPECT_EQ(told["length"], 1000);
  EXPECT_LT(told["chunks"].size(), 300u);
  EXPECT_GT(told["more_chunks"], 19000);
  EXPECT_EQ(Run(0, "info many.wav").out.find('\x1B'), std::string::npos);
}

}  // namespace
