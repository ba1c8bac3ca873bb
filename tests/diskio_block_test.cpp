// Arrays on streams that give or take less than they are asked for: the outcome is that of the
// loop over the elements, wherever the shortage falls.
#include <algorithm>
#include <cstring>

#include "diskio/diskio_typed.h"
#include "tests/stream_suite.h"

namespace {

// Bytes in memory that end, or are full, at `limit`, and that move `stride` bytes at most with one
// call; a call that moves less because of the limit fails where `fails` is set.
class ShortStream final : public DIOTypedStream {
 public:
  ShortStream(std::string _bytes, std::size_t _limit, std::size_t _stride, bool _fails)
      : DIOTypedStream(OPENMODE_MODIFY),
        bytes(std::move(_bytes)),
        limit(_limit),
        stride(_stride),
        fails(_fails) {}

  bool GetFileTime(DIOFileTime&, DIOFileTime&, DIOFileTime&) override { return false; }
  bool GetFileSize(uint64&) override { return false; }
  bool GetFileSize(ulong&) override { return false; }
  bool GetPosition(uint64& pos) override {
    pos = at;
    return true;
  }
  bool GetPosition(ulong&) override { return false; }
  using DIOTypedStream::SetPosition;
  bool SetPosition(uint64, DIOSeekMode) override { return false; }
  bool SetPosition(ulong, DIOSeekMode) override { return false; }

  std::string bytes;

 protected:
  bool ReadBytes(void* buffer, ulong count, ulong& done) override {
    const bool fine = Move(count, done);
    std::memcpy(buffer, bytes.data() + at - done, done);
    return fine;
  }
  bool WriteBytes(const void* buffer, ulong count, ulong& done) override {
    const bool fine = Move(count, done);
    std::memcpy(bytes.data() + at - done, buffer, done);
    return fine;
  }

 private:
  bool Move(ulong count, ulong& done) {
    const std::size_t moved = std::min({std::size_t{count}, stride, limit - at});
    const bool cut = limit - at < std::min(std::size_t{count}, stride);
    at += moved;
    done = static_cast<ulong>(moved);
    return !(fails && cut);
  }

  std::size_t limit;
  std::size_t stride;
  bool fails;
  std::size_t at = 0;
};

TEST(BlockTest, ShortTransfersEndWhereTheLoopWouldEnd) {
  constexpr std::size_t kBlock = 65536;
  constexpr std::size_t kBytes = kBlock + 64;
  const std::string pattern = stream_suite::Pattern(kBytes);
  const std::string blank(kBytes, '\x55');
  for (const qz::ulong size : {2u, 4u, 8u}) {
    for (const auto order : {DIOFile::ENDIAN_LITTLE, DIOFile::ENDIAN_BIG}) {
      for (const std::size_t limit : {std::size_t{0}, std::size_t{1}, std::size_t{15}, kBlock - 1,
                                      kBlock, kBlock + 1, kBlock + 16, kBytes}) {
        for (const std::size_t stride : {kBytes, std::size_t{4096}}) {
          for (const bool fails : {false, true}) {
            SCOPED_TRACE(testing::Message()
                         << "elements of " << size << ", order " << order << ", limit " << limit
                         << ", stride " << stride << (fails ? ", failing" : ", short"));
            const qz::ulong count = static_cast<qz::ulong>(kBytes / size);
            ShortStream block(pattern, limit, stride, fails);
            ShortStream loop(pattern, limit, stride, fails);
            block.SetEndian(order);
            loop.SetEndian(order);
            std::string fromBlock = blank;
            std::string fromLoop = blank;
            EXPECT_EQ(block.Read(fromBlock.data(), size, count), limit == kBytes);
            EXPECT_EQ(stream_suite::ReadElements(&loop, fromLoop.data(), size, count),
                      limit == kBytes);
            EXPECT_TRUE(fromBlock == fromLoop);
            EXPECT_EQ(stream_suite::PositionOf(&block), stream_suite::PositionOf(&loop));

            ShortStream blockTarget(blank, limit, stride, fails);
            ShortStream loopTarget(blank, limit, stride, fails);
            blockTarget.SetEndian(order);
            loopTarget.SetEndian(order);
            EXPECT_EQ(blockTarget.Write(pattern.data(), size, count), limit == kBytes);
            EXPECT_EQ(stream_suite::WriteElements(&loopTarget, pattern.data(), size, count),
                      limit == kBytes);
            EXPECT_TRUE(blockTarget.bytes == loopTarget.bytes);
            EXPECT_EQ(stream_suite::PositionOf(&blockTarget),
                      stream_suite::PositionOf(&loopTarget));
          }
        }
      }
    }
  }
}

}  // namespace
