// The GSM block codec, held against libgsm's own frames.
#include <gsm.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>

#include "audio/gsm_codec.h"
#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

using Frame = std::array<gsm_byte, 33>;
using Block = std::array<short, 160>;

struct Destroy {
  void operator()(gsm object) const { gsm_destroy(object); }
};
using Gsm = std::unique_ptr<gsm_state, Destroy>;

// A sound of blocks: C is audible, S silent, and < and > are just not silent, by their first and
// their last sample.
std::vector<short> SoundOf(const std::string& blocks) {
  std::vector<short> samples;
  for (const char block : blocks) {
    for (int i = 0; i < 160; ++i) {
      const double t = static_cast<double>(samples.size());
      const double audible = 9000 * std::sin(t * 0.05) + std::fmod(t * 0.7, 20000);
      samples.push_back(static_cast<short>(block == 'C' ? audible : i % 15 - 7));
    }
    if (block == '<') samples[samples.size() - 160] = -8;
    if (block == '>') samples.back() = 8;
  }
  return samples;
}

Bytes Encode(const std::vector<short>& samples, qz::ulong rate = 8000,
             gsmCodecInfo* info = nullptr) {
  void* stream = nullptr;
  gsmCodecInfo own;
  if (info == nullptr) info = &own;
  EXPECT_EQ(
      gsmCodec_Encode(samples.data(), static_cast<qz::ulong>(samples.size()), rate, &stream, info),
      GSMCODEC_OK);
  const auto* bytes = static_cast<unsigned char*>(stream);
  const Bytes result(bytes, bytes + info->compressedBytes);
  std::free(stream);
  return result;
}

int Decode(const Bytes& stream, std::vector<short>* samples, gsmCodecInfo* info = nullptr) {
  void* decoded = nullptr;
  gsmCodecInfo own;
  if (info == nullptr) info = &own;
  const int result =
      gsmCodec_Decode(stream.data(), static_cast<qz::ulong>(stream.size()), &decoded, info);
  EXPECT_EQ(decoded == nullptr, result != GSMCODEC_OK);
  samples->resize(info->uncompressedBytes / 2);
  if (!samples->empty()) std::memcpy(samples->data(), decoded, info->uncompressedBytes);
  std::free(decoded);
  return result;
}

// The runs of a stream as "S16 C3 ...", and the frames in them.
std::string Runs(Bytes stream, std::vector<Frame>* frames) {
  const int widths[] = {6, 6, 5, 5, 4, 4, 3, 3};
  const int subWidths[] = {7, 2, 2, 6, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};
  const Gsm object(gsm_create());
  bitIO io;
  bitIO_Init(&io, stream.data(), static_cast<qz::ulong>(stream.size()));
  qz::ulong word = 0;
  qz::ulong left = 0;
  EXPECT_EQ(bitIO_Read(&io, &word, 32) | bitIO_Read(&io, &word, 16), 0);
  EXPECT_EQ(bitIO_Read(&io, &left, 16) | bitIO_Read(&io, &word, 32), 0);
  EXPECT_EQ(word * 4, stream.size());
  std::string runs;
  while (left > 0) {
    qz::ulong kind = 0;
    qz::ulong count = 0;
    EXPECT_EQ(bitIO_Read(&io, &kind, 1) | bitIO_Read(&io, &count, kind == 1 ? 4 : 7), 0);
    runs += (kind == 1 ? " S" : " C") + std::to_string(++count);
    left -= count;
    for (; kind == 0 && count > 0; --count) {
      gsm_signal parameters[76];
      for (int p = 0; p < 76; ++p) {
        EXPECT_EQ(bitIO_Read(&io, &word, p < 8 ? widths[p] : subWidths[(p - 8) % 17]), 0);
        parameters[p] = static_cast<gsm_signal>(word);
      }
      frames->emplace_back();
      gsm_implode(object.get(), parameters, frames->back().data());
    }
  }
  EXPECT_EQ(bitIO_Read(&io, &word, 1), 0) << "the last word is always part filler";
  EXPECT_EQ(word, 0u);
  EXPECT_LT(stream.size() - io.index, 4u);
  return runs;
}

std::vector<qz::ulong> Words7(const gsmCodecInfo& info) {
  return {info.numBlocks,         info.numSamples,   info.sampleRate, info.compressedBytes,
          info.uncompressedBytes, info.unusedBlocks, info.usedBlocks};
}

TEST(AudioGsm, SmallestStreamsToTheByte) {
  EXPECT_EQ(Encode({}, 0x12345), Text("MORT") + Be(0x2345, 4) + Be(4, 4) + Bytes(4, 0));
  gsmCodecInfo info;
  const Bytes silence = Encode(std::vector<short>(160), 22050, &info);
  EXPECT_EQ(silence, Text("MORT") + (Bytes{0, 1, 0x56, 0x22}) + Be(4, 4) + Be(1, 4));
  EXPECT_EQ(Words7(info), (std::vector<qz::ulong>{1, 160, 22050, 16, 320, 1, 0}));
  std::vector<short> samples;
  EXPECT_EQ(Decode(silence, &samples, &info), GSMCODEC_OK);
  EXPECT_EQ(samples, std::vector<short>(160, 0));
  EXPECT_EQ(Words7(info), (std::vector<qz::ulong>{1, 160, 22050, 16, 320, 1, 0}));
  EXPECT_EQ(Decode(Encode({}), &samples), GSMCODEC_OK);
  EXPECT_TRUE(samples.empty());
  samples = SoundOf("C");
  samples.resize(161, 999);  // the second block is filled with zeros
  const Bytes filled = Encode(samples);
  samples.resize(320);
  EXPECT_EQ(filled, Encode(samples));
  EXPECT_EQ(gsmCodec_Encode(nullptr, 0, 8000, nullptr, nullptr), GSMCODEC_OK);
  EXPECT_EQ(gsmCodec_Decode(silence.data(), 16, nullptr, nullptr), GSMCODEC_OK);
}

// Frames are libgsm's own over the coded blocks alone, whatever silence lies between them.
TEST(AudioGsm, RunsAndFramesOfEverySplit) {
  const struct {
    std::string blocks;
    std::string runs;
    std::size_t words;
  } cases[] = {
      {"C", " C1", 12},
      {"CCCCCC", " C6", 53},  // ends on a word: one more of zeros
      {"CSSC", " C1 S2 C1", 0},
      {"S<S>S", " S1 C1 S1 C1 S1", 0},
      {"SCCCSCSS", " S1 C3 S1 C1 S2", 0},
      {std::string(17, 'S'), " S16 S1", 4},
      {std::string(16, 'S') + "C", " S16 C1", 0},
      {std::string(129, 'C') + "S", " C128 C1 S1", 0},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.blocks);
    const std::vector<short> samples = SoundOf(test.blocks);
    const Bytes stream = Encode(samples);
    if (test.words != 0) {
      EXPECT_EQ(stream.size(), test.words * 4);
    }
    std::vector<Frame> frames;
    EXPECT_EQ(Runs(stream, &frames), test.runs);

    const Gsm encoder(gsm_create());
    const Gsm decoder(gsm_create());
    std::vector<Frame> expectedFrames;
    std::vector<short> expected;
    for (std::size_t i = 0; i < test.blocks.size(); ++i) {
      Block block = {};
      if (test.blocks[i] != 'S') {
        std::copy_n(samples.begin() + static_cast<long>(i * 160), 160, block.begin());
        expectedFrames.emplace_back();
        gsm_encode(encoder.get(), block.data(), expectedFrames.back().data());
        gsm_decode(decoder.get(), expectedFrames.back().data(), block.data());
      }
      expected.insert(expected.end(), block.begin(), block.end());
    }
    EXPECT_EQ(frames, expectedFrames);
    std::vector<short> decoded;
    gsmCodecInfo info;
    EXPECT_EQ(Decode(stream, &decoded, &info), GSMCODEC_OK);
    EXPECT_EQ(decoded, expected);
    EXPECT_EQ(info.usedBlocks, frames.size());
    EXPECT_EQ(info.unusedBlocks + info.usedBlocks, test.blocks.size());
  }
}

// The program of the speech coder's own makers gives the same frames: for a sound without silence
// all of them, else those of the audible blocks alone.
TEST(AudioGsm, FramesAreThoseOfToast) {
  if (std::system("command -v toast > /dev/null 2>&1") != 0) GTEST_SKIP() << "no toast";
  const TempFolder folder;
  for (const std::string& blocks : {std::string(300, 'C'), std::string("CCSCSSCC")}) {
    const std::vector<short> sound = SoundOf(blocks);
    std::vector<short> audible;
    for (std::size_t i = 0; i < sound.size(); ++i) {
      if (blocks[i / 160] == 'C') audible.push_back(sound[i]);
    }
    folder.Write("in.raw", Samples(audible));
    const std::string command =
        "toast -l -c < '" + folder.Native("in.raw") + "' > '" + folder.Native("out.gsm") + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::vector<Frame> frames;
    Runs(Encode(sound), &frames);
    Bytes unpacked;
    for (const Frame& frame : frames)
      unpacked.insert(unpacked.end(), frame.begin(), frame.end());
    EXPECT_EQ(unpacked, folder.Read("out.gsm"));
  }
}

TEST(AudioGsm, DamagedStreamsAnswerTheirCode) {
  const Bytes whole = Encode(SoundOf("CCS"));
  std::vector<short> samples;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    // The word count is held against the bytes, so it catches deep cuts only.
    const bool mangled = size >= 12 && size < whole.size() / 4;
    EXPECT_EQ(Decode(Part(whole, 0, size), &samples),
              mangled ? GSMCODEC_MANGLED : GSMCODEC_DATAENDED)
        << size;
  }
  Bytes damaged = whole;
  damaged[0] = 'm';
  EXPECT_EQ(Decode(damaged, &samples), GSMCODEC_NOMORT);
  damaged = whole;
  damaged[4] = 0xFF;  // 65283 blocks
  EXPECT_EQ(Decode(damaged, &samples), GSMCODEC_DATAENDED);
  damaged = whole;
  damaged[5] = 1;  // one block: the run is left in its midst
  EXPECT_EQ(Decode(damaged, &samples), GSMCODEC_OK);
  EXPECT_EQ(samples.size(), 160u);
}

TEST(AudioGsm, ErrorTexts) {
  const char* texts[] = {"No Error",      "Out of memory",           "No Mort file",
                         "Data mangeled", "Decoder ran out of data", "Unspecified error"};
  for (int code = 0; code < 6; ++code) {
    EXPECT_EQ(gsmCodec_ErrorDescription(code), std::string("GSM_CODEC - ") + texts[code]);
  }
  EXPECT_STREQ(gsmCodec_ErrorDescription(-1), "GSM_CODEC - Unspecified error");
}

}  // namespace
}  // namespace audiotest
