// The worked examples of docs/formats: what the library makes of them and what they make of it.
#include <sstream>

#include "audio/audio.h"
#include "host/dump.h"
#include "host/paths.h"
#include "tests/format_page.h"
#include "tests/host_support.h"

namespace {

using namespace host_test;
using format_page::Examples;

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

TEST_F(FormatPages, EncodedExampleHoldsTheFrameExample) {
  EXPECT_EQ(Examples("esmp.md").at(0).substr(0x34, 8), Examples("adpcm-frame.md").at(0));
  const std::string text = Dump(Examples("esmp.md").at(0));
  for (const char* line : {"00000008        4  frq                32000  Hz",
                           "00000028        4  channel 0          44",
                           "00000034        8  frame 0            row 0, exponent 8, 05 11 11 F1",
                           "00000044        4  coefTable 0        3346 -1510"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << '\n' << text;
  }
}

TEST_F(FormatPages, WavExampleIsReadAsToldAndWrittenAsItStands) {
  const std::string example = Examples("wav.md").at(0);
  folder.Put("in.wav", example);
  _AUDIO audio;
  ASSERT_EQ(audio_ReadWave(samplehost::FullPath(folder / "in.wav").c_str(), &audio, false), 0);
  EXPECT_EQ(audio.NumSamples, 20u);
  EXPECT_EQ(audio.SampleRate, 32000u);
  EXPECT_EQ(audio.OriginalKey, 62);
  EXPECT_EQ(audio.LoopStart, 4u);
  EXPECT_EQ(audio.LoopEnd, 19u);
  EXPECT_EQ(audio.LoopCount, -1);
  EXPECT_EQ(
      audio_WriteWave(samplehost::FullPath(folder / "out.wav").c_str(), &audio, AUDIO_FORMAT_WAV),
      0);
  audio_FreeWave(&audio);
  EXPECT_EQ(BytesOf(folder / "out.wav"), example);
  EXPECT_NE(Dump(example).find("loop 0 end         19"), std::string::npos);
}

TEST_F(FormatPages, NodeExamplesAreSampleAndSetup) {
  const auto examples = Examples("node-file.md");
  ASSERT_EQ(examples.size(), 2u);
  const std::string sample = Dump(examples[0]);
  for (const char* part : {"{145AAC98-A45A-11D3-8763-00500469A267}  sample node",
                           R"(fileName           "samples\tone\\High.wav")", "2  ADPCM",
                           "2026-03-12 09:30:15.250 UTC"}) {
    EXPECT_NE(sample.find(part), std::string::npos) << part << '\n' << sample;
  }
  const std::string setup = Dump(examples[1]);
  for (const char* part : {"{D0551ED2-1487-11D4-BA67-0050DA72A982}  setup node",
                           R"(sampleFolder       ".\samples\")", R"(class 1 name       "High")"}) {
    EXPECT_NE(setup.find(part), std::string::npos) << part << '\n' << setup;
  }
}

}  // namespace
