// Every container, damaged in every way that one byte, one size or one cut can do. Whatever a file
// says, the library answers, and what it hands out can be read.
#include <algorithm>
#include <functional>

#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

struct Container {
  std::string name;
  Bytes file;
  std::vector<std::size_t> sizeFields;  // offsets of 32-bit numbers
  bool bigEndian;
};

Container Wav(qz::ushort bits) {
  const Bytes format =
      Chunk("fmt ", Le(1, 2) + Le(2, 2) + Le(8000, 4) + Le(32000, 4) + Le(4, 2) + Le(bits, 2));
  const Bytes smpl = Chunk("smpl", Words({0, 0, 0, 60, 0, 0, 0, 1, 0, 0, 0, 1, 3, 0, 2}));
  Bytes data;
  for (int i = 0; i < 25; ++i)
    data.push_back(static_cast<unsigned char>(0x41 + i));
  const Bytes file = Text("RIFF") + Le(0, 4) + Text("WAVE") + Chunk("odd ", Text("x")) + format +
                     smpl + Chunk("data", data);
  return {"wav" + std::to_string(bits),
          file,
          {4, 16, 26, 34, 50, 50 + 32, 50 + 48, 50 + 52, 118},
          false};
}

void PrintTo(const Container& container, std::ostream* stream) {
  *stream << container.name;
}

class AudioHostile : public testing::TestWithParam<Container> {
 protected:
  // Reads a damaged file both ways and holds the answers against what callers rely on.
  void Check(const Bytes& file, const std::string& what) {
    SCOPED_TRACE(what);
    const std::string path = folder.Write("damaged", file);
    Sound whole;
    const int result = audio_ReadWave(path.c_str(), &whole, false);
    const bool silent = AudioErrorMsg[0] == '\0';
    Sound info;
    const int infoResult = audio_GetFileInfo(path.c_str(), &info);

    ASSERT_THAT(result, testing::AnyOf(AUDIO_OK, AUDIO_UNKNOWNTYPE, AUDIO_NOMEMORY,
                                       AUDIO_BADCONTENT, AUDIO_DATAENDED));
    EXPECT_EQ(silent, result == AUDIO_OK);
    EXPECT_EQ(infoResult, result == AUDIO_DATAENDED ? AUDIO_OK : result);
    EXPECT_EQ(Numbers(info), Numbers(whole));
    if (result != AUDIO_OK) return;
    ASSERT_NE(whole.Samples, nullptr);
    const auto* samples = static_cast<const unsigned char*>(whole.Samples);
    const std::size_t looked = std::min<std::size_t>(whole.LengthInBytes, file.size() + 64);
    EXPECT_TRUE(std::all_of(samples + std::min(looked, file.size()), samples + looked,
                            [](unsigned char byte) { return byte == 0; }));
    if (whole.LengthInBytes > file.size()) {
      EXPECT_EQ(samples[whole.LengthInBytes - 1], 0);
    }
  }

  TempFolder folder;
};

TEST_P(AudioHostile, IsWholeToBeginWith) {
  Sound sound;
  EXPECT_EQ(audio_ReadWave(folder.Write("whole", GetParam().file).c_str(), &sound, false), AUDIO_OK)
      << AudioErrorMsg;
}

TEST_P(AudioHostile, CutAnywhere) {
  for (std::size_t size = 0; size < GetParam().file.size(); ++size) {
    Check(Bytes(GetParam().file.begin(), GetParam().file.begin() + static_cast<long>(size)),
          "cut to " + std::to_string(size));
  }
}

TEST_P(AudioHostile, SizesOfEveryKind) {
  for (const std::size_t offset : GetParam().sizeFields) {
    for (const qz::ulong size : {0u, 1u, 7u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
      Bytes file = GetParam().file;
      const Bytes field = GetParam().bigEndian ? Be(size, 4) : Le(size, 4);
      std::copy(field.begin(), field.end(), file.begin() + static_cast<long>(offset));
      Check(file, std::to_string(size) + " at " + std::to_string(offset));
    }
  }
}

TEST_P(AudioHostile, EveryByteChanged) {
  for (std::size_t offset = 0; offset < GetParam().file.size(); ++offset) {
    const unsigned char old = GetParam().file[offset];
    for (const int value : {0x00, 0xFF, old ^ 0xFF, old ^ 0x01}) {
      Bytes file = GetParam().file;
      file[offset] = static_cast<unsigned char>(value);
      Check(file, std::to_string(value) + " at " + std::to_string(offset));
    }
  }
}

TEST_P(AudioHostile, GarbageBehindTheMagic) {
  Bytes file(GetParam().file.begin(), GetParam().file.begin() + 12);
  for (const short sample : Noise(500))
    file.push_back(static_cast<unsigned char>(sample));
  Check(file, "noise");
  std::fill(file.begin() + 12, file.end(), 0);
  Check(file, "zeros");
  std::fill(file.begin() + 12, file.end(), 0xFF);
  Check(file, "ones");
}

INSTANTIATE_TEST_SUITE_P(Files, AudioHostile, testing::Values(Wav(8), Wav(16)),
                         [](const auto& container) { return container.param.name; });

}  // namespace
}  // namespace audiotest
