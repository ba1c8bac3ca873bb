// The host's stream over memory keeps every promise of a stream, and those of its own: it refuses
// what it may not write, and no seek commits memory.
#include <algorithm>
#include <vector>

#include "host/stream.h"
#include "tests/stream_suite.h"

namespace {

using samplehost::MemoryStream;

class MemoryStreams {
 public:
  DIOFile* Create() { return Take(new MemoryStream()); }
  DIOFile* Reopen() { return Take(new MemoryStream(bytes_)); }
  bool Close(DIOFile*& file) {
    const bool finished = stream_->Finish();
    bytes_ = stream_->bytes();
    delete stream_;
    file = nullptr;
    return finished;
  }
  std::string Bytes() { return {bytes_.begin(), bytes_.end()}; }

 private:
  DIOFile* Take(MemoryStream* stream) {
    stream_ = stream;
    return stream;
  }

  MemoryStream* stream_ = nullptr;
  MemoryStream::Bytes bytes_;
};

INSTANTIATE_TYPED_TEST_SUITE_P(OnMemory, StreamSuite, MemoryStreams);

TEST(MemoryStream, RefusesWritesWhereItIsOpenedForReading) {
  MemoryStream stream({1, 2, 3});
  EXPECT_FALSE(stream.Write(qz::uchar{9}));
  qz::uchar first = 0;
  EXPECT_TRUE(stream.Read(first));
  EXPECT_EQ(first, 1);
}

TEST(MemoryStream, FillsAGapWithZerosAndRefusesOneThatNoPayloadCanHave) {
  MemoryStream stream;
  ASSERT_TRUE(stream.SetPosition(qz::uint64{4}, DIOFile::SEEKMODE_START));
  EXPECT_TRUE(stream.Write(qz::uchar{7}));
  EXPECT_EQ(stream.bytes(), (MemoryStream::Bytes{0, 0, 0, 0, 7}));
  ASSERT_TRUE(stream.SetPosition(qz::uint64{1} << 40, DIOFile::SEEKMODE_START));
  EXPECT_FALSE(stream.Write(qz::uchar{7}));
  EXPECT_EQ(stream.bytes().size(), 5u);
}

}  // namespace
