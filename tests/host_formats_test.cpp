// The worked examples of docs/formats: what the library makes of them and what they make of it.
#include <sstream>

#include "adpcm/adpcm.h"
#include "audio/MORT_codecs.h"
#include "audio/gsm_codec.h"
#include "host/dump.h"
#include "tests/format_page.h"
#include "tests/host_support.h"

namespace {

using namespace host_test;
using format_page::Examples;

using audiotest::Numbers;
using audiotest::NumbersOf;
using audiotest::Sound;

class FormatPages : public HostTest {
 protected:
  // What dump prints of the bytes, which are sound.
  std::string Dump(const std::string& bytes) {
    folder.Put("example", bytes);
    std::ostringstream out;
    std::string problem;
    EXPECT_TRUE(samplehost::DumpFile(folder / "example", out, problem)) << problem << out.str();
    return out.str();
  }
};

TEST_F(FormatPages, ImportingTheWavExampleGivesTheEncodedExample) {
  folder.Put("tone.wav", Examples("wav.md").at(0));
  Import("tone.wav", "ADPCM");
  std::string encoded;
  for (const std::string& file : FilesIn(folder / "samples")) {
    if (file.ends_with(".esmp")) encoded = BytesOf(file);
  }
  EXPECT_EQ(encoded, Examples("esmp.md").at(0));
}

// The numbers of a page's "decoded" block.
std::vector<short> Decoded(const std::string& page) {
  std::istringstream text(format_page::Blocks(page, "decoded").at(0));
  std::vector<short> samples;
  for (std::string word; text >> word;) {
    if (word.find_first_not_of("-0123456789") == std::string::npos) {
      samples.push_back(static_cast<short>(std::stoi(word)));
    }
  }
  return samples;
}

TEST_F(FormatPages, EncodedExampleHoldsTheFrameExample) {
  std::string frame = Examples("adpcm-frame.md").at(0);
  EXPECT_EQ(Examples("esmp.md").at(0).substr(0x34, 8), frame);
  const std::string text = Dump(Examples("esmp.md").at(0));
  ExpectParts(text, {"00000008        4  frq                32000  Hz",
                     "00000028        4  channel 0          44",
                     "00000034        8  frame 0            row 0, exponent 8, 05 11 11 F1",
                     "00000044        4  coefTable 0        3346 -1510"});
  // Coefficients, history, and the samples that come of them.
  const std::vector<short> told = Decoded("adpcm-frame.md");
  short table[16] = {told.at(0), told.at(1)};
  short samples[16] = {told.at(2), told.at(3)};
  adpcmDecodeFrame(reinterpret_cast<qz::uchar*>(frame.data()), samples, table, 1);
  EXPECT_EQ(std::vector<short>(samples, samples + 16),
            std::vector<short>(told.begin() + 2, told.end()));
}

TEST_F(FormatPages, WavExampleIsReadAsToldAndWrittenAsItStands) {
  const std::string example = Examples("wav.md").at(0);
  folder.Put("in.wav", example);
  Sound sound;
  ASSERT_EQ(audio_ReadWave(folder.Path("in.wav").c_str(), &sound, false), AUDIO_OK);
  EXPECT_EQ(NumbersOf(sound), (Numbers{0, 40, 32000, 20, 16, 1, 62, 0, 4, 19, 1, -1}));
  EXPECT_EQ(audio_WriteWave(folder.Path("out.wav").c_str(), &sound, AUDIO_FORMAT_WAV), AUDIO_OK);
  EXPECT_EQ(BytesOf(folder / "out.wav"), example);
  EXPECT_THAT(Dump(example), HasSubstr("loop 0 end         19"));
}

TEST_F(FormatPages, AiffExampleIsReadAsTold) {
  folder.Put("in.aiff", Examples("aiff.md").at(0));
  Sound sound;
  ASSERT_EQ(audio_ReadWave(folder.Path("in.aiff").c_str(), &sound, false), AUDIO_OK);
  EXPECT_EQ(NumbersOf(sound), (Numbers{0, 24, 44100, 12, 16, 1, 72, 0, 4, 11, 1, -1}));
  EXPECT_EQ(static_cast<short*>(sound.Samples)[9], -3000);
  const std::string text = Dump(Examples("aiff.md").at(0));
  ExpectParts(
      text, {"rate               44100 Hz", "marker 1 at        12", "marker 0 name      \"begin\"",
             "sustain end marker 2", "00000072       24  samples"});
}

// A block of the codecs, which goes.
std::string Taken(void* block, std::size_t size) {
  const std::string bytes(static_cast<char*>(block), size);
  std::free(block);
  return bytes;
}

TEST_F(FormatPages, GsmExampleIsWhatTheCodecMakes) {
  std::vector<short> samples(480);
  for (int i = 0; i < 160; ++i)
    samples[static_cast<std::size_t>(320 + i)] = i / 20 % 2 == 0 ? 4000 : -4000;
  const std::string example = Examples("gsm-stream.md").at(0);
  void* block = nullptr;
  gsmCodecInfo info;
  ASSERT_EQ(gsmCodec_Encode(samples.data(), 480, 22050, &block, &info), GSMCODEC_OK);
  EXPECT_EQ(Taken(block, info.compressedBytes), example);
  ASSERT_EQ(gsmCodec_Decode(example.data(), static_cast<qz::ulong>(example.size()), &block, &info),
            GSMCODEC_OK);
  EXPECT_EQ(info.sampleRate, 22050u);
  EXPECT_EQ(info.numSamples, 480u);
  std::vector<short> told = Decoded("gsm-stream.md");
  told.insert(told.begin(), 320, 0);
  EXPECT_EQ(Taken(block, 960).substr(0, told.size() * 2), AsText(audiotest::Samples(told)));
}

TEST_F(FormatPages, GbExampleIsWhatTheCodecMakes) {
  std::vector<short> samples(192);
  for (std::size_t i = 0; i < 32; ++i) {
    samples[i] = static_cast<short>(-30000 + 2000 * static_cast<int>(i));
    samples[128 + i] = 12000;
    samples[160 + i] = -12000;
  }
  Sound sound(audiotest::Samples(samples), 16, 1, 16000);
  const std::string example = Examples("gb-stream.md").at(0);
  void* block = nullptr;
  qz::ulong size = 0;
  ASSERT_TRUE(mort_EncodeGB(&sound, &block, &size));
  EXPECT_EQ(Taken(block, size), example);
  ASSERT_EQ(gbCodec_Decode(example.data(), static_cast<qz::slong>(example.size()), &block, &size),
            0);
  std::vector<short> told = Decoded("gb-stream.md");
  told.resize(96, 2048);
  told.resize(128, 10240);
  EXPECT_EQ(Taken(block, size * 2), AsText(audiotest::Samples(told)));
}

TEST_F(FormatPages, MortExampleIsTheHeadOfTheGbExample) {
  const std::string example = Examples("mort.md").at(0);
  EXPECT_EQ(example.substr(44), Examples("gb-stream.md").at(0));
  folder.Put("in.mort", example);
  const Json told = Told(0, "info in.mort");
  EXPECT_EQ(told["codec"], "gb");
  EXPECT_EQ(told["length"], 192);
  EXPECT_EQ(told["rate_hz"], 16000);
  EXPECT_EQ(told["key"], 62);
  const std::string text = Dump(example);
  ExpectParts(text, {"0000002C       16  run 0              plain, 1 blocks",
                     "0000003C       16  run 1              marker, decodes to 2 silent",
                     "0000004C       16  plain block 1      AA AA"});
  const std::string gsm = Dump(std::string(example).replace(8, 1, 1, '\0').substr(0, 44) +
                               Examples("gsm-stream.md").at(0));
  ExpectParts(gsm, {"run 0              from bit 0: silence, 2 blocks",
                    "run 1              from bit 5: coded, 1 blocks",
                    "coded block 0      from bit 13: LARc "});
}

TEST_F(FormatPages, NodeExamplesAreSampleAndSetup) {
  const auto examples = Examples("node-file.md");
  ASSERT_EQ(examples.size(), 2u);
  const std::string sample = Dump(examples[0]);
  ExpectParts(sample, {"{145AAC98-A45A-11D3-8763-00500469A267}  sample node",
                       R"(fileName           "samples\tone\\High.wav")", "2  ADPCM",
                       "2026-03-12 09:30:15.250 UTC"});
  const std::string setup = Dump(examples[1]);
  ExpectParts(setup, {"{D0551ED2-1487-11D4-BA67-0050DA72A982}  setup node",
                      R"(sampleFolder       ".\samples\")", R"(class 1 name       "High")"});
}

}  // namespace
