// What every stream promises, whatever its bytes live in. Each kind of stream instantiates it:
//
//   INSTANTIATE_TYPED_TEST_SUITE_P(OnFile, StreamSuite, FileStreams);
//
// with a default-constructible type that makes streams over one run of bytes:
//
//   DIOFile* Create();              an empty stream to read and write
//   DIOFile* Reopen();              the same bytes to read, from their start
//   bool Close(DIOFile*& file);     ends a stream of either, with the result of its close
//   std::string Bytes();            the bytes, when no stream is open
//
// One stream is open at a time, but for the source of an Insert: a second object makes that.
#ifndef TESTS_STREAM_SUITE_H_
#define TESTS_STREAM_SUITE_H_

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "diskio/diskio.h"

namespace stream_suite {

inline std::string FromHex(const char* hex) {
  std::string bytes;
  for (; *hex != '\0'; ++hex) {
    if (*hex == ' ') continue;
    bytes.push_back(static_cast<char>(std::stoi(std::string(hex, 2), nullptr, 16)));
    ++hex;
  }
  return bytes;
}

// Bytes that tell every place and order apart.
inline std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  unsigned state = 1;
  for (char& byte : bytes) {
    state = state * 1103515245u + 12345u;
    byte = static_cast<char>(state >> 16);
  }
  return bytes;
}

inline bool WriteBytes(DIOFile* file, const std::string& bytes) {
  return file->Write(bytes.data(), 1, static_cast<qz::ulong>(bytes.size()));
}

inline qz::uint64 PositionOf(DIOFile* file) {
  qz::uint64 position = ~qz::uint64{0};
  EXPECT_TRUE(file->GetPosition(position));
  return position;
}

}  // namespace stream_suite

template <typename Streams>
class StreamSuite : public ::testing::Test {
 protected:
  void SetUp() override {
    file = streams.Create();
    ASSERT_NE(file, nullptr);
  }

  void TearDown() override {
    if (file != nullptr) streams.Close(file);
  }

  // Ends the stream and gives what it wrote.
  std::string Finish() {
    EXPECT_TRUE(streams.Close(file));
    EXPECT_EQ(file, nullptr);
    return streams.Bytes();
  }

  // Writes `bytes` and goes on with a stream that reads all.
  void ReadFrom(const std::string& bytes) {
    ASSERT_TRUE(stream_suite::WriteBytes(file, bytes));
    ASSERT_TRUE(streams.Close(file));
    file = streams.Reopen();
    ASSERT_NE(file, nullptr);
  }

  Streams streams;
  DIOFile* file = nullptr;
};

TYPED_TEST_SUITE_P(StreamSuite);

TYPED_TEST_P(StreamSuite, NumbersStandInTheByteOrderOfTheStream) {
  const auto all = [this](auto move) {
    bool fine = true;
    for (const auto order : {DIOFile::ENDIAN_LITTLE, DIOFile::ENDIAN_BIG}) {
      this->file->SetEndian(order);
      fine = fine && move('a') && move(qz::uchar{0xFE}) && move(short{-2}) &&
             move(qz::ushort{0x1234}) && move(qz::slong{-2}) && move(qz::ulong{0x12345678}) &&
             move(qz::int64{-2}) && move(qz::uint64{0x123456789ABCDEF0u}) && move(1.0f) &&
             move(-2.5) && move(DIOFile::v32{1.0f, 2.0f, -0.0f});
    }
    return fine;
  };
  EXPECT_TRUE(all([this](auto value) { return this->file->Write(value); }));
  const std::string little = stream_suite::FromHex(
      "61 FE FEFF 3412 FEFFFFFF 78563412 FEFFFFFFFFFFFFFF F0DEBC9A78563412"
      "0000803F 00000000000004C0 0000803F 00000040 00000080");
  const std::string big = stream_suite::FromHex(
      "61 FE FFFE 1234 FFFFFFFE 12345678 FFFFFFFFFFFFFFFE 123456789ABCDEF0"
      "3F800000 C004000000000000 3F800000 40000000 80000000");
  EXPECT_EQ(this->Finish(), little + big);

  this->file = this->streams.Reopen();
  ASSERT_NE(this->file, nullptr);
  EXPECT_TRUE(all([this](auto expected) {
    auto value = decltype(expected){};
    return this->file->Read(value) && std::memcmp(&value, &expected, sizeof value) == 0;
  }));
}

TYPED_TEST_P(StreamSuite, AReadCutByTheEndKeepsWhatItRead) {
  this->ReadFrom(stream_suite::FromHex("0000803F 00000040 112233"));
  this->file->SetEndian(DIOFile::ENDIAN_BIG);
  qz::ulong number = 0xAAAAAAAA;
  ASSERT_TRUE(this->file->SetPosition(qz::slong{-3}, DIOFile::SEEKMODE_END));
  EXPECT_FALSE(this->file->Read(number));
  EXPECT_EQ(0, std::memcmp(&number, "\x11\x22\x33\xAA", 4));  // unswapped
  EXPECT_EQ(stream_suite::PositionOf(this->file), 11u);

  ASSERT_TRUE(this->file->SetPosition(qz::ulong{8}, DIOFile::SEEKMODE_START));
  double wide = 7.0;
  EXPECT_FALSE(this->file->Read(wide));
  EXPECT_EQ(wide, 7.0);

  this->file->SetEndian(DIOFile::ENDIAN_LITTLE);
  for (const qz::ulong at : {0u, 4u, 8u}) {
    ASSERT_TRUE(this->file->SetPosition(at, DIOFile::SEEKMODE_START));
    DIOFile::v32 vector{7, 8, 9};
    EXPECT_FALSE(this->file->Read(vector));
    EXPECT_EQ(vector.z, 9.0f);
  }
}

TYPED_TEST_P(StreamSuite, OddElementSizesAndEmptyArraysMoveNothing) {
  ASSERT_TRUE(stream_suite::WriteBytes(this->file, "0123456789"));
  ASSERT_TRUE(this->file->SetPosition(qz::ulong{2}, DIOFile::SEEKMODE_START));
  char buffer[64] = "unchanged";
  for (const qz::ulong size : {0u, 3u, 5u, 16u}) {
    EXPECT_FALSE(this->file->Read(buffer, size, 1));
    EXPECT_FALSE(this->file->Write(buffer, size, 1));
  }
  for (const qz::ulong size : {1u, 2u, 4u, 8u}) {
    EXPECT_TRUE(this->file->Read(buffer, size, 0));
    EXPECT_TRUE(this->file->Write(buffer, size, 0));
  }
  EXPECT_STREQ(buffer, "unchanged");
  EXPECT_EQ(stream_suite::PositionOf(this->file), 2u);
  EXPECT_EQ(this->Finish(), "0123456789");
}

TYPED_TEST_P(StreamSuite, PositionsMoveFromAllThreeOrigins) {
  ASSERT_TRUE(stream_suite::WriteBytes(this->file, "0123456789"));
  qz::ulong narrow = 0;
  qz::uint64 wide = 0;
  EXPECT_TRUE(this->file->GetFileSize(narrow) && this->file->GetFileSize(wide));
  EXPECT_EQ(narrow, 10u);
  EXPECT_EQ(wide, 10u);
  EXPECT_TRUE(this->file->SetPosition(qz::int64{-4}, DIOFile::SEEKMODE_END));
  EXPECT_EQ(stream_suite::PositionOf(this->file), 6u);
  EXPECT_TRUE(this->file->SetPosition(static_cast<qz::ulong>(-3), DIOFile::SEEKMODE_CURRENT));
  EXPECT_EQ(stream_suite::PositionOf(this->file), 3u);
  EXPECT_TRUE(this->file->SetPosition(static_cast<qz::uint64>(-1), DIOFile::SEEKMODE_CURRENT));
  EXPECT_TRUE(this->file->SetPosition(qz::slong{3}, DIOFile::SEEKMODE_CURRENT));
  // A place in front of the start is refused and the position stays.
  EXPECT_FALSE(this->file->SetPosition(qz::int64{-6}, DIOFile::SEEKMODE_CURRENT));
  EXPECT_FALSE(this->file->SetPosition(qz::slong{-11}, DIOFile::SEEKMODE_END));
  EXPECT_FALSE(this->file->SetPosition(static_cast<qz::ulong>(-1), DIOFile::SEEKMODE_START));
  EXPECT_TRUE(this->file->GetPosition(narrow));
  EXPECT_EQ(narrow, 5u);
  // Writing inside goes over what stands there; what is behind stays.
  EXPECT_TRUE(this->file->Write(qz::ushort{0x6261}));
  EXPECT_EQ(this->Finish(), "01234ab789");
}

TYPED_TEST_P(StreamSuite, TextsAreFormatsWithCarriageReturnsInFrontOfLineFeeds) {
  EXPECT_TRUE(this->file->WriteString("a\nb"));
  EXPECT_TRUE(this->file->WriteStringZ("\r\n%s\n", "\n\nx"));
  EXPECT_TRUE(this->file->WriteString("") && this->file->WriteStringZ(""));
  EXPECT_TRUE(this->file->WriteString("%s|%d|%%|%5.1f|%c", "100% %n%s", -7, 2.25, 'z'));
  // More arguments than registers carry.
  EXPECT_TRUE(this->file->WriteString("|%d%d%d%d%d%d%d%.0f%s", 1, 2, 3, 4, 5, 6, 7, 8.0, "!"));
  EXPECT_EQ(this->Finish(),
            std::string("a\r\nb\r\r\n\r\n\r\nx\r\n\0\0", 16) + "100% %n%s|-7|%|  2.2|z|12345678!");
}

TYPED_TEST_P(StreamSuite, ATextWithoutItsEndIsReadAndAFailure) {
  EXPECT_TRUE(this->file->WriteStringZ("bad \xFF\xC3 end"));
  this->ReadFrom("ab\xC3\xA4");
  qz::string read = "old";
  EXPECT_TRUE(this->file->ReadString(read) && read == "bad \xFF\xC3 end");
  for (const char* const rest : {"ab\xC3\xA4", ""}) {
    EXPECT_FALSE(this->file->ReadString(read));
    EXPECT_TRUE(read == rest);
  }
}

TYPED_TEST_P(StreamSuite, ATextBeyondItsBufferIsRefusedWhole) {
  // The format counts 2 characters; a zero byte stands behind the text.
  const std::string longest(2 + 131072 - 1, 'x');
  EXPECT_FALSE(this->file->WriteString("%s", (longest + "x").c_str()));
  EXPECT_FALSE(this->file->WriteStringZ("%s", (longest + "x").c_str()));
  EXPECT_FALSE(this->file->WriteString("%lc", 0x7FFFFFFF));  // no character
  EXPECT_EQ(stream_suite::PositionOf(this->file), 0u);
  EXPECT_TRUE(this->file->WriteStringZ("%s", longest.c_str()));
  // Carriage returns come behind the limit.
  const std::string lines(131000, '\n');
  EXPECT_TRUE(this->file->WriteString("%s", lines.c_str()));
  const std::string bytes = this->Finish();
  EXPECT_EQ(bytes.size(), longest.size() + 1 + 2 * lines.size());
  EXPECT_EQ(bytes.substr(longest.size() - 1, 4), std::string("x\0\r\n", 4));
}

TYPED_TEST_P(StreamSuite, InsertCopiesFromPositionToPosition) {
  const std::string pattern = stream_suite::Pattern(3 * 65536 + 10);
  TypeParam other;
  DIOFile* source = other.Create();
  ASSERT_NE(source, nullptr);
  ASSERT_TRUE(stream_suite::WriteBytes(source, pattern));
  // At its end there is nothing to take, and an empty piece of nothing is fine.
  EXPECT_FALSE(this->file->Insert(source));
  EXPECT_TRUE(this->file->Insert(source, 0));

  ASSERT_TRUE(stream_suite::WriteBytes(this->file, "0123456789"));
  ASSERT_TRUE(this->file->SetPosition(qz::ulong{2}, DIOFile::SEEKMODE_START));
  ASSERT_TRUE(source->SetPosition(qz::ulong{5}, DIOFile::SEEKMODE_START));
  EXPECT_TRUE(this->file->Insert(source, 3) && this->file->Insert(source, 65536));
  EXPECT_EQ(stream_suite::PositionOf(source), 8u + 65536);
  EXPECT_TRUE(this->file->Insert(source));
  // More than there is: the whole blocks before the failure are there.
  std::string expected = "01" + pattern.substr(5);
  for (const qz::uint64 more : {1u, 65536u}) {
    ASSERT_TRUE(source->SetPosition(qz::ulong{0}, DIOFile::SEEKMODE_START));
    EXPECT_FALSE(this->file->Insert(source, pattern.size() + more));
    expected += pattern.substr(0, 3 * 65536);
  }
  EXPECT_TRUE(other.Close(source));
  EXPECT_TRUE(this->Finish() == expected);
}

TYPED_TEST_P(StreamSuite, ReferencesNameThePlaceOfTheirLabelAtTheEnd) {
  EXPECT_TRUE(this->file->WriteLabel("b"));      // 0: waits
  EXPECT_TRUE(this->file->WriteLabel("a"));      // 4: waits
  EXPECT_TRUE(this->file->WriteLabel("b"));      // 8: only the first of a name waits
  EXPECT_TRUE(this->file->WriteLabel("never"));  // 12: nothing comes
  EXPECT_TRUE(this->file->SetLabel("a"));        // 16
  EXPECT_TRUE(this->file->Write('x'));
  EXPECT_EQ(this->file->GetLabel("b"), ~qz::uint64{0});
  EXPECT_TRUE(this->file->SetLabel("b"));    // 17
  EXPECT_TRUE(this->file->WriteLabel("b"));  // known by now
  EXPECT_TRUE(this->file->SetLabel("b"));    // the first place stays
  EXPECT_TRUE(this->file->SetLabel("B"));
  EXPECT_EQ(this->file->GetLabel("b"), 17u);
  EXPECT_EQ(this->file->GetLabel("B"), 21u);
  EXPECT_EQ(this->Finish(),
            stream_suite::FromHex("11000000 10000000 00000000 00000000 78 11000000"));
}

TYPED_TEST_P(StreamSuite, LateReferencesHaveTheWidthAndOrderInForceAtTheEnd) {
  this->file->SetLabelMode(DIOFile::LABELMODE_LONG);
  EXPECT_TRUE(this->file->WriteLabel("a"));
  EXPECT_TRUE(this->file->SetLabel("a"));
  EXPECT_TRUE(this->file->WriteLabel("a"));
  this->file->SetLabelMode(DIOFile::LABELMODE_SHORT);
  EXPECT_TRUE(this->file->WriteLabel("b"));
  EXPECT_TRUE(this->file->SetLabel("b"));
  this->file->SetEndian(DIOFile::ENDIAN_BIG);
  EXPECT_EQ(this->Finish(), stream_suite::FromHex("00000008 00000000 0800000000000000 00000014"));
}

REGISTER_TYPED_TEST_SUITE_P(
    StreamSuite, NumbersStandInTheByteOrderOfTheStream, AReadCutByTheEndKeepsWhatItRead,
    OddElementSizesAndEmptyArraysMoveNothing, PositionsMoveFromAllThreeOrigins,
    TextsAreFormatsWithCarriageReturnsInFrontOfLineFeeds, ATextWithoutItsEndIsReadAndAFailure,
    ATextBeyondItsBufferIsRefusedWhole, InsertCopiesFromPositionToPosition,
    ReferencesNameThePlaceOfTheirLabelAtTheEnd, LateReferencesHaveTheWidthAndOrderInForceAtTheEnd);

#endif  // TESTS_STREAM_SUITE_H_
