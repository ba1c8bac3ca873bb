// AIFF files.
#include <limits>

#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

const qz::ulong kNo = AUDIO_NOLOOP;

class AudioAiff : public testing::Test {
 protected:
  int Read(const Bytes& chunks, const std::string& type = "AIFF", bool stream = false) {
    const Bytes file = Text("FORM") + Be(0, 4) + Text(type) + chunks;
    std::free(sound.Samples);
    return audio_ReadWave(folder.Write("a.aiff", file).c_str(), &sound, stream);
  }

  TempFolder folder;
  Sound sound;
};

TEST_F(AudioAiff, FillsTheRecordWhateverTheOrderOfItsChunks) {
  const Bytes samples = Bytes{1, 2, 0xFF, 0xFE} + Bytes(396, 0);
  const Bytes common = AiffCommon(1, 200, 16, 44100);
  const Bytes data = AiffSamples(samples);
  const Bytes odd = BeChunk("NAME", Text("odd"));
  for (const Bytes& chunks : {common + data, data + common, odd + data + odd + common}) {
    ASSERT_EQ(Read(chunks), AUDIO_OK) << AudioErrorMsg;
    EXPECT_EQ(NumbersOf(sound), (Numbers{0, 400, 44100, 200, 16, 1, 60, 0, kNo, kNo, 0, 0}));
    EXPECT_EQ(sound.Raw(), Samples({0x0102, -2}) + Bytes(396, 0));
  }
  // The head's sample count stands whatever the sound data; 8-bit samples stay as they are.
  ASSERT_EQ(Read(AiffCommon(2, 9999, 8, 8000) + AiffSamples({0x80, 0x7F, 0xFF})), AUDIO_OK);
  EXPECT_EQ(sound.NumSamples, 9999u);
  EXPECT_EQ(sound.Raw(), (Bytes{0x80, 0x7F, 0xFF}));
  // Half a sample has its place, the upper half; what isn't there is silence.
  ASSERT_EQ(Read(common + Text("SSND") + Be(16, 4) + Bytes(8) + Bytes{1, 2, 3}), AUDIO_OK);
  EXPECT_EQ(sound.Raw(), Samples({0x0102, 0x0300, 0, 0}));
}

TEST_F(AudioAiff, RateIsTheWholePartInSixteenBits) {
  const struct {
    double rate;
    qz::ulong expected;
  } cases[] = {{22050.5, 22050}, {96000, 30464},  {65536, 0},
               {-1.5, 65535},    {-65537, 65535}, {4294979641, 12345},
               {1e300, 0},       {0.99, 0},       {std::numeric_limits<double>::infinity(), 0}};
  for (const auto& test : cases) {
    ASSERT_EQ(Read(AiffCommon(1, 0, 16, test.rate) + AiffSamples({})), AUDIO_OK);
    EXPECT_EQ(sound.SampleRate, test.expected) << test.rate;
  }
}

TEST_F(AudioAiff, KeyAndLoopComeFromInstrumentAndMarkerOrder) {
  const Bytes two = AiffMarks({{100, "even"}, {500, "odd"}}, 2);
  const Bytes three = AiffMarks({{100, "odd"}, {500, ""}, {1, "x"}}, 3);
  const struct {
    Bytes chunks;
    qz::int64 key, start, end, type, count;
  } cases[] = {
      {AiffInst(72, 0, 0) + two, 72, 100, 499, 0, 0},
      {two + AiffInst(200, 0, 5), 200, 100, 499, 0, 0},
      {AiffInst(72, 2, 0), 72, kNo, kNo, 1, -1},
      {AiffInst(72, 0x200, 1) + three, 72, 100, 499, 2, -1},
      {AiffMarks({{100, "x"}, {500, ""}}, 1), 60, 100, kNo, 0, 0},
      {AiffMarks({{100, ""}, {0, ""}}, 2), 60, 100, kNo, 0, 0},
      {AiffMarks({}, 0), 60, kNo, kNo, 0, 0},
  };
  for (const auto& test : cases) {
    ASSERT_EQ(Read(AiffCommon(1, 0, 16, 8000) + test.chunks + AiffSamples({})), AUDIO_OK);
    EXPECT_EQ(NumbersOf(sound), (Numbers{0, 0, 8000, 0, 16, 1, test.key, 0, test.start, test.end,
                                         test.type, test.count}));
  }
}

TEST_F(AudioAiff, RefusalsSayWhy) {
  const Bytes common = AiffCommon(1, 0, 16, 8000);
  const struct {
    Bytes chunks;
    int result;
    const char* message;
  } cases[] = {
      {AiffSamples({}), AUDIO_BADCONTENT, "Error locating `COMM' chunk!"},
      {common, AUDIO_BADCONTENT, "Error locating `SSND' chunk!"},
      {AiffCommon(1, 0, 24, 8000) + AiffSamples({}), AUDIO_BADCONTENT,
       "Unsupported bits per sample (24)!"},
      {common + BeChunk("SSND", Bytes(7)), AUDIO_NOMEMORY, "Out of memory!"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Read(test.chunks), test.result);
    EXPECT_STREQ(AudioErrorMsg, test.message);
  }
  EXPECT_EQ(Read(common + AiffSamples({}), "AIFC"), AUDIO_UNKNOWNTYPE);
  EXPECT_EQ(Read(common + AiffSamples({}), "AIFF", true), AUDIO_NOSTREAMING);
  ASSERT_NE(sound.Stream, nullptr);
  std::fclose(sound.Stream->fhandle);
  std::free(sound.Stream);
}

}  // namespace
}  // namespace audiotest
