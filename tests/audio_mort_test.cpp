// MORT files and the GB codec.
#include <cstring>
#include <memory>

#include "audio/MORT_codecs.h"
#include "audio/MORT_reader.h"
#include "audio/MORT_writer.h"
#include "platform/faults.h"
#include "platform/platform.h"
#include "tests/audio_helpers.h"

namespace audiotest {
namespace {

Bytes Head(qz::ulong version, qz::ulong codec, qz::ulong bits, qz::ulong channels) {
  return Text("MORT") + Le(0, 2) + Le(version, 2) + Le(codec, 2) + Le(bits, 2) + Le(0xFFFE, 2) +
         Le(channels, 2) + Words({32000, 0x55, 1234}) + Bytes(16, 0x77);
}

class AudioMort : public testing::Test {
 protected:
  int Read(const Bytes& bytes, bool infoOnly = false) {
    const std::string path = folder.Write("a.mort", bytes);
    std::free(sound.Samples);
    return infoOnly ? audio_GetFileInfo(path.c_str(), &sound)
                    : audio_ReadWave(path.c_str(), &sound, false);
  }
  Bytes Written(_AUDIO& source, int format) {
    EXPECT_EQ(audio_WriteWave(folder.Path("w.mort").c_str(), &source, format), AUDIO_OK)
        << AudioErrorMsg;
    return folder.Read("w.mort");
  }
  // `size` is that of the file which is left behind; -1 for none.
  void ExpectFailure(_AUDIO& source, int format, const char* message, long size) {
    std::filesystem::remove(folder.Native("w.mort"));
    EXPECT_EQ(audio_WriteWave(folder.Path("w.mort").c_str(), &source, format), AUDIO_WRITEFAILED);
    EXPECT_STREQ(AudioErrorMsg, message);
    const bool exists = std::filesystem::exists(folder.Native("w.mort"));
    EXPECT_EQ(exists ? std::ssize(folder.Read("w.mort")) : -1, size);
  }

  TempFolder folder;
  Sound sound;
};

TEST_F(AudioMort, HeadFillsTheRecordAndTheStreamStaysAsItIs) {
  for (const int codec : {0, 1, 2}) {
    const Bytes file = Head(1, static_cast<qz::ulong>(codec), 16, 1) + Bytes{9, 8, 7};
    const Numbers numbers = {
        0, 3, 32000, 1234, 16, 1, -2, (codec + 1) % 3, AUDIO_NOLOOP, AUDIO_NOLOOP, 0, 0};
    ASSERT_EQ(Read(file), AUDIO_OK) << AudioErrorMsg;
    EXPECT_EQ(NumbersOf(sound), numbers);
    EXPECT_EQ(sound.Raw(), (Bytes{9, 8, 7}));
    ASSERT_EQ(Read(file, true), AUDIO_OK);
    EXPECT_EQ(NumbersOf(sound), numbers);
    EXPECT_EQ(sound.Samples, nullptr);
    EXPECT_EQ(mort_Decode(&sound), nullptr);  // plain, or nothing there to decode
  }
}

TEST_F(AudioMort, RefusalsSayWhy) {
  const std::string unknown = "File `" + folder.Path("a.mort") + "' is of an unknown type!";
  const struct {
    Bytes file;
    int result;
    qz::slong errorCode;
    std::string message;
  } cases[] = {
      {Head(2, 0, 16, 1), AUDIO_UNKNOWNTYPE, 7, unknown},
      {Text("MORT") + Le(1, 2) + Le(1, 2), AUDIO_UNKNOWNTYPE, 0, unknown},
      {Text("MORT") + Le(0, 2) + Bytes{2}, AUDIO_UNKNOWNTYPE, 0, unknown},
      {Head(1, 0, 8, 2), AUDIO_BADCONTENT, 0, "MORT samples must have 16 bits/sample"},
      {Head(1, 0, 16, 2), AUDIO_BADCONTENT, 0, "MORT samples must have only 1 channel"},
  };
  for (const auto& test : cases) {
    for (const bool infoOnly : {false, true}) {
      EXPECT_EQ(Read(test.file, infoOnly), test.result);
      EXPECT_EQ(audio_ErrorMsg, test.message);
      EXPECT_EQ(audio_ErrorCode, test.errorCode);
    }
  }

  // Past the front end each of the two has its own words.
  std::FILE* file = platform::fopen(folder.Write("v.mort", Head(2, 0, 16, 1)).c_str(), "rb");
  ASSERT_NE(file, nullptr);
  EXPECT_FALSE(mort_IsValid(file));
  EXPECT_EQ(std::ftell(file), 0);
  EXPECT_STREQ(AudioErrorMsg, "Illegal MORT file version!");
  Sound direct;
  EXPECT_EQ(mort_ReadWave(file, &direct, false), AUDIO_BADMORTVERSION);
  EXPECT_STREQ(AudioErrorMsg, "Unsupported MORT file version!");
  std::fclose(file);
}

TEST_F(AudioMort, CutHeadsReadAsZeros) {
  for (std::size_t size = 8; size <= 44; ++size) {
    SCOPED_TRACE(size);
    const Bytes file = Part(Head(1, 1, 16, 1), 0, size);
    EXPECT_EQ(Read(file, true), size < 16 ? AUDIO_BADCONTENT : AUDIO_OK);
    EXPECT_EQ(Read(file), size < 16 ? AUDIO_BADCONTENT : size < 44 ? AUDIO_DATAENDED : AUDIO_OK);
    EXPECT_EQ(sound.LengthInBytes, 0u);
    EXPECT_EQ(sound.SampleRate, size < 20 ? 0u : 32000u);
    EXPECT_EQ(sound.NumSamples, size < 28 ? 0u : 1234u);
    EXPECT_EQ(sound.Samples == nullptr, size < 44);
  }
}

TEST_F(AudioMort, FilesAreHeadAndStreamAndComeBackTheSame) {
  for (const int format : {AUDIO_FORMAT_MORT_GSM, AUDIO_FORMAT_MORT_GB}) {
    SCOPED_TRACE(format);
    Sound source(Noise(2000), 16, 1, 22050);
    source.OriginalKey = 72;
    const Bytes file = Written(source, format);
    EXPECT_EQ(Part(file, 0, 44), Text("MORT") + Le(0, 2) + Le(1, 2) + (Bytes{file[8], 0}) +
                                     Le(16, 2) + Le(72, 2) + Le(1, 2) + Words({22050, 2000, 1000}) +
                                     Bytes(16, 0));
    EXPECT_EQ(file[8], format == AUDIO_FORMAT_MORT_GSM ? 0 : 1);

    // Passed on: the same stream behind a head that says its length.
    ASSERT_EQ(Read(file), AUDIO_OK);
    const Bytes again = Written(sound, format);
    EXPECT_EQ(Part(again, 20, 24), Le(file.size() - 44, 4));
    EXPECT_EQ(Part(again, 24, again.size()), Part(file, 24, file.size()));

    // Recoded, and made a WAV file: what the decoder gives, without the key.
    const std::unique_ptr<_AUDIO, void (*)(_AUDIO*)> plain(mort_Decode(&sound), mort_Release);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->NumSamples, format == AUDIO_FORMAT_MORT_GSM ? 1120u : 1024u);
    EXPECT_EQ(plain->SampleRate, 22050u);
    const int other = AUDIO_FORMAT_MORT_GSM + AUDIO_FORMAT_MORT_GB - format;
    const Bytes recoded = Written(sound, other);
    EXPECT_EQ(Part(recoded, 12, 14), Le(0, 2));
    EXPECT_EQ(recoded, Written(*plain, other));
    const Bytes wav = Written(sound, AUDIO_FORMAT_WAV);
    ASSERT_EQ(wav.size(), 44 + plain->LengthInBytes + 44);
    EXPECT_EQ(std::memcmp(wav.data() + 44, plain->Samples, plain->LengthInBytes), 0);
    EXPECT_EQ(Part(wav, wav.size() - 24, wav.size()), Bytes(24, 0));  // unity note 0, no loop
  }
}

TEST_F(AudioMort, WriteFailuresSayWhyAndLeaveWhatWasWritten) {
  Sound source(Noise(400), 16, 2, 8000);
  ExpectFailure(source, AUDIO_FORMAT_MORT_GSM, "Only 1 channel is allowed!", 14);
  source.BitsPerSample = 8;
  ExpectFailure(source, AUDIO_FORMAT_MORT_GB, "Only 16 bits/sample are allowed!", 10);
  EXPECT_EQ(mort_WriteWave(folder.Path("w.mort").c_str(), &source, 2), 1);
  EXPECT_STREQ(AudioErrorMsg, "Illegal codec!");
  EXPECT_EQ(folder.Read("w.mort").size(), 8u);
  source.UsesCompression = 1;  // noise is no stream
  ExpectFailure(source, AUDIO_FORMAT_MORT_GB, "Error decoding sample!", -1);
  ExpectFailure(source, AUDIO_FORMAT_WAV, "Error decompression MORT file!", -1);
  source.UsesCompression = 2;
  source.LengthInBytes = 0x80000000;  // more than its codec counts
  ExpectFailure(source, AUDIO_FORMAT_WAV, "Error decompression MORT file!", -1);
  Sound endless(Noise(10), 16, 1, 8000);
  endless.NumSamples = 0xFFFFFFFF;
  ExpectFailure(endless, AUDIO_FORMAT_MORT_GB, "Error encoding file!", 44);
}

TEST_F(AudioMort, AFullDiskIsToldUnlessTheRecordIsRefused) {
  platform::SetFaultHook([](platform::Call call, const char*) -> DWORD {
    return call == platform::Call::kWriteFile ? ERROR_DISK_FULL : NO_ERROR;
  });
  const std::string full = folder.Path("full");
  Sound source(Noise(100000), 16, 1, 8000);  // what comes of it is more than a buffer
  for (const int format : {AUDIO_FORMAT_WAV, AUDIO_FORMAT_MORT_GSM, AUDIO_FORMAT_MORT_GB}) {
    EXPECT_EQ(audio_WriteWave(full.c_str(), &source, format), AUDIO_WRITEFAILED);
    EXPECT_STREQ(AudioErrorMsg, "Error writing to file!");
  }
  EXPECT_EQ(mort_WriteWave(full.c_str(), &source, 2), 1);
  EXPECT_STREQ(AudioErrorMsg, "Illegal codec!");
  source.UsesCompression = 1;
  EXPECT_EQ(audio_WriteWave(full.c_str(), &source, AUDIO_FORMAT_MORT_GSM), AUDIO_WRITEFAILED);
  EXPECT_STREQ(AudioErrorMsg, "Error encoding file!");
  platform::SetFaultHook({});
}

TEST_F(AudioMort, SamplesThatARecordOnlyPromisesAreSilence) {
  for (const int format : {AUDIO_FORMAT_MORT_GSM, AUDIO_FORMAT_MORT_GB}) {
    Sound padded(Noise(150) + Bytes(1850), 16, 1, 8000);
    const Bytes expected = Written(padded, format);
    Sound source(Noise(151), 16, 1, 8000);
    source.NumSamples = 1000;
    const Bytes file = Written(source, format);
    EXPECT_EQ(Part(file, 24, file.size()), Part(expected, 24, expected.size()));
    for (const qz::ushort compression : std::initializer_list<qz::ushort>{0, 1, 2}) {
      Sound none;
      none.LengthInBytes = 4;
      none.UsesCompression = compression;
      ExpectFailure(none, format, "Error encoding file!", -1);
    }
    Sound empty;
    empty.BitsPerSample = 16;
    empty.NumChannels = 1;
    EXPECT_EQ(Part(Written(empty, format), 16, 28), Bytes(12));
    empty.UsesCompression = format == AUDIO_FORMAT_MORT_GSM ? 1 : 2;
    EXPECT_EQ(Written(empty, format).size(), 44u);
  }
}

// --- GB -----------------------------------------------------------------------------------------

Bytes EncodeGB(const std::vector<short>& samples) {
  Sound source(Samples(samples), 16, 1, 8000);
  void* stream = nullptr;
  qz::ulong length = 0;
  EXPECT_TRUE(mort_EncodeGB(&source, &stream, &length));
  const auto* bytes = static_cast<unsigned char*>(stream);
  const Bytes result(bytes, bytes + length);
  std::free(stream);
  return result;
}

std::vector<short> DecodeGB(const Bytes& stream) {
  void* samples = nullptr;
  qz::ulong count = 0;
  const auto length = static_cast<qz::slong>(stream.size());
  EXPECT_EQ(gbCodec_Decode(stream.data(), length, &samples, &count), 0);
  const auto* begin = static_cast<short*>(samples);
  const std::vector<short> decoded(begin, begin + count);
  std::free(samples);
  return decoded;
}

Bytes Marker(unsigned char count) {
  return Bytes{0x78, count} + Bytes(14, 0x88);
}

TEST(AudioGB, SamplesAreTheirTopFourBits) {
  const Bytes stream = EncodeGB({0, 0x7FFF, -1, -32768, 4095, 4096});
  EXPECT_EQ(stream, (Bytes{0x8F, 0x70, 0x89}) + Bytes(13, 0x77));
  std::vector<short> decoded = DecodeGB(stream);
  EXPECT_EQ(decoded.size(), 32u);
  decoded.resize(6);
  EXPECT_EQ(decoded, (std::vector<short>{2048, 30720, -2048, -30720, 2048, 6144}));
  EXPECT_EQ(EncodeGB({}), Bytes{});
  EXPECT_EQ(EncodeGB(std::vector<short>(33)), Bytes(16, 0x88) + Bytes{0x87} + Bytes(15, 0x77));
}

// Sounds of blocks: S silent, P plain, F silent but for its first sample.
TEST(AudioGB, RowsOfSilentBlocksBecomeMarkers) {
  const Bytes silent(16, 0x88);
  const Bytes plain(16, 0xCC);
  const struct {
    std::string blocks;
    Bytes stream;
  } cases[] = {
      {"S", silent},
      {"PSPP", plain + silent + plain + plain},
      {"SPS", silent + plain + silent},
      {"SSSP", Marker(2)},  // the walk ends in front of the last block
      {"SSPS", Marker(1) + plain},
      {"PSSPP", plain + Marker(1) + plain},
      {"PSS", plain + Marker(1)},
      {"PFSPSP", plain + Marker(1) + plain + silent},  // the first sample is lost
      {std::string(10, 'S'), Marker(9)},
      {std::string(256, 'S') + "PP", Marker(254) + Marker(0) + plain},
      {std::string(300, 'S'), Marker(254) + Marker(44)},
  };
  for (const auto& test : cases) {
    std::vector<short> samples;
    for (const char block : test.blocks) {
      samples.resize(samples.size() + 32, block == 'P' ? 0x4000 : 0);
      if (block == 'F') samples[samples.size() - 32] = 0x4000;
    }
    EXPECT_EQ(EncodeGB(samples), test.stream) << test.blocks;
  }
}

TEST(AudioGB, DecoderTakesMarkersByTheirByteAndDropsATail) {
  EXPECT_TRUE(DecodeGB(Marker(0) + Bytes(15, 0)).empty());
  EXPECT_EQ(DecodeGB(Marker(255)).size(), 8160u);
  EXPECT_EQ(DecodeGB(Bytes(16, 0x88) + Marker(1) + Bytes(16, 0x88)), std::vector<short>(96, 2048));

  Bytes full(4300000, 0x7F);  // markers that stand for more than a record can hold
  for (std::size_t i = 1; i < full.size(); i += 16)
    full[i] = 255;
  int placeholder = 0;
  void* samples = &placeholder;
  qz::ulong count = 1;
  EXPECT_EQ(gbCodec_Decode(full.data(), static_cast<qz::slong>(full.size()), &samples, &count), 1);
  EXPECT_EQ(samples, nullptr);
  EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace audiotest
