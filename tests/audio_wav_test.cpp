// WAV files and what the front end makes of them.
#include <sys/resource.h>

#include "audio/WAV_reader.h"
#include "audio/WAV_writer.h"
#include "platform/platform.h"
#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

const qz::ulong kNo = AUDIO_NOLOOP;

Bytes Format(qz::ushort tag, qz::ushort channels, qz::ulong rate, qz::ushort bits) {
  return Chunk("fmt ", Le(tag, 2) + Le(channels, 2) + Le(rate, 4) + Le(0xDEAD, 4) + Le(0xBEEF, 2) +
                           Le(bits, 2));
}

Bytes Riff(const Bytes& chunks) {
  return Text("RIFF") + Le(0x12345678, 4) + Text("WAVE") + chunks;
}

// A "smpl" chunk of one loop; `numLoops` is what its count says.
Bytes Smpl(qz::ulong key, qz::ulong numLoops, qz::ulong start, qz::ulong end, qz::ulong plays) {
  return Chunk("smpl", Words({1, 2, 3, key, 5, 6, 7, numLoops, 9, 10, 2, start, end, 14, plays}));
}

class AudioWav : public testing::Test {
 protected:
  int Read(const Bytes& bytes) {
    return audio_ReadWave(folder.Write("a.wav", bytes).c_str(), Fresh(), false);
  }
  int Info(const Bytes& bytes) {
    return audio_GetFileInfo(folder.Write("a.wav", bytes).c_str(), Fresh());
  }
  // Writes `source` as WAV and gives the file's bytes.
  Bytes Written(_AUDIO& source) {
    EXPECT_EQ(audio_WriteWave(folder.Path("w.wav").c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_OK)
        << AudioErrorMsg;
    return folder.Read("w.wav");
  }
  _AUDIO* Fresh() {
    std::free(sound.Samples);
    std::memset(static_cast<_AUDIO*>(&sound), 0x5A, sizeof(_AUDIO));  // nothing may stay of it
    sound.Samples = nullptr;
    return &sound;
  }

  TempFolder folder;
  Sound sound;
};

TEST_F(AudioWav, PlainFileFillsTheRecordWhateverTheOrderOfItsChunks) {
  const Bytes data = Chunk("data", Le(0x0201, 2) + Le(0xFFFE, 2) + Le(0x8000, 2) + Le(0x7FFF, 2));
  const Bytes format = Format(1, 2, 22050, 16);
  const Bytes odd = Chunk("LIST", Text("odd"));
  for (const Bytes& chunks : {format + data, data + format, odd + format + odd + data + odd,
                              Chunk("data", {}) + format}) {
    const bool empty = chunks[4] == 0 && chunks[0] == 'd';
    ASSERT_EQ(Read(Riff(chunks)), AUDIO_OK) << AudioErrorMsg;
    EXPECT_STREQ(AudioErrorMsg, "");
    EXPECT_EQ(Numbers(sound), (std::vector<qz::int64>{0, empty ? 0 : 8, 22050, empty ? 0 : 2, 16, 2,
                                                      60, 0, kNo, kNo, 0, 0}));
    EXPECT_EQ(sound.Stream, nullptr);
    ASSERT_NE(sound.Samples, nullptr);
    EXPECT_EQ(sound.Samples16(),
              empty ? std::vector<short>{} : (std::vector<short>{0x201, -2, -32768, 32767}));
  }
}

TEST_F(AudioWav, SmplChunkGivesKeyAndFirstLoop) {
  const Bytes rest = Format(1, 1, 8000, 8) + Chunk("data", Bytes(4, 0x80));
  const struct {
    Bytes smpl;
    std::vector<qz::int64> keyAndLoop;  // key, start, end, type, count
  } cases[] = {
      {{}, {60, kNo, kNo, 0, 0}},
      {Smpl(72, 0, 10, 20, 3), {72, kNo, kNo, 0, 0}},
      {Smpl(72, 1, 10, 20, 3), {72, 10, 20, 1, 3}},
      {Smpl(72, 2, 10, 20, 0), {72, 10, 20, 1, -1}},
      {Smpl(0x1FFFF, 0xFFFFFFFF, 0xFFFFFFF0, 0, 0xFFFFFFFF), {-1, 0xFFFFFFF0, 0, 1, -1}},
  };
  for (const auto& test : cases) {
    ASSERT_EQ(Read(Riff(test.smpl + rest)), AUDIO_OK);
    EXPECT_EQ((std::vector<qz::int64>{sound.OriginalKey, sound.LoopStart, sound.LoopEnd,
                                      sound.LoopType, sound.LoopCount}),
              test.keyAndLoop);
    EXPECT_EQ(sound.Raw(), Bytes(4, 0));
  }
}

TEST_F(AudioWav, RefusalsSayWhy) {
  const Bytes data = Chunk("data", Bytes(4));
  const struct {
    Bytes file;
    const char* message;
  } cases[] = {
      {Riff(data), "Error locating `fmt ' chunk!"},
      {Riff({}), "Error locating `fmt ' chunk!"},
      {Riff(Format(3, 1, 8000, 32) + data), "Unsupported compression scheme (3)!"},
      {Riff(Format(0xFFFE, 1, 8000, 16) + data), "Unsupported compression scheme (65534)!"},
      {Riff(Format(1, 1, 8000, 16)), "Error locating `data' chunk!"},
      {Riff(Format(1, 1, 8000, 24) + data), "Unsupported bits per sample (24)!"},
      {Riff(Format(1, 1, 8000, 0) + data), "Unsupported bits per sample (0)!"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Read(test.file), AUDIO_BADCONTENT);
    EXPECT_STREQ(audio_ErrorMsg, test.message);
    EXPECT_EQ(Info(test.file), AUDIO_BADCONTENT);
    EXPECT_STREQ(audio_ErrorMsg, test.message);
  }
  EXPECT_EQ(audio_FreeWave(nullptr), 0);
  EXPECT_STREQ(audio_ErrorMsg, "");
}

TEST_F(AudioWav, OtherFilesAreMissingOrOfNoType) {
  const std::string missing = folder.Path("none.wav");
  EXPECT_EQ(audio_ReadWave(missing.c_str(), Fresh(), false), AUDIO_NOTFOUND);
  EXPECT_EQ(AudioErrorMsg, "File `" + missing + "' not found!");
  EXPECT_EQ(Numbers(sound), std::vector<qz::int64>(12, 0));

  for (const Bytes& file :
       {Bytes{}, Text("RIFF....WAV"), Text("RIFX....WAVE"), Text("RIFF....AVI "), Bytes(100, 0)}) {
    EXPECT_EQ(Info(file), AUDIO_UNKNOWNTYPE);
    EXPECT_EQ(AudioErrorMsg, "File `" + folder.Path("a.wav") + "' is of an unknown type!");
    EXPECT_EQ(audio_ErrorCode, 0);
  }

  const std::string tooLong(5000, 'x');
  EXPECT_EQ(audio_GetFileInfo(tooLong.c_str(), Fresh()), AUDIO_NOTFOUND);
  EXPECT_EQ(AudioErrorMsg, "File `" + std::string(AUDIO_ERRORMSGSIZE - 1 - 6, 'x'));
}

TEST_F(AudioWav, IsValidAndFindChunkLeaveTheFileWhereTheirCallersRelyOnIt) {
  const Bytes bytes = Riff(Chunk("odd ", Text("x")) + Chunk("data", Text("abcd")));
  std::FILE* file = platform::fopen(folder.Write("a.wav", bytes).c_str(), "rb");
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(wav_IsValid(file));
  EXPECT_EQ(std::ftell(file), 0);
  EXPECT_TRUE(wav_FindChunk(file, "data"));
  EXPECT_EQ(std::ftell(file), 12 + 10 + 8);
  EXPECT_EQ(std::fgetc(file), 'a');
  EXPECT_FALSE(wav_IsValid(file));  // it looks at the position it finds
  EXPECT_EQ(std::ftell(file), 0);
  EXPECT_FALSE(wav_FindChunk(file, "smpl"));
  std::fclose(file);
}

TEST_F(AudioWav, StreamingIsRefusedAndTheFileLeftToTheStream) {
  const std::string path = folder.Write("a.wav", Riff(Format(1, 1, 8000, 16) + Chunk("data", {})));
  EXPECT_EQ(audio_ReadWave(path.c_str(), Fresh(), true), AUDIO_NOSTREAMING);
  EXPECT_STREQ(AudioErrorMsg, "Streaming not yet implemented!");
  ASSERT_NE(sound.Stream, nullptr);
  ASSERT_NE(sound.Stream->fhandle, nullptr);
  EXPECT_EQ(std::fclose(sound.Stream->fhandle), 0);
  std::free(sound.Stream);
}

TEST_F(AudioWav, InfoGivesTheNumbersOfAWholeRead) {
  const Bytes file =
      Riff(Format(1, 2, 44100, 16) + Smpl(65, 1, 1, 2, 0) + Chunk("data", Bytes(401)));
  ASSERT_EQ(Read(file), AUDIO_OK);
  const std::vector<qz::int64> numbers = Numbers(sound);
  EXPECT_EQ(sound.NumSamples, 100u);
  ASSERT_EQ(Info(file), AUDIO_OK);
  EXPECT_EQ(Numbers(sound), numbers);
  EXPECT_NE(sound.Samples, nullptr);
}

TEST_F(AudioWav, PromisedSamplesThatTheFileDoesNotHoldAreSilence) {
  const Bytes three = {0x90, 0x91, 0x92};
  const Bytes head = Riff(Format(1, 1, 8000, 8) + Text("data") + Le(6, 4));
  ASSERT_EQ(Read(head + three), AUDIO_OK);
  EXPECT_EQ(sound.Raw(), (Bytes{0x10, 0x11, 0x12, 0, 0, 0}));
  ASSERT_EQ(Read(Riff(Format(1, 1, 8000, 16) + Text("data") + Le(7, 4)) + three), AUDIO_OK);
  EXPECT_EQ(sound.NumSamples, 3u);
  EXPECT_EQ(sound.Raw(), (Bytes{0x90, 0x91, 0x92, 0, 0, 0, 0}));
}

TEST_F(AudioWav, AChunkHeadAtTheEndMatchesByItsWholeName) {
  const Bytes start = Riff(Format(1, 1, 8000, 8));
  EXPECT_EQ(Read(start + Text("dat")), AUDIO_BADCONTENT);
  ASSERT_EQ(Read(start + Text("data")), AUDIO_OK);
  EXPECT_EQ(sound.LengthInBytes, 0u);
  ASSERT_EQ(Read(start + Text("data") + Bytes{5, 1}), AUDIO_OK);
  EXPECT_EQ(sound.LengthInBytes, 0x105u);
  EXPECT_EQ(sound.Raw(), Bytes(0x105, 0));
  // A cut format chunk: what is missing is zero.
  ASSERT_EQ(Read(Riff(Chunk("data", Bytes(4)) + Text("fmt ") + Le(16, 4) + Le(1, 2) + Bytes{2})),
            AUDIO_BADCONTENT);
  EXPECT_EQ(sound.NumChannels, 2u);
  EXPECT_STREQ(AudioErrorMsg, "Unsupported bits per sample (0)!");
}

TEST_F(AudioWav, NoChannelsGiveNoFrames) {
  ASSERT_EQ(Read(Riff(Format(1, 0, 8000, 16) + Chunk("data", Bytes(8)))), AUDIO_OK);
  EXPECT_EQ(sound.NumSamples, 0u);
  ASSERT_EQ(Read(Riff(Format(1, 65535, 8000, 16) + Text("data") + Le(0xFFFFFFFF, 4))), AUDIO_OK);
  EXPECT_EQ(sound.NumSamples, 0xFFFFFFFFu / (65535u * 2));
}

// A size that steps backwards where a distance has 32 bits.
TEST_F(AudioWav, HugeSizesEndTheWalk) {
  for (const qz::ulong size : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Read(Riff(Text("junk") + Le(size, 4) + Format(1, 1, 8000, 8))), AUDIO_BADCONTENT);
    EXPECT_STREQ(AudioErrorMsg, "Error locating `fmt ' chunk!");
  }
}

// The resident pages of this process.
long ResidentPages() {
  long all = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident;
}

TEST_F(AudioWav, EmptyPromisesCommitNoMemory) {
  const Bytes file = Riff(Format(1, 1, 8000, 16) + Text("data") + Le(0x40000000, 4) + Bytes(10, 7));
  const long before = ResidentPages();
  ASSERT_EQ(Read(file), AUDIO_OK);
  ASSERT_EQ(sound.LengthInBytes, 0x40000000u);
  EXPECT_LT(ResidentPages() - before, 1000);
  ASSERT_EQ(Info(file), AUDIO_OK);
  EXPECT_LT(ResidentPages() - before, 1000);
}

TEST_F(AudioWav, ExhaustedMemoryIsReported) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the address sanitizer needs the address space";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  GTEST_SKIP() << "the address sanitizer needs the address space";
#endif
#endif
  const std::string path =
      folder.Write("a.wav", Riff(Format(1, 1, 8000, 16) + Text("data") + Le(0xFFFFFFFF, 4)));
  const auto inSmallSpace = [&] {
    const rlimit limit = {1u << 30, 1u << 30};
    setrlimit(RLIMIT_AS, &limit);
    const bool right = audio_GetFileInfo(path.c_str(), &sound) == AUDIO_NOMEMORY &&
                       std::strcmp(AudioErrorMsg, "Out of memory!") == 0 &&
                       audio_ReadWave(path.c_str(), &sound, false) == AUDIO_NOMEMORY &&
                       sound.Samples == nullptr && sound.LengthInBytes == 0xFFFFFFFFu;
    std::_Exit(right ? 0 : 1);
  };
  EXPECT_EXIT(inSmallSpace(), testing::ExitedWithCode(0), "");
}

TEST_F(AudioWav, WrittenFileIsLaidOutFieldByField) {
  const std::vector<short> samples = Noise(1000);
  Sound source;
  source.Set16(samples, 1, 32000);
  source.OriginalKey = -2;
  const Bytes file = Written(source);
  const Bytes head = Text("RIFF") + Le(2080, 4) + Text("WAVEfmt ") + Le(16, 4) + Le(1, 2) +
                     Le(1, 2) + Le(32000, 4) + Le(64000, 4) + Le(2, 2) + Le(16, 2) + Text("data") +
                     Le(2000, 4);
  const Bytes tail = Text("smpl") + Words({36, 0, 0, 31250, 0xFFFFFFFE, 0, 0, 0, 0, 0});
  EXPECT_EQ(file, head + source.Raw() + tail);
  EXPECT_EQ(file.size(), 2088u);
}

TEST_F(AudioWav, LoopIsWrittenWhereBothEndsAreSet) {
  const struct {
    qz::ulong start, end;
    qz::slong count;
    bool loop;
    qz::ulong plays;
  } cases[] = {
      {0, 9, -1, true, 0},  {3, 4, 7, true, 7},     {5, 5, -2, true, 0xFFFFFFFE},
      {3, 0, -1, false, 0}, {kNo, 9, -1, false, 0}, {3, kNo, -1, false, 0},
  };
  for (const auto& test : cases) {
    Sound source;
    source.Set16(Noise(10), 1, 3);
    source.LoopStart = test.start;
    source.LoopEnd = test.end;
    source.LoopCount = test.count;
    const Bytes file = Written(source);
    Bytes smpl = Words({36, 0, 0, 333333333, 0, 0, 0, 0, 0, 0});
    if (test.loop) {
      smpl =
          Words({60, 0, 0, 333333333, 0, 0, 0, 0, 1, 0, 0, 0, test.start, test.end, 0, test.plays});
    }
    EXPECT_EQ(Bytes(file.begin() + 44 + 20 + 4, file.end()), smpl) << test.start << " " << test.end;
    EXPECT_EQ(LeAt(file, 4, 4), file.size() - 8);
  }
}

TEST_F(AudioWav, EightBitSamplesAreFlippedBothWaysAndPadded) {
  for (const std::size_t size : {101u, 16384u, 20000u}) {
    Bytes samples;
    for (const short sample : Noise(size))
      samples.push_back(static_cast<unsigned char>(sample));
    Sound source;
    source.Set8(samples, 8000);
    const Bytes file = Written(source);
    ASSERT_EQ(file.size(), 44 + size + size % 2 + 44);
    EXPECT_EQ(LeAt(file, 32, 2), 1u);
    EXPECT_EQ(LeAt(file, 40, 4), size);
    EXPECT_EQ(file[44], samples[0] ^ 0x80);
    EXPECT_EQ(file[44 + size - 1], samples[size - 1] ^ 0x80);
    if (size % 2 != 0) {
      EXPECT_EQ(file[44 + size], 0);
    }
    ASSERT_EQ(Read(file), AUDIO_OK);
    EXPECT_EQ(sound.Raw(), samples);
    EXPECT_EQ(sound.OriginalKey, 0);  // from "smpl": it was found behind the pad
  }
}

TEST_F(AudioWav, RoundTripKeepsTheRecord) {
  Sound source;
  source.Set16(Noise(3000), 3, 48000);
  source.OriginalKey = 71;
  source.LoopStart = 12;
  source.LoopEnd = 999;
  source.LoopType = 1;
  source.LoopCount = -1;
  ASSERT_EQ(Read(Written(source)), AUDIO_OK);
  EXPECT_EQ(Numbers(sound), Numbers(source));
  EXPECT_EQ(sound.Raw(), source.Raw());
}

TEST_F(AudioWav, DegenerateRecordsAreWrittenOrRefusedWhole) {
  Sound odd;
  odd.Set16({1, 2, 3}, 1, 0);  // rate 0: period 0
  odd.LengthInBytes = 5;
  const Bytes file = Written(odd);
  EXPECT_EQ(Bytes(file.begin() + 44, file.begin() + 50), (Bytes{1, 0, 2, 0, 3, 0}));
  EXPECT_EQ(LeAt(file, 40, 4), 5u);
  EXPECT_EQ(LeAt(file, 50 + 16, 4), 0u);

  Sound none;
  none.BitsPerSample = 8;
  EXPECT_EQ(Written(none).size(), 88u);

  none.LengthInBytes = 4;
  const std::string path = folder.Path("not.wav");
  EXPECT_EQ(audio_WriteWave(path.c_str(), &none, AUDIO_FORMAT_WAV), AUDIO_WRITEFAILED);
  EXPECT_EQ(AudioErrorMsg, "Could not create file `" + path + "'!");
  EXPECT_FALSE(std::filesystem::exists(folder.Native("not.wav")));
}

TEST_F(AudioWav, WriteFailuresSayWhy) {
  Sound source;
  source.Set16(Noise(10), 1, 8000);
  const std::string inNoFolder = folder.Path("none/a.wav");
  EXPECT_EQ(audio_WriteWave(inNoFolder.c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_WRITEFAILED);
  EXPECT_EQ(AudioErrorMsg, "Could not create file `" + inNoFolder + "'!");
  EXPECT_EQ(wav_WriteWave(inNoFolder.c_str(), &source), 1);

  const std::string path = folder.Path("x.wav");
  for (const int format : {1, 4, -1}) {
    EXPECT_EQ(audio_WriteWave(path.c_str(), &source, format), AUDIO_UNKNOWNTYPE);
    EXPECT_STREQ(AudioErrorMsg, "Unsupported save format!");
  }
  source.UsesCompression = 3;
  EXPECT_EQ(audio_WriteWave(path.c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_WRITEFAILED);
  EXPECT_STREQ(AudioErrorMsg, "");
  EXPECT_FALSE(std::filesystem::exists(folder.Native("x.wav")));
}

}  // namespace
}  // namespace audiotest
