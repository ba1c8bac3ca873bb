// Every container, damaged in every way that one byte, one size or one cut can do. Whatever a file
// says, the library answers, and what it hands out can be read.
#include "audio/MORT_codecs.h"
#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

struct Container {
  std::string name;
  Bytes file;
  std::vector<std::size_t> sizeFields;  // offsets of 32-bit numbers
  bool bigEndian;
};

void PrintTo(const Container& container, std::ostream* stream) {
  *stream << container.name;
}

Container Wav(qz::ushort bits) {
  const Bytes format = Le(1, 2) + Le(2, 2) + Le(8000, 4) + Le(32000, 4) + Le(4, 2) + Le(bits, 2);
  const Bytes smpl = Words({0, 0, 0, 60, 0, 0, 0, 1, 0, 0, 0, 1, 3, 0, 2});
  return {"wav" + std::to_string(bits),
          Text("RIFF") + Le(0, 4) + Text("WAVE") + Chunk("odd ", Text("x")) +
              Chunk("fmt ", format) + Chunk("smpl", smpl) + Chunk("data", Bytes(25, 0x41)),
          {4, 16, 26, 34, 50, 82, 98, 102, 118},
          false};
}

Container Aiff(qz::ushort bits) {
  const Bytes common =
      Be(1, 2) + Be(12, 4) + Be(bits, 2) + Bytes{0x40, 0x0E, 0xAC, 0x44} + Bytes(6);
  const Bytes marks =
      Be(2, 2) + Be(1, 2) + Be(3, 4) + Bytes{2, 'a', 'b', 0} + Be(2, 2) + Be(9, 4) + Bytes{0, 0};
  return {"aiff" + std::to_string(bits),
          Text("FORM") + Be(0, 4) + Text("AIFF") + BeChunk("COMM", common) +
              BeChunk("INST", Bytes(20, 1)) + BeChunk("MARK", marks) +
              BeChunk("SSND", Bytes(8) + Bytes(25, 0x41)),
          {4, 16, 22, 42, 70, 78, 88, 98},
          true};
}

// A tone between two stretches of silence.
Container Mort(int format) {
  std::vector<short> samples(700);
  for (std::size_t i = 200; i < 400; ++i)
    samples[i] = static_cast<short>(i % 20 * 1000);
  Sound source(Samples(samples), 16, 1, 8000);
  const TempFolder folder;
  EXPECT_EQ(audio_WriteWave(folder.Path("a").c_str(), &source, format), AUDIO_OK);
  return {"mort" + std::to_string(format), folder.Read("a"), {20, 24, 44, 48, 52}, false};
}

class AudioHostile : public testing::TestWithParam<Container> {
 protected:
  // Reads a damaged file both ways and holds the answers against what callers rely on.
  void Check(const Bytes& file, const std::string& what) {
    SCOPED_TRACE(what);
    const std::string path = folder.Write("damaged", file);
    Sound whole;
    const int result = audio_ReadWave(path.c_str(), &whole, false);
    ASSERT_THAT(result, testing::AnyOf(AUDIO_OK, AUDIO_UNKNOWNTYPE, AUDIO_NOMEMORY,
                                       AUDIO_BADCONTENT, AUDIO_DATAENDED));
    EXPECT_EQ(AudioErrorMsg[0] == '\0', result == AUDIO_OK);
    Sound info;
    EXPECT_EQ(audio_GetFileInfo(path.c_str(), &info),
              result == AUDIO_DATAENDED ? AUDIO_OK : result);
    EXPECT_EQ(Numbers(info), Numbers(whole));
    if (result != AUDIO_OK) return;

    ASSERT_NE(whole.Samples, nullptr);
    if (whole.LengthInBytes > file.size()) {  // promises
      const auto* samples = static_cast<const unsigned char*>(whole.Samples);
      EXPECT_EQ(samples[file.size()], 0);
      EXPECT_EQ(samples[whole.LengthInBytes - 1], 0);
    }
    if (_AUDIO* plain = mort_Decode(&whole)) {
      EXPECT_EQ(plain->LengthInBytes, plain->NumSamples * 2);
      const auto* begin = static_cast<const unsigned char*>(plain->Samples);
      const Bytes all(begin, begin + plain->LengthInBytes);  // it can be read
      EXPECT_EQ(all.size(), plain->LengthInBytes);
      mort_Release(plain);
    }
  }

  TempFolder folder;
  const Bytes& good = GetParam().file;
};

TEST_P(AudioHostile, CutAnywhere) {
  Sound sound;
  ASSERT_EQ(audio_ReadWave(folder.Write("whole", good).c_str(), &sound, false), AUDIO_OK)
      << AudioErrorMsg;
  for (std::size_t size = 0; size < good.size(); ++size) {
    Check(Part(good, 0, size), "cut to " + std::to_string(size));
  }
}

TEST_P(AudioHostile, SizesOfEveryKind) {
  for (const std::size_t offset : GetParam().sizeFields) {
    for (const qz::ulong size : {0u, 1u, 7u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
      const Bytes field = GetParam().bigEndian ? Be(size, 4) : Le(size, 4);
      Check(Part(good, 0, offset) + field + Part(good, offset + 4, good.size()),
            std::to_string(size) + " at " + std::to_string(offset));
    }
  }
}

TEST_P(AudioHostile, EveryByteChanged) {
  for (std::size_t offset = 0; offset < good.size(); ++offset) {
    for (const int value : {0x00, 0xFF, good[offset] ^ 0xFF, good[offset] ^ 0x01}) {
      Bytes file = good;
      file[offset] = static_cast<unsigned char>(value);
      Check(file, std::to_string(value) + " at " + std::to_string(offset));
    }
  }
}

TEST_P(AudioHostile, GarbageBehindTheMagic) {
  for (const Bytes& garbage : {Noise(500), Bytes(500, 0), Bytes(500, 0xFF)}) {
    Check(Part(good, 0, 12) + garbage, std::to_string(garbage[0]));
  }
}

INSTANTIATE_TEST_SUITE_P(Files, AudioHostile,
                         testing::Values(Wav(8), Wav(16), Aiff(8), Aiff(16),
                                         Mort(AUDIO_FORMAT_MORT_GSM), Mort(AUDIO_FORMAT_MORT_GB)),
                         [](const auto& container) { return container.param.name; });

}  // namespace
}  // namespace audiotest
