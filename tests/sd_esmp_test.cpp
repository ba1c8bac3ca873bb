// Encoded files: their bytes in each format, and files that are not what they should be.
#include <cstdlib>
#include <cstring>

#include "adpcm/adpcm.h"
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using Bytes = std::string;
using ExtraData = SDTarvaneAccessInterface::SDExtraData;

constexpr std::size_t kHead = 40;
constexpr std::size_t kLengths = 8;  // in front of a channel's data

class EncodedFile : public SampleNodeTest {
 protected:
  // The file that an import of `wav` makes.
  Bytes Encode(const Wav& wav, qz::uchar format) {
    if (!access_.GetQualityClasses().empty()) {
      EXPECT_EQ(Access::ERROR_OK, access_.RemoveSample("High"));
    }
    Import("kick.wav", wav, format, "High");
    return EncodedBytes("High");
  }

  // One channel's chunk, as the table in the head finds it.
  static std::size_t ChunkAt(const Bytes& file, std::size_t channel) {
    return NumberAt(file, kHead + 4 * channel, 4);
  }
  static Bytes Data(const Bytes& file, std::size_t channel) {
    const std::size_t at = ChunkAt(file, channel);
    return file.substr(at + kLengths, NumberAt(file, at, 4));
  }
  static Bytes Extra(const Bytes& file, std::size_t channel) {
    const std::size_t at = ChunkAt(file, channel);
    return file.substr(at + kLengths + NumberAt(file, at, 4), NumberAt(file, at + 4, 4));
  }

  // What the host gets of a channel; nothing where it is refused.
  Bytes Got(qz::uchar channel) {
    qz::ulong size = 99;
    const std::unique_ptr<void, decltype(&std::free)> data(
        access_.GetEncodedData("High", channel, size), &std::free);
    EXPECT_EQ(data == nullptr, size == 0);
    return {static_cast<const char*>(data.get()), size};
  }
  std::unique_ptr<ExtraData> GotExtra(qz::uchar channel) {
    return std::unique_ptr<ExtraData>(access_.GetExtraData("High", channel));
  }
  // Takes the head's numbers over into the record; the file is newer than the raw one.
  SDAccess::SDError Update() { return SDTestAccess::ReadSampleInformation(access_, "High"); }
};

// --- Layout ---

TEST_F(EncodedFile, HasTheSizesOfItsFormat) {
  for (const std::uint32_t n : {0u, 1u, 14u, 15u}) {
    const std::uint32_t frames = (n + 13) / 14;
    const Wav wav = SomeSound(n, 2);
    EXPECT_EQ(48 + 2 * (8 + 2 * n), Encode(wav, kPcm16).size());
    EXPECT_EQ(48 + 2 * (8 + n), Encode(wav, kPcm8).size());
    EXPECT_EQ(48 + 2 * (56 + 8 * frames), Encode(wav, kAdpcmVs).size());
    EXPECT_EQ(48 + 2 * (56 + 12 * frames), Encode(wav, kAdpcmPlus).size());
  }
}

TEST_F(EncodedFile, StartsWithHeadAndChannelTable) {
  Wav wav = SomeSound(20, 2);
  wav.rate = 22050;
  wav.loop = true;
  wav.loopStart = 3;
  wav.loopEnd = 18;
  const Bytes file = Encode(wav, kAdpcm);
  const Bytes head(
      "ESMP\x02\0\x02\0\x22\x56\0\0\0\0\0\0"
      "\x14\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\x10\0\0\0\0\0\0\0"
      "\x30\0\0\0\x78\0\0\0"
      "\x10\0\0\0\x30\0\0\0",
      kHead + 16);
  EXPECT_EQ(head, file.substr(0, head.size()));
  EXPECT_EQ(16u, NumberAt(file, 120, 4));
  EXPECT_EQ(48u, NumberAt(file, 124, 4));
  EXPECT_EQ(192u, file.size());
}

TEST_F(EncodedFile, HoldsPcmAsItIsAndNarrowed) {
  Wav wav;
  wav.channels = 2;
  wav.samples = {0x7FFF, -1, 255, 256, -32768, 0x1234};
  Bytes file = Encode(wav, kPcm16);
  EXPECT_EQ(Bytes("\xFF\x7F\xFF\0\0\x80", 6), Data(file, 0));
  EXPECT_EQ(Bytes("\xFF\xFF\0\x01\x34\x12", 6), Data(file, 1));
  file = Encode(wav, kPcm8);
  EXPECT_EQ(Bytes("\x7F\0\x80", 3), Data(file, 0));
  EXPECT_EQ(Bytes("\xFF\x01\x12", 3), Data(file, 1));
  EXPECT_EQ("", Extra(file, 1));
}

TEST_F(EncodedFile, HoldsEachChannelAsAStreamOfItsOwn) {
  Wav wav = SomeSound(100, 2);
  wav.loop = true;
  wav.loopStart = 30;
  wav.loopEnd = 99;
  for (const std::size_t channel : {0u, 1u}) {
    std::vector<short> samples;
    for (std::size_t i = 0; i < 100; ++i)
      samples.push_back(static_cast<short>(wav.samples[2 * i + channel]));
    qz::ulong count = 100;
    qz::ulong loop = 30;
    qz::ulong loopLength = 70;
    _ADPCMINFO info;
    ASSERT_EQ(1u, adpcmEncodeSample(samples.data(), &count, &loop, &loopLength, &info, nullptr));
    ASSERT_EQ(8u, info.numBlocks);

    for (const qz::uchar format : {kAdpcm, kAdpcmPlus, kAdpcmVs}) {
      SCOPED_TRACE(format);
      const Bytes file = Encode(wav, format);
      EXPECT_EQ(format, NumberAt(file, 6, 2));
      const Bytes data = Data(file, channel);
      EXPECT_EQ(Bytes(reinterpret_cast<const char*>(info.Data), info.DataBytes), data);
      const short numbers[] = {8, 2, info.loopY0, info.loopY1};
      Bytes extra(reinterpret_cast<const char*>(info.CoefTable), 32);
      extra.append(reinterpret_cast<const char*>(numbers), sizeof numbers);
      extra += {data[16], data[0]};  // the loop starts in the third frame
      extra.append(6, '\0');
      if (format == kAdpcmPlus) {
        extra[44] = 8;
        extra.append(reinterpret_cast<const char*>(info.y0), 16);
        extra.append(reinterpret_cast<const char*>(info.y1), 16);
      }
      EXPECT_EQ(extra, Extra(file, channel));
    }
    adpcmFreeEncoded(&info);
  }
}

TEST_F(EncodedFile, TellsALoopAtTheStartFromNoLoop) {
  Wav wav = SomeSound(40);
  const Bytes none = Extra(Encode(wav, kAdpcmPlus), 0);
  wav.loop = true;
  wav.loopEnd = 39;
  const Bytes atStart = Extra(Encode(wav, kAdpcmPlus), 0);
  EXPECT_EQ(Bytes(5, '\0'), none.substr(36, 5));
  EXPECT_NE(0, none[41]);
  EXPECT_EQ(Bytes(4, '\0'), atStart.substr(36, 4));
  EXPECT_EQ(none[41], atStart[40]);
}

// --- Readers ---

TEST_F(EncodedFile, IsReadThroughItsTable) {
  const Bytes file = Encode(SomeSound(20, 2), kAdpcmPlus);
  const std::size_t first = ChunkAt(file, 0);
  const std::size_t second = ChunkAt(file, 1);
  // The second channel's chunk in front, and of another size, with a gap between the two.
  Bytes moved =
      file.substr(0, first) + file.substr(second) + "gap" + file.substr(first, second - first);
  PutNumber(moved, kHead, 4, first + (file.size() - second) + 3);
  PutNumber(moved, kHead + 4, 4, first);
  SetEncodedBytes("High", moved);
  EXPECT_EQ("", Got(2));
  for (const qz::uchar channel : {qz::uchar{0}, qz::uchar{1}}) {
    EXPECT_EQ(Data(file, channel), Got(channel));
    const auto extra = GotExtra(channel);
    ASSERT_NE(nullptr, extra);
    EXPECT_EQ(0, std::memcmp(extra->data.adpcmp.coefTable, Extra(file, channel).data(), 32));
  }
}

TEST_F(EncodedFile, TakesTheKeyFromTheRecordAndTheRestFromTheHead) {
  Bytes file = Encode(SomeSound(20), kAdpcm);
  PutNumber(file, 8, 4, 48000);
  PutNumber(file, 12, 4, 0xFFFFFFFF);  // padding
  PutNumber(file, 16, 8, 0x123456789A);
  PutNumber(file, 24, 8, 5);
  PutNumber(file, 32, 8, 6);
  SetEncodedBytes("High", file);
  EXPECT_EQ(Access::ERROR_OK, Update());
  const SDInfoIntern& info = Record("High").encodedInfo;
  EXPECT_EQ(48000u, info.frq);
  EXPECT_EQ(0x123456789Au, info.length);
  EXPECT_EQ(5u, info.loop);
  EXPECT_EQ(6u, info.loopLength);
  EXPECT_EQ(60, info.orgKey);
}

// --- Files that are not what they should be ---

TEST_F(EncodedFile, WithAnotherIdIsRefused) {
  Bytes file = Encode(SomeSound(20), kAdpcm);
  for (std::size_t at = 0; at < 4; ++at) {
    Bytes damaged = file;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
    SetEncodedBytes("High", damaged);
    EXPECT_EQ(Access::ERROR_COULDNOTREAD, Update());
    EXPECT_EQ("", Got(0));
    EXPECT_EQ(Access::ERROR_BADFORMAT, LastError());
    EXPECT_EQ(nullptr, access_.GetDecodedData("High", 0));
    EXPECT_EQ(Access::ERROR_BADFORMAT, LastError());
    // The host hears one code for extra data, whatever the cause.
    EXPECT_EQ(nullptr, GotExtra(0));
    EXPECT_EQ(Access::ERROR_COULDNOTREAD, LastError());
  }
}

TEST_F(EncodedFile, CutAnywhereGivesWhatIsWholeAndRefusesTheRest) {
  const Bytes file = Encode(SomeSound(20, 2), kAdpcmPlus);
  for (std::size_t length = 0; length < file.size(); ++length) {
    SetEncodedBytes("High", file.substr(0, length));
    EXPECT_EQ(length < kHead ? Access::ERROR_COULDNOTREAD : Access::ERROR_OK, Update()) << length;
    for (const qz::uchar channel : {qz::uchar{0}, qz::uchar{1}}) {
      const std::size_t dataEnd = ChunkAt(file, channel) + kLengths + Data(file, channel).size();
      const std::size_t extraEnd = dataEnd + Extra(file, channel).size();
      EXPECT_EQ(length < dataEnd ? "" : Data(file, channel), Got(channel)) << length;
      EXPECT_EQ(length < dataEnd ? Access::ERROR_COULDNOTREAD : Access::ERROR_OK, LastError());
      EXPECT_EQ(length < extraEnd, GotExtra(channel) == nullptr) << length;
      EXPECT_EQ(length < extraEnd ? Access::ERROR_COULDNOTREAD : Access::ERROR_OK, LastError());
    }
  }
}

TEST_F(EncodedFile, TellsAsManyBlocksAsItHolds) {
  const Bytes file = Encode(SomeSound(40), kAdpcmPlus);  // 3 frames
  const std::size_t extra = ChunkAt(file, 0) + kLengths + 24;
  const auto blocks = [this](const Bytes& bytes) {
    SetEncodedBytes("High", bytes);
    const auto read = GotExtra(0);
    EXPECT_NE(nullptr, read);
    return read == nullptr ? -1 : static_cast<int>(read->data.adpcmp.numBlocks);
  };
  EXPECT_EQ(3, blocks(file));
  Bytes damaged = file;
  PutNumber(damaged, extra + 44, 4, 2);
  EXPECT_EQ(2, blocks(damaged));
  // Of 5 blocks both arrays would need 20 bytes, of which 12 are there: the second array's first
  // value only.
  PutNumber(damaged, extra + 44, 4, 5);
  EXPECT_EQ(1, blocks(damaged));
  PutNumber(damaged, extra + 44, 4, 0xFFFFFFFF);
  EXPECT_EQ(0, blocks(damaged));
}

TEST_F(EncodedFile, FillsCutExtraDataWithZeros) {
  Bytes file = Encode(SomeSound(20), kAdpcm);
  const std::size_t chunk = ChunkAt(file, 0);
  PutNumber(file, chunk + 4, 4, 10);
  SetEncodedBytes("High", file);
  const auto extra = GotExtra(0);
  ASSERT_NE(nullptr, extra);
  EXPECT_EQ(0, extra->data.adpcm.numCoef);
  EXPECT_EQ(0, extra->data.adpcm.initialPS);
  // None at all on a sample that has some by its format: nothing to give, and no failure.
  PutNumber(file, chunk + 4, 4, 0);
  SetEncodedBytes("High", file);
  EXPECT_EQ(nullptr, GotExtra(0));
  EXPECT_EQ(Access::ERROR_OK, LastError());
  EXPECT_EQ(nullptr, access_.GetDecodedData("High", 0));
  EXPECT_EQ(Access::ERROR_COULDNOTDECODE, LastError());
}

}  // namespace
}  // namespace sdtest
