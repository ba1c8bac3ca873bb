// Another program's view of the same files, where it is installed.
#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

class AudioSox : public testing::Test {
 protected:
  void SetUp() override {
    if (std::system("sox --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "sox isn't installed";
  }
  void Sox(const std::string& arguments) {
    const std::string command = "cd '" + folder.Native("") + "' && sox -V1 -D " + arguments;
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
  }

  TempFolder folder;
};

// Files that it makes, and its own raw form of them: signed little-endian samples.
TEST_F(AudioSox, AgreesOnTheSamplesOfItsFiles) {
  folder.Write("in.raw", Noise(12012));
  const struct {
    std::string type;
    int bits, channels;
    std::string encoding;
  } cases[] = {
      {"wav", 8, 1, "unsigned"}, {"wav", 8, 2, "unsigned"}, {"wav", 16, 1, "signed"},
      {"wav", 16, 2, "signed"},  {"aiff", 8, 1, "signed"},  {"aiff", 8, 2, "signed"},
      {"aiff", 16, 1, "signed"}, {"aiff", 16, 3, "signed"},
  };
  for (const auto& test : cases) {
    const std::string file = "a." + test.type;
    const std::string bits = std::to_string(test.bits);
    const std::string channels = std::to_string(test.channels);
    SCOPED_TRACE(file + " " + bits + "x" + channels);
    Sox("-t s16 -L -r 22050 -c " + channels + " in.raw -b " + bits + " -e " + test.encoding +
        "-integer " + file);
    Sox(file + " -t s" + bits + " -L a.raw");
    Sound sound;
    ASSERT_EQ(audio_ReadWave(folder.Path(file).c_str(), &sound, false), AUDIO_OK) << AudioErrorMsg;
    EXPECT_EQ(sound.Raw(), folder.Read("a.raw"));
    EXPECT_EQ(sound.NumSamples * sound.NumChannels, 6006u);
    EXPECT_EQ(sound.SampleRate, 22050u);
    EXPECT_EQ(sound.NumChannels, test.channels);
    EXPECT_EQ(sound.BitsPerSample, test.bits);
  }
}

TEST_F(AudioSox, ReadsWhatTheWriterMakes) {
  for (const qz::ushort bits : std::initializer_list<qz::ushort>{8, 16}) {
    Sound source(Noise(bits == 8 ? 333 : 2002), bits, 1, 11025);
    ASSERT_EQ(audio_WriteWave(folder.Path("w.wav").c_str(), &source, AUDIO_FORMAT_WAV), AUDIO_OK);
    Sox("w.wav -t s" + std::to_string(bits) + " -L w.raw");
    EXPECT_EQ(folder.Read("w.raw"), source.Raw());
  }
}

}  // namespace
}  // namespace audiotest
