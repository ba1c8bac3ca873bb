// AIFF files.
#include <limits>

#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

const qz::ulong kNo = AUDIO_NOLOOP;

Bytes Common(qz::ushort channels, qz::ulong frames, qz::ushort bits, double rate) {
  Bytes extended(10);
  audioConvertToIeeeExtended(rate, extended.data());
  return BeChunk("COMM", Be(channels, 2) + Be(frames, 4) + Be(bits, 2) + extended);
}

Bytes SoundData(const Bytes& samples) {
  return BeChunk("SSND", Words({0x99, 0x88}) + samples);
}

Bytes Inst(unsigned char key, qz::ushort sustainEnd, qz::ushort releaseEnd) {
  return BeChunk("INST",
                 Bytes{key} + Bytes(11, 3) + Be(sustainEnd, 2) + Bytes(4, 3) + Be(releaseEnd, 2));
}

Bytes Marker(qz::ulong position, const std::string& name) {
  return Be(77, 2) + Be(position, 4) + Be(name.size(), 1) + Text(name) +
         Bytes((name.size() + 1) % 2);
}

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
  const Bytes common = Common(1, 200, 16, 44100);
  const Bytes data = SoundData(samples);
  const Bytes odd = BeChunk("NAME", Text("odd"));
  for (const Bytes& chunks : {common + data, data + common, odd + data + odd + common}) {
    ASSERT_EQ(Read(chunks), AUDIO_OK) << AudioErrorMsg;
    EXPECT_EQ(Numbers(sound),
              (std::vector<qz::int64>{0, 400, 44100, 200, 16, 1, 60, 0, kNo, kNo, 0, 0}));
    EXPECT_EQ(sound.Raw(), Samples({0x0102, -2}) + Bytes(396, 0));
  }
  // The head's sample count stands whatever the sound data; 8-bit samples stay as they are.
  ASSERT_EQ(Read(Common(2, 9999, 8, 8000) + SoundData({0x80, 0x7F, 0xFF})), AUDIO_OK);
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
    ASSERT_EQ(Read(Common(1, 0, 16, test.rate) + SoundData({})), AUDIO_OK);
    EXPECT_EQ(sound.SampleRate, test.expected) << test.rate;
  }
}

TEST_F(AudioAiff, KeyAndLoopComeFromInstrumentAndMarkerOrder) {
  const Bytes two = BeChunk("MARK", Be(2, 2) + Marker(100, "even") + Marker(500, "odd"));
  const Bytes three =
      BeChunk("MARK", Be(3, 2) + Marker(100, "odd") + Marker(500, "") + Marker(1, "x"));
  const struct {
    Bytes chunks;
    std::vector<qz::int64> expected;
  } cases[] = {
      {Inst(72, 0, 0) + two, {72, 100, 499, 0, 0}},
      {two + Inst(200, 0, 5), {200, 100, 499, 0, 0}},
      {Inst(72, 2, 0), {72, kNo, kNo, 1, -1}},
      {Inst(72, 0x200, 1) + three, {72, 100, 499, 2, -1}},
      {BeChunk("MARK", Be(1, 2) + Marker(100, "x") + Marker(500, "")), {60, 100, kNo, 0, 0}},
      {BeChunk("MARK", Be(2, 2) + Marker(100, "") + Marker(0, "")), {60, 100, kNo, 0, 0}},
      {BeChunk("MARK", Be(0, 2)), {60, kNo, kNo, 0, 0}},
  };
  for (const auto& test : cases) {
    ASSERT_EQ(Read(Common(1, 0, 16, 8000) + test.chunks + SoundData({})), AUDIO_OK);
    EXPECT_EQ(KeyAndLoop(sound), test.expected);
  }
}

TEST_F(AudioAiff, RefusalsSayWhy) {
  const Bytes common = Common(1, 0, 16, 8000);
  const struct {
    Bytes chunks;
    int result;
    const char* message;
  } cases[] = {
      {SoundData({}), AUDIO_BADCONTENT, "Error locating `COMM' chunk!"},
      {common, AUDIO_BADCONTENT, "Error locating `SSND' chunk!"},
      {Common(1, 0, 24, 8000) + SoundData({}), AUDIO_BADCONTENT,
       "Unsupported bits per sample (24)!"},
      {common + BeChunk("SSND", Bytes(7)), AUDIO_NOMEMORY, "Out of memory!"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Read(test.chunks), test.result);
    EXPECT_STREQ(AudioErrorMsg, test.message);
  }
  EXPECT_EQ(Read(common + SoundData({}), "AIFC"), AUDIO_UNKNOWNTYPE);
  EXPECT_EQ(Read(common + SoundData({}), "AIFF", true), AUDIO_NOSTREAMING);
  ASSERT_NE(sound.Stream, nullptr);
  std::fclose(sound.Stream->fhandle);
  std::free(sound.Stream);
}

}  // namespace
}  // namespace audiotest
