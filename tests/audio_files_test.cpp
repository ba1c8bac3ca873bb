// WAV and AIFF files, and what the front end makes of them.
#include <limits>

#include "platform/platform.h"
#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

const qz::ulong kNo = AUDIO_NOLOOP;

Bytes Format(qz::ushort tag, qz::ushort channels, qz::ulong rate, qz::ushort bits) {
  return Chunk("fmt ", Le(tag, 2) + Le(channels, 2) + Le(rate, 4) + Le(0xDEAD, 4) + Le(0xBEEF, 2) +
                           Le(bits, 2));
}

class AudioFiles : public testing::Test {
 protected:
  // Both ways of reading; their numbers must agree. `sound` has the whole one.
  int Read(const Bytes& file) {
    const std::string path = folder.Write("file", file);
    std::free(sound.Samples);
    const int infoResult = audio_GetFileInfo(path.c_str(), &sound);
    const std::string message = AudioErrorMsg;
    const Numbers numbers = NumbersOf(sound);
    std::free(sound.Samples);
    const int result = audio_ReadWave(path.c_str(), &sound, false);
    EXPECT_EQ(result, infoResult);
    EXPECT_EQ(AudioErrorMsg, message);
    EXPECT_EQ(NumbersOf(sound), numbers);
    return result;
  }
  // Nobody looks at the size of the whole.
  static Bytes Riff(const Bytes& chunks) {
    return Text("RIFF") + Le(0x12345678, 4) + Text("WAVE") + chunks;
  }
  static Bytes Form(const Bytes& chunks) { return Text("FORM") + Be(0, 4) + Text("AIFF") + chunks; }
  int ReadWav(const Bytes& chunks) { return Read(Riff(chunks)); }
  int ReadAiff(const Bytes& chunks) { return Read(Form(chunks)); }
  Bytes Written(Sound& source) {
    EXPECT_EQ(audio_WriteWave(folder.Path("w.wav").c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_OK)
        << AudioErrorMsg;
    return folder.Read("w.wav");
  }

  TempFolder folder;
  Sound sound;
};

TEST_F(AudioFiles, WavPlainFileFillsTheRecordWhateverTheOrderOfItsChunks) {
  const Bytes samples = Samples({0x201, -2, -32768, 32767});
  const Bytes data = Chunk("data", samples);
  const Bytes format = Format(1, 2, 22050, 16);
  const Bytes odd = Chunk("LIST", Text("odd"));
  const Bytes extended = Chunk("fmt ", Part(format, 8, 24) + Le(22, 2) + Bytes(22));
  for (const Bytes& chunks :
       {format + data, data + format, odd + format + odd + data + odd, extended + data}) {
    ASSERT_EQ(ReadWav(chunks), AUDIO_OK) << AudioErrorMsg;
    EXPECT_STREQ(AudioErrorMsg, "");
    EXPECT_EQ(NumbersOf(sound), (Numbers{0, 8, 22050, 2, 16, 2, 60, 0, kNo, kNo, 0, 0}));
    EXPECT_EQ(sound.Raw(), samples);
  }
}

TEST_F(AudioFiles, RefusalsSayWhy) {
  const Bytes data = Chunk("data", Bytes(4));
  const auto junk = [&](qz::ulong size) {  // its size steps backwards where distances have 32 bits
    return Riff(Text("junk") + Le(size, 4) + Format(1, 1, 8000, 8) + data);
  };
  const Bytes common = AiffCommon(1, 0, 16, 8000);
  const struct {
    Bytes file;
    const char* message;
    int result = AUDIO_BADCONTENT;
  } cases[] = {
      {Riff(data), "Error locating `fmt ' chunk!"},
      {junk(0x7FFFFFFF), "Error locating `fmt ' chunk!"},
      {junk(0xFFFFFFF8), "Error locating `fmt ' chunk!"},
      {junk(0xFFFFFFFF), "Error locating `fmt ' chunk!"},
      {Riff(Format(3, 1, 8000, 32) + data), "Unsupported compression scheme (3)!"},
      {Riff(Format(0xFFFE, 1, 8000, 16) + data), "Unsupported compression scheme (65534)!"},
      {Riff(Format(1, 1, 8000, 16)), "Error locating `data' chunk!"},
      {Riff(Format(1, 1, 8000, 16) + Text("dat")), "Error locating `data' chunk!"},
      {Riff(Format(1, 1, 8000, 24) + data), "Unsupported bits per sample (24)!"},
      {Form(AiffSamples({})), "Error locating `COMM' chunk!"},
      {Form(common), "Error locating `SSND' chunk!"},
      {Form(AiffCommon(1, 0, 24, 8000) + AiffSamples({})), "Unsupported bits per sample (24)!"},
      {Form(common + BeChunk("SSND", Bytes(7))), "Out of memory!", AUDIO_NOMEMORY},
      {Riff(data + Text("fmt ") + Le(16, 4) + Le(1, 2) + Bytes{2}),
       "Unsupported bits per sample (0)!"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Read(test.file), test.result);
    EXPECT_STREQ(audio_ErrorMsg, test.message);
  }
  EXPECT_EQ(sound.NumChannels, 2u);  // what the cut format chunk gave
  EXPECT_EQ(audio_FreeWave(nullptr), 0);
  EXPECT_STREQ(audio_ErrorMsg, "");
}

TEST_F(AudioFiles, OtherFilesAreMissingOrOfNoType) {
  const std::string missing = folder.Path("none.wav");
  EXPECT_EQ(audio_ReadWave(missing.c_str(), &sound, false), AUDIO_NOTFOUND);
  EXPECT_EQ(AudioErrorMsg, "File `" + missing + "' not found!");
  for (const char* text : {"", "RIFF....WAV", "RIFX....WAVE", "RIFF....AVI ", "FORM....AIFC"}) {
    const std::string path = folder.Write("a.txt", Text(text));
    EXPECT_EQ(audio_ReadWave(path.c_str(), &sound, true), AUDIO_UNKNOWNTYPE);
    std::free(sound.Stream);  // its file is closed
    EXPECT_EQ(AudioErrorMsg, "File `" + path + "' is of an unknown type!");
  }
  const std::string tooLong(5000, 'x');
  EXPECT_EQ(audio_GetFileInfo(tooLong.c_str(), &sound), AUDIO_NOTFOUND);
  EXPECT_EQ(AudioErrorMsg, "File `" + std::string(AUDIO_ERRORMSGSIZE - 1 - 6, 'x'));
}

TEST_F(AudioFiles, StreamingIsRefusedAndTheFileLeftToTheStream) {
  for (const Bytes& file : {Riff(Format(1, 1, 8000, 16) + Chunk("data", {})),
                            Form(AiffCommon(1, 0, 16, 8000) + AiffSamples({}))}) {
    EXPECT_EQ(audio_ReadWave(folder.Write("file", file).c_str(), &sound, true), AUDIO_NOSTREAMING);
    EXPECT_STREQ(AudioErrorMsg, "Streaming not yet implemented!");
    ASSERT_NE(sound.Stream, nullptr);
    EXPECT_EQ(std::fclose(sound.Stream->fhandle), 0);
    std::free(sound.Stream);
  }
}

TEST_F(AudioFiles, WavChannelsDivideTheLengthWherePossible) {
  ASSERT_EQ(ReadWav(Format(1, 0, 8000, 16) + Chunk("data", Bytes(8))), AUDIO_OK);
  EXPECT_EQ(sound.NumSamples, 0u);
  ASSERT_EQ(ReadWav(Format(1, 65535, 8000, 16) + Text("data") + Le(0xFFFFFFFF, 4)), AUDIO_OK);
  EXPECT_EQ(sound.NumSamples, 0xFFFFFFFFu / (65535u * 2));
  ASSERT_EQ(ReadWav(Format(1, 2, 8000, 16) + Chunk("data", Bytes(401))), AUDIO_OK);
  EXPECT_EQ(sound.NumSamples, 100u);
  // A chunk head is one as soon as its name is whole.
  ASSERT_EQ(ReadWav(Format(1, 1, 8000, 8) + Text("data")), AUDIO_OK);
  EXPECT_EQ(sound.LengthInBytes, 0u);
}

TEST_F(AudioFiles, WavWrittenFileIsLaidOutFieldByFieldWithALoopWhereBothEndsAreSet) {
  const struct {
    qz::ulong start, end;
    qz::slong count;
    qz::ulong loops, plays;
  } cases[] = {{0, 9, -1, 1, 0}, {3, 4, 7, 1, 7},    {5, 5, -2, 1, 0xFFFFFFFE},
               {3, 0, -1, 0, 0}, {kNo, 9, -1, 0, 0}, {3, kNo, -1, 0, 0}};
  for (const auto& test : cases) {
    Sound source(Noise(20), 16, 1, 32000);
    source.OriginalKey = -2;
    source.LoopStart = test.start;
    source.LoopEnd = test.end;
    source.LoopCount = test.count;
    const Bytes smpl = Words({0, 0, 31250, 0xFFFFFFFE, 0, 0, 0, test.loops, 0});
    const Bytes loop = Words({0, 0, test.start, test.end, 0, test.plays});
    EXPECT_EQ(
        Written(source),
        Text("RIFF") + Le(100 + 24 * test.loops, 4) + Text("WAVE") +
            Chunk("fmt ", Le(1, 2) + Le(1, 2) + Words({32000, 64000}) + Le(2, 2) + Le(16, 2)) +
            Chunk("data", source.Raw()) + Chunk("smpl", test.loops == 1 ? smpl + loop : smpl));
  }
}

TEST_F(AudioFiles, WavRoundTripKeepsTheRecordAndOddSizesArePadded) {
  for (const std::size_t size : {102u, 16383u, 20001u}) {
    for (const qz::ushort bits : std::initializer_list<qz::ushort>{8, 16}) {
      Sound source(Noise(size), bits, 3, 48000);
      source.OriginalKey = 71;
      source.LoopStart = 12;
      source.LoopEnd = 999;
      source.LoopType = 1;
      source.LoopCount = -1;
      const Bytes file = Written(source);
      EXPECT_EQ(file.size(), 44 + size + size % 2 + 68);
      EXPECT_EQ(file[44], source.Raw()[0] ^ (bits == 8 ? 0x80 : 0));
      ASSERT_EQ(ReadWav(Part(file, 12, file.size())), AUDIO_OK);
      EXPECT_EQ(NumbersOf(sound),
                NumbersOf(source));  // the key too: "smpl" was found behind the pad
      const std::size_t whole = bits == 16 ? size / 2 * 2 : size;
      EXPECT_EQ(Part(sound.Raw(), 0, whole), Part(source.Raw(), 0, whole));
      EXPECT_EQ(file[44 + size - 1], source.Raw()[size - 1] ^ (bits == 8 ? 0x80 : 0));
    }
  }
}

TEST_F(AudioFiles, WavDegenerateRecordsAreWrittenOrRefusedWhole) {
  Sound none({}, 8, 1, 0);
  const Bytes file = Written(none);
  EXPECT_EQ(file.size(), 88u);
  EXPECT_EQ(Part(file, 60, 64), Le(0, 4));  // no rate, no period

  std::free(none.Samples);
  none.Samples = nullptr;
  EXPECT_EQ(Written(none), file);
  none.LengthInBytes = 4;
  Sound source(Noise(10), 16, 1, 8000);
  const std::string path = folder.Path("x.wav");
  const std::string inNoFolder = folder.Path("none/a.wav");
  EXPECT_EQ(audio_WriteWave(path.c_str(), &none, AUDIO_FORMAT_WAV), AUDIO_WRITEFAILED);
  EXPECT_EQ(AudioErrorMsg, "Could not create file `" + path + "'!");
  EXPECT_EQ(audio_WriteWave(inNoFolder.c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_WRITEFAILED);
  EXPECT_EQ(AudioErrorMsg, "Could not create file `" + inNoFolder + "'!");
  EXPECT_EQ(audio_WriteWave(path.c_str(), &source, 1), AUDIO_UNKNOWNTYPE);
  EXPECT_STREQ(AudioErrorMsg, "Unsupported save format!");
  source.UsesCompression = 3;
  EXPECT_EQ(audio_WriteWave(path.c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_WRITEFAILED);
  EXPECT_STREQ(AudioErrorMsg, "");
  EXPECT_FALSE(std::filesystem::exists(folder.Native("x.wav")));
}

TEST_F(AudioFiles, AiffRateIsTheWholePartInSixteenBits) {
  const struct {
    double rate;
    qz::ulong expected;
  } cases[] = {{22050.5, 22050}, {96000, 30464},  {65536, 0},
               {-1.5, 65535},    {-65537, 65535}, {4294979641, 12345},
               {1e300, 0},       {0.99, 0},       {std::numeric_limits<double>::infinity(), 0}};
  for (const auto& test : cases) {
    ASSERT_EQ(ReadAiff(AiffCommon(1, 0, 16, test.rate) + AiffSamples({})), AUDIO_OK);
    EXPECT_EQ(sound.SampleRate, test.expected) << test.rate;
  }
}

TEST_F(AudioFiles, AiffKeyAndLoopComeFromInstrumentAndMarkerOrder) {
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
    ASSERT_EQ(ReadAiff(AiffCommon(1, 0, 16, 8000) + test.chunks + AiffSamples({})), AUDIO_OK);
    EXPECT_EQ(NumbersOf(sound), (Numbers{0, 0, 8000, 0, 16, 1, test.key, 0, test.start, test.end,
                                         test.type, test.count}));
  }
}

}  // namespace
}  // namespace audiotest
