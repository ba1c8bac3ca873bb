// What the host gets of a sample's data, and when an encoded file is made anew.
#include <cstdlib>

#include "adpcm/adpcm.h"
#include "audio/MORT_codecs.h"
#include "audio/audio.h"
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ExtraData = SDTarvaneAccessInterface::SDExtraData;

class Retrieval : public SampleNodeTest {
 protected:
  // As many values as the caller knows there are; empty for null.
  std::vector<int> Take(short* block, std::size_t count) {
    std::vector<int> values;
    if (block != nullptr) values.assign(block, block + count);
    std::free(block);
    return values;
  }
  std::vector<int> Raw(std::size_t count, qz::uchar channel = 0) {
    return Take(access_.GetRawData("High", channel), count);
  }
  std::vector<int> Decoded(std::size_t count, qz::uchar channel = 0) {
    return Take(access_.GetDecodedData("High", channel), count);
  }
  // Every operation that hands data out answers null with this error.
  void ExpectNothing(const char* qualClass, SDAccess::SDError error) {
    qz::ulong size = 7;
    EXPECT_EQ(nullptr, access_.GetRawData(qualClass, 0));
    EXPECT_EQ(error, LastError());
    EXPECT_EQ(nullptr, access_.GetEncodedData(qualClass, 0, size));
    EXPECT_EQ(error, LastError());
    EXPECT_EQ(nullptr, access_.GetDecodedData(qualClass, 0));
    EXPECT_EQ(error, LastError());
    EXPECT_EQ(nullptr, access_.GetExtraData(qualClass, 0));
    EXPECT_EQ(error, LastError());
  }

  SDAccess::SDError Update() { return SDTestAccess::ReadSampleInformation(access_, "High"); }
  // Sets both files' times and says whether an update made the encoded file anew.
  bool IsMadeAnew(std::int64_t rawTime, long rawNanoseconds) {
    const std::string marked = EncodedBytes("High") + "left alone";
    SetEncodedBytes("High", marked);
    SetWriteTime(RawPath("High"), rawTime, rawNanoseconds);
    SetWriteTime(EncodedPath("High"), 1000000000, 500000000);
    EXPECT_EQ(SDAccess::ERROR_OK, Update());
    return EncodedBytes("High") != marked;
  }
};

// --- Data ---

// A byte of a raw file is repeated in the low half, one that was encoded is shifted.
TEST_F(Retrieval, WidensBytesInTwoWays) {
  Wav wav;
  wav.channels = 2;
  wav.bits = 8;
  wav.samples = {1, 127, 2, -128, 3, -1, 4, 0};
  Import("a.wav", wav, kPcm16, "High");
  EXPECT_THAT(Raw(4, 1), ElementsAre(0x7F7F, static_cast<short>(0x8080), -1, 0));
  EXPECT_THAT(Decoded(4, 1), ElementsAre(0x7F00, -32768, -256, 0));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("High", kPcm8));
  EXPECT_THAT(Decoded(4, 1), ElementsAre(0x7F7F, static_cast<short>(0x8080), -1, 0));
}

TEST_F(Retrieval, GivesThePcmBlockItselfAndLeavesNoExtraDataBehind) {
  constexpr std::size_t kLength = 70001;  // more than two of the writer's blocks
  const Wav wav = SomeSound(kLength, 2);
  std::vector<int> second;
  for (std::size_t i = 0; i < kLength; ++i)
    second.push_back(wav.samples[2 * i + 1]);
  Import("a.wav", wav, kPcm16, "High");
  EXPECT_EQ(second, Raw(kLength, 1));
  EXPECT_EQ(second, Decoded(kLength, 1));
  EXPECT_EQ(SDAccess::ERROR_NOEXTRADATA, LastError());
  EXPECT_EQ(nullptr, access_.GetExtraData("High", 0));
  EXPECT_EQ(SDAccess::ERROR_NOEXTRADATA, LastError());
  qz::ulong size = 0;
  std::free(access_.GetEncodedData("High", 0, size));
  EXPECT_EQ(2 * kLength, size);
  EXPECT_EQ(SDAccess::ERROR_OK, LastError());
}

TEST_F(Retrieval, DecodesWholeFramesAlikeInEveryAdpcmFormat) {
  const Wav wav = SomeSound(15, 2);
  Import("a.wav", wav, kAdpcm, "High");
  for (const qz::uchar channel : {qz::uchar{0}, qz::uchar{1}}) {
    qz::ulong size = 0;
    void* encoded = access_.GetEncodedData("High", channel, size);
    ASSERT_EQ(16u, size);
    const std::unique_ptr<ExtraData> extra(access_.GetExtraData("High", channel));
    ASSERT_NE(nullptr, extra);
    EXPECT_EQ(SDTarvaneAccessInterface::EXTRADATA_ADPCM, extra->type);
    EXPECT_EQ(8, extra->data.adpcm.numCoef);
    EXPECT_EQ(2, extra->data.adpcm.order);
    EXPECT_EQ(*static_cast<qz::uchar*>(encoded), extra->data.adpcm.initialPS);
    const std::vector<int> expected = Take(adpcmDecodeSample(static_cast<qz::uchar*>(encoded), 15,
                                                             extra->data.adpcm.coefTable, nullptr),
                                           28);
    std::free(encoded);
    EXPECT_THAT(Decoded(28, channel), ElementsAreArray(expected));
    EXPECT_EQ(SDAccess::ERROR_OK, LastError());
  }
  const std::vector<int> decoded = Decoded(28, 1);
  for (const qz::uchar format : {kAdpcmVs, kAdpcmPlus}) {
    EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("High", format));
    EXPECT_THAT(Decoded(28, 1), ElementsAreArray(decoded));
    const std::unique_ptr<ExtraData> extra(access_.GetExtraData("High", 1));
    EXPECT_EQ(format == kAdpcmVs ? SDTarvaneAccessInterface::EXTRADATA_ADPCM
                                 : SDTarvaneAccessInterface::EXTRADATA_ADPCMPLUS,
              extra->type);
  }
  const std::unique_ptr<ExtraData> extra(access_.GetExtraData("High", 1));
  ASSERT_EQ(2u, extra->data.adpcmp.numBlocks);
  EXPECT_EQ(decoded[12], extra->data.adpcmp.blockY0[1]);
  EXPECT_EQ(decoded[13], extra->data.adpcmp.blockY1[1]);
}

TEST_F(Retrieval, GivesNothingForClassesWithoutASample) {
  Import("a.wav", SomeSound(20), kAdpcm, "Low");
  ExpectNothing("unknown", SDAccess::ERROR_UNKNOWNCLASS);
  ExpectNothing("High", SDAccess::ERROR_QUALITYNOTAVAILABLE);
  qz::ulong size = 7;
  access_.GetEncodedData("High", 0, size);
  EXPECT_EQ(7u, size) << "untouched";
}

TEST_F(Retrieval, NeverEncodesASampleOfAnUnknownFormat) {
  Import("a.wav", SomeSound(20), kAdpcm, "High");
  SDTestAccess::Samples(access_).front().compType = static_cast<SDCompType>(77);
  ExpectNothing("High", SDAccess::ERROR_UNSUPPORTEDFORMAT);
  const std::string before = EncodedBytes("High");
  EXPECT_EQ(SDAccess::ERROR_UNSUPPORTEDFORMAT, Update());
  EXPECT_EQ(before, EncodedBytes("High"));
  SDInfo info;
  ASSERT_NE(nullptr, access_.GetSampleInformation("High", info));
  EXPECT_EQ("", info.type);
}

TEST_F(Retrieval, TellsMissingFilesApart) {
  Import("a.wav", SomeSound(20), kAdpcm, "High");
  ASSERT_TRUE(DIOFile::Delete(EncodedPath("High")));
  qz::ulong size = 7;
  EXPECT_EQ(nullptr, access_.GetEncodedData("High", 0, size));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, LastError());
  EXPECT_EQ(0u, size);
  EXPECT_THAT(Raw(1), ::testing::SizeIs(1));
  // The data operations never make it; an update does.
  EXPECT_EQ(SDAccess::ERROR_OK, Update());
  const std::string encoded = EncodedBytes("High");
  ASSERT_TRUE(DIOFile::Delete(RawPath("High")));
  EXPECT_EQ(nullptr, access_.GetRawData("High", 0));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, LastError());
  EXPECT_EQ(SDAccess::ERROR_COULDNOTLOAD, Update());
  EXPECT_EQ(encoded, EncodedBytes("High"));
  host_.refuseRequest = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, Update());
}

// --- Bringing up to date ---

TEST_F(Retrieval, EncodesAnewWhereTheRawFileIsNewer) {
  Import("a.wav", SomeSound(20), kAdpcm, "High");
  EXPECT_FALSE(IsMadeAnew(1000000000, 500000000)) << "equal times are up to date";
  EXPECT_FALSE(IsMadeAnew(999999999, 900000000));
  EXPECT_TRUE(IsMadeAnew(1000000000, 501000000));
  EXPECT_TRUE(IsMadeAnew(1000000001, 0));
}

TEST_F(Retrieval, CuresAnotherFormatOrGivesUp) {
  Import("a.wav", SomeSound(20), kAdpcm, "High");
  SDTestAccess::Samples(access_).front().compType = SDAccess::COMPTYPE_RAW;
  {
    // The numbers can be read, the whole sound cannot.
    const FailingCall fault(2, [](platform::Call call, const std::string& path) {
      return call == platform::Call::kFopen && path.ends_with(".wav");
    });
    EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, Update());
    EXPECT_TRUE(fault.Fired());
  }
  EXPECT_EQ(SDAccess::ERROR_OK, Update());
  EXPECT_EQ(52u + 40u, EncodedBytes("High").size());
  EXPECT_EQ(1u, NumberAt(EncodedBytes("High"), 6, 2));
}

// --- Files that changed behind the library's back ---

TEST_F(Retrieval, ReadsNothingBehindTheEndOfARawFileThatShrank) {
  for (const std::uint16_t bits : {std::uint16_t{8}, std::uint16_t{16}}) {
    Import("a.wav", SomeSound(40, 2, bits), kPcm8, "High");
    const std::string whole = ReadBytes(Native(RawPath("High")));
    for (const std::size_t kept : {44u, 45u, 63u}) {
      WriteBytes(Native(RawPath("High")), whole.substr(0, kept));
      for (const qz::uchar format : {kPcm16, kAdpcmPlus, kPcm8}) {
        // The head's promise holds; what the file does not have is zero.
        ASSERT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("High", format));
        for (const std::vector<int>& samples : {Raw(40, 1), Decoded(40, 1)}) {
          ASSERT_EQ(40u, samples.size());
          EXPECT_EQ(0, samples[39]);
        }
      }
    }
    ASSERT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("High"));
  }
}

TEST_F(Retrieval, DecodesZerosBehindTheEndOfAnEncodedFileThatShrank) {
  for (const qz::uchar format : {kPcm16, kPcm8, kAdpcm}) {
    Import("a.wav", SomeSound(40), format, "High");
    const std::size_t whole = format == kAdpcm ? 42 : 40;
    std::string file = EncodedBytes("High");
    PutNumber(file, 44, 4, format == kAdpcm ? 8 : 3);  // less data than the sample has
    if (format == kAdpcm) file.erase(52 + 8, 16);
    SetEncodedBytes("High", file);
    const std::vector<int> decoded = Decoded(whole);
    ASSERT_EQ(whole, decoded.size());
    for (std::size_t i = 14; i < whole; ++i)
      EXPECT_EQ(0, decoded[i]) << i;
    ASSERT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("High"));
  }
}

// --- Compressed sounds, which are handed out as what they decode to ---

class MortImport : public Retrieval {
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
    ASSERT_EQ(access_.ImportSample("S:\\wav\\a.mort", kPcm16, "High"), Access::ERROR_OK);
    EXPECT_EQ(Record("High").info.length, 1000u);
    EXPECT_EQ(Record("High").info.orgKey, 62);
    EXPECT_EQ(Raw(1000), raw_);
    for (const Format format : {kPcm16, kAdpcm, kAdpcmPlus, kPcm8, kAdpcmVs}) {
      SCOPED_TRACE(format);
      ASSERT_EQ(access_.ChangeSampleFormat("High", format), Access::ERROR_OK);
      ASSERT_EQ(access_.ImportSample("S:\\wav\\a.wav", format, "Low"), Access::ERROR_OK);
      EXPECT_EQ(EncodedBytes("Low"), EncodedBytes("High"));
      EXPECT_EQ(access_.RemoveSample("Low"), Access::ERROR_OK);
    }
    EXPECT_EQ(access_.RemoveSample("High"), Access::ERROR_OK);
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
}  // namespace sdtest
