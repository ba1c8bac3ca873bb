// dump and info of damaged files: they end, say what is wrong where, and believe no size.
#include <sstream>

#include "host/dump.h"
#include "host/sound_info.h"
#include "tests/format_page.h"
#include "tests/host_support.h"

namespace {

using namespace host_test;
using format_page::Examples;

struct Dumped {
  bool sound;
  std::string text;
  std::string problem;
};

class Dump : public ::testing::Test {
 protected:
  Dumped Of(const std::string& bytes) {
    folder.Put("file", bytes);
    std::ostringstream out;
    Dumped result;
    result.sound = samplehost::DumpFile(folder / "file", out, result.problem);
    result.text = out.str();
    EXPECT_EQ(result.sound, result.problem.empty());
    return result;
  }
  Folder folder;
};

// A whole file of each kind.
std::vector<std::string> AllExamples() {
  std::vector<std::string> examples = Examples("node-file.md");
  for (const char* page : {"esmp.md", "wav.md", "aiff.md", "mort.md"})
    examples.push_back(Examples(page).at(0));
  std::string gsm = examples.back().substr(0, 44) + Examples("gsm-stream.md").at(0);
  examples.push_back(gsm.replace(8, 1, 1, '\0'));
  return examples;
}

TEST_F(Dump, EveryCutOfEveryExampleIsDamageWithAPlace) {
  for (const std::string& example : AllExamples()) {
    for (std::size_t size = 0; size < example.size(); ++size) {
      const Dumped dumped = Of(example.substr(0, size));
      // A WAV that ends behind a chunk is whole, and its own head's size is not believed.
      if (example.starts_with("RIFF") && size == 0x54) continue;
      // Every block of a GB stream has a meaning.
      if (example.starts_with("MORT") && example[8] == 1 && size >= 44) continue;
      EXPECT_FALSE(dumped.sound) << example.substr(0, 4) << " cut to " << size << dumped.text;
    }
    EXPECT_TRUE(Of(example).sound) << Of(example).problem;
  }
}

TEST_F(Dump, RandomDamageAlwaysEnds) {
  const std::vector<std::string> examples = AllExamples();
  std::uint32_t state = 12345;
  const auto random = [&state](std::size_t below) {
    state = state * 1664525u + 1013904223u;
    return (state >> 8) % below;
  };
  for (int round = 0; round < 600; ++round) {
    std::string bytes = examples[random(examples.size())];
    for (std::size_t n = 1 + random(4); n-- > 0;) {
      const char values[] = {'\0', '\x01', '\x7F', '\xFF', '\x80', '"'};
      bytes[4 + random(bytes.size() - 4)] = values[random(sizeof values)];
    }
    if (round % 4 == 0) bytes.resize(random(bytes.size()));
    Of(bytes);
    std::ostringstream info;
    samplehost::PrintSoundInfo(folder / "file", true, info);
    EXPECT_FALSE(Json::parse(info.str(), nullptr, false).is_discarded()) << round;
  }
}

TEST_F(Dump, TellsWhatIsWrongAndWhere) {
  const std::string encoded = Examples("esmp.md").at(0);
  const std::string sample = Examples("node-file.md").at(0);
  const std::string setup = Examples("node-file.md").at(1);
  const std::string wav = Examples("wav.md").at(0);
  // ADPCM+ has block states, which are missing here.
  const std::string blocks = std::string(encoded).replace(0x70, 4, Little(0x40000000, 4));
  const struct {
    std::string bytes;
    std::size_t offset;
    std::uint32_t value;
    int size;
    std::string problem;
  } cases[] = {
      {encoded, 0x04, 0xFFFF, 2, "at 0x28: the channel table needs 262140 bytes, 76 are left"},
      {encoded, 0x06, 9, 2, "at 0x6: no format has this number"},
      {encoded, 0x06, 1, 2, "at 0x2C: 20 samples take 40 bytes, not 16"},
      {encoded, 0x06, 4, 2, "at 0x2C: 20 samples take 20 bytes, not 16"},
      {encoded, 0x10, 15, 4, ""},
      {encoded, 0x10, 29, 4, "at 0x2C: 29 samples take 24 bytes, not 16"},
      {encoded, 0x28, 0xFFFFFFFF, 4, "channel 0: at 0x74: dataLen needs 4 bytes, 0 are left"},
      {encoded, 0x30, 0xFFFFFFFF, 4,
       "channel 0: at 0x44: the extra data needs 4294967295 bytes, 48 are left"},
      {encoded, 0x30, 47, 4, "at 0x44: 47 bytes of extra data, 48 are the least"},
      {encoded, 0x34, 0x8D, 1, "at 0x34: no encoder writes the frame head 0x8D"},
      {encoded, 0x06, 3, 2, ""},
      {blocks, 0x06, 3, 2,
       "at 0x70: 1073741824 blocks need 4294967296 bytes of states, 0 are left"},
      {sample, 0x04, 7, 4,
       "at 0x4: the file has " + std::to_string(sample.size()) + " bytes, not 7"},
      {sample, 0x10, 0x21212121, 4, "at 0x10: the tag is \"!!!!\", not \"TYPE\""},
      {sample, 0x1C, 0, 4, "at 0x1C: no node has this type"},
      {sample, 0x4D, 0xFFFFFFFF, 4, "at 0x4D: 4294967295 samples are more than a node holds"},
      {setup, 0x38, 0x20000, 4, "at 0x38: the version is 0x00020000, and only 0x00010000 exists"},
      {setup, 0x40, 3, 4, "at 0x40: the payload has 28 bytes, not 3"},
      {setup, 0x53, 3, 2, "at 0x64: class 2 name has no end"},
      {setup, 0x53, 1, 2, "at 0x5C: 8 bytes behind the end"},
      {wav, 0x04, 1, 4, ""},  // no reader looks at the size of the whole
      {wav, 0x14, 3, 2, "at 0x14: format tag 3; imports take only 1, PCM"},
      {wav, 0x22, 24, 2, "at 0x22: 24 bits per sample; imports take only 8 and 16"},
      {wav, 0x28, 0xFFFFFFFF, 4, "at 0x2C: the chunk's data needs 4294967295 bytes, 108 are left"},
      {wav, 0x78, 0xFFFFFFFF, 4,
       "at 0x80: the list of loops needs 103079215080 bytes, 24 are left"},
      {wav, 0x24, 0x21212121, 4, "there is no \"data\" chunk"},
      {"", 0, 0, 0, "it is no encoded sample, no node file and no WAV, AIFF or MORT sound"},
  };
  for (auto test : cases) {
    const std::string number = Little(test.value, test.size);
    EXPECT_EQ(Of(test.bytes.replace(test.offset, number.size(), number)).problem, test.problem);
  }
}

TEST_F(Dump, ALostChannelTakesNoOtherWithIt) {
  std::string example = Examples("esmp.md").at(0);
  example.replace(4, 2, Little(2, 2));
  example.replace(0x28, 4, Little(0x5000, 4) + Little(0x30, 4));
  const Dumped dumped = Of(example);
  EXPECT_EQ(dumped.problem, "channel 0: at 0x78: dataLen needs 4 bytes, 0 are left");
  EXPECT_THAT(dumped.text, HasSubstr("coefTable 0        3346 -1510"));
}

TEST_F(Dump, LongAndBinaryTextsAreShownShortAndHarmless) {
  std::string setup = Examples("node-file.md").at(1);
  setup.replace(0x48, 1, "\x1B[31m" + std::string(100000, 'x'));
  const Dumped dumped = Of(setup);
  EXPECT_EQ(dumped.text.find('\x1B'), std::string::npos);
  EXPECT_THAT(dumped.text, HasSubstr("\\x1B[31mxxx"));
  EXPECT_LT(dumped.text.size(), 3000u);
}

TEST_F(Dump, RefusesWhatIsNoFileOfOurs) {
  EXPECT_EQ(Of("RIFF....AVI ").sound, false);
  std::ostringstream out;
  std::string problem;
  EXPECT_FALSE(samplehost::DumpFile(folder / "missing", out, problem));
  EXPECT_EQ(problem, "there is no such file");
  EXPECT_FALSE(samplehost::DumpFile(folder.path, out, problem));
  EXPECT_EQ(problem, "it is not a file");
}

}  // namespace
