// Compressed sounds through the library: they are encoded and handed out as what they decode to.
#include "audio/MORT_codecs.h"
#include "audio/audio.h"
#include "tests/sd_fixture.h"

namespace {

using namespace sdtest;

class MortImport : public SampleNodeTest {
 protected:
  // Writes S:\wav\a.mort, and S:\wav\a.wav with what it decodes to, `length` samples long.
  void MakeBoth(int format, std::uint32_t length) {
    Wav source = SomeSound(length);
    std::fill(source.samples.begin() + 64, source.samples.begin() + 400, 0);
    WriteMort("S:\\wav\\a.mort", source, format);
    _AUDIO packed{};
    ASSERT_EQ(audio_ReadWave("S:\\wav\\a.mort", &packed, false), AUDIO_OK);
    _AUDIO* decoded = mort_Decode(&packed);
    ASSERT_NE(decoded, nullptr);
    const auto* begin = static_cast<const short*>(decoded->Samples);
    decodedLength_ = decoded->NumSamples;
    source.samples.assign(begin, begin + decodedLength_);
    source.samples.resize(length);
    mort_Release(decoded);
    audio_FreeWave(&packed);
    MakeWav("a.wav", source);
    raw_ = source.samples;
  }

  std::uint32_t decodedLength_ = 0;
  std::vector<int> raw_;
};

TEST_F(MortImport, GivesInEveryFormatWhatItsDecodedSoundGives) {
  for (const int codec : {AUDIO_FORMAT_MORT_GSM, AUDIO_FORMAT_MORT_GB}) {
    SCOPED_TRACE(codec);
    MakeBoth(codec, 1000);
    // One codec gives more than the sound had, the other less: the head's length holds for both.
    EXPECT_EQ(decodedLength_, codec == AUDIO_FORMAT_MORT_GSM ? 1120u : 960u);
    ASSERT_EQ(access_.ImportSample("S:\\wav\\a.mort", kPcm16, "Low"), Access::ERROR_OK);
    EXPECT_EQ(Record("Low").info.length, 1000u);
    EXPECT_EQ(Record("Low").info.orgKey, 62);
    const std::unique_ptr<short, decltype(&std::free)> raw(access_.GetRawData("Low", 0),
                                                           &std::free);
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(std::vector<int>(raw.get(), raw.get() + 1000), raw_);
    for (const Format format : {kPcm16, kAdpcm, kAdpcmPlus, kPcm8, kAdpcmVs}) {
      SCOPED_TRACE(format);
      ASSERT_EQ(access_.ChangeSampleFormat("Low", format), Access::ERROR_OK);
      ASSERT_EQ(access_.ImportSample("S:\\wav\\a.wav", format, "High"), Access::ERROR_OK);
      EXPECT_EQ(EncodedBytes("Low"), EncodedBytes("High"));
      EXPECT_EQ(access_.RemoveSample("High"), Access::ERROR_OK);
    }
    EXPECT_EQ(access_.RemoveSample("Low"), Access::ERROR_OK);
  }
}

TEST_F(MortImport, RefusesAStreamThatCannotBeDecoded) {
  MakeBoth(AUDIO_FORMAT_MORT_GSM, 1000);
  const auto import = [this] { return access_.ImportSample("S:\\wav\\a.mort", kAdpcm, "Low"); };
  const std::string whole = ReadBytes(Native("S:\\wav\\a.mort"));
  WriteBytes(Native("S:\\wav\\a.mort"), whole.substr(0, whole.size() - 40));
  EXPECT_EQ(Refused(import), Access::ERROR_COULDNOTREAD);
  WriteBytes(Native("S:\\wav\\a.mort"), whole);
  EXPECT_EQ(import(), Access::ERROR_OK);
}

}  // namespace
