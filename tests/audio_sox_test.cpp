// Other programs' view of the same files, where they are installed.
#include <regex>

#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

class AudioRivals : public testing::Test {
 protected:
  void SetUp() override {
    for (const std::string program : {"sox", "sndfile-info", "sndfile-metadata-set"}) {
      if (std::system(("command -v " + program + " > /dev/null").c_str()) != 0) {
        GTEST_SKIP() << program << " isn't installed";
      }
    }
  }
  // What the command prints.
  std::string Run(const std::string& command) {
    const std::string whole = "cd '" + folder.Native("") + "' && " + command + " > out 2>&1";
    EXPECT_EQ(std::system(whole.c_str()), 0) << whole;
    return folder.Get("out");
  }
  // The numbers that libsndfile's report of a file gives, each the first match of a pattern.
  std::vector<qz::int64> Report(const std::string& file,
                                std::initializer_list<const char*> wanted) {
    const std::string text = Run("sndfile-info " + file);
    std::vector<qz::int64> numbers;
    for (const char* pattern : wanted) {
      std::smatch match;
      const bool found = std::regex_search(text, match, std::regex(pattern));
      EXPECT_TRUE(found) << pattern << '\n' << text;
      numbers.push_back(found ? std::stoll(match[1]) : -1);
    }
    return numbers;
  }

  TempFolder folder;
};

// Files that it makes, and its own raw form of them: signed little-endian samples.
TEST_F(AudioRivals, SoxAgreesOnTheSamplesOfItsFiles) {
  folder.Write("in.raw", Noise(12012));
  for (const std::string options : {"-c 1 -b 8", "-c 2 -b 8", "-c 1 -b 16", "-c 2 -b 16"}) {
    for (const std::string file : {"a.wav", "a.aiff"}) {
      SCOPED_TRACE(file + " " + options);
      Run("sox -V1 -D -t s16 -L -r 22050 " + options.substr(0, 5) + "in.raw " + options + " " +
          file);
      Sound sound;
      ASSERT_EQ(audio_ReadWave(folder.Path(file).c_str(), &sound, false), AUDIO_OK);
      Run("sox -V1 -D " + file + " -e signed -t raw -L a.raw");
      EXPECT_EQ(sound.Raw(), folder.Read("a.raw"));
      EXPECT_EQ(sound.NumSamples * sound.NumChannels, 6006u);
      EXPECT_EQ(sound.SampleRate, 22050u);
      EXPECT_EQ(
          "-c " + std::to_string(sound.NumChannels) + " -b " + std::to_string(sound.BitsPerSample),
          options);
    }
  }
}

TEST_F(AudioRivals, SndfileAgreesOnNumbersKeyAndLoopOfAWrittenWav) {
  Sound source(Noise(4000), 16, 2, 22050);
  source.OriginalKey = 48;
  source.LoopStart = 10;
  source.LoopEnd = 499;
  ASSERT_EQ(audio_WriteWave(folder.Path("w.wav").c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_OK);
  EXPECT_EQ(Report("w.wav", {"Sample Rate : (\\d+)", "Frames +: (\\d+)", "Channels +: (\\d+)",
                             "Midi Note +: (\\d+)", "Start : +(\\d+)", "End : +(\\d+)"}),
            (std::vector<qz::int64>{22050, 1000, 2, 48, 10, 499}));
  // What it puts around the sound changes nothing of it.
  Run("sndfile-metadata-set --bext-description odd --str-title t w.wav x.wav");
  Sound sound;
  ASSERT_EQ(audio_ReadWave(folder.Path("x.wav").c_str(), &sound, false), AUDIO_OK);
  EXPECT_EQ(sound.Raw(), source.Raw());
}

// Its markers are positions, and the sample in front of the second ends our loop.
TEST_F(AudioRivals, SndfileAgreesOnAnAiff) {
  const Bytes file = AiffFile(AiffCommon(1, 600, 16, 44100) + AiffMarks({{100, ""}, {500, ""}}, 2) +
                              AiffInst(72, 2, 0) + AiffSamples(Noise(1200)));
  const std::string path = folder.Write("m.aiff", file);
  Sound looped;
  ASSERT_EQ(audio_ReadWave(path.c_str(), &looped, false), AUDIO_OK);
  EXPECT_EQ((std::vector<qz::int64>{looped.SampleRate, looped.NumSamples, looped.OriginalKey,
                                    looped.LoopStart, looped.LoopEnd + 1}),
            Report("m.aiff", {"Sample Rate : (\\d+)", "Frames +: (\\d+)", "Base Note +: (\\d+)",
                              "Position +: (\\d+)", "Position[\\s\\S]*?Position +: (\\d+)"}));
}

}  // namespace
}  // namespace audiotest
