// Arrays on streams that give or take less than they are asked for: the outcome is that of the
// loop over the elements, wherever the shortage falls.
#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

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
  bool GetPosition(uint64&) override { return false; }
  bool GetPosition(ulong&) override { return false; }
  using DIOTypedStream::SetPosition;
  bool SetPosition(uint64, DIOSeekMode) override { return false; }
  bool SetPosition(ulong, DIOSeekMode) override { return false; }

  std::string bytes;
  std::size_t at = 0;

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
};

// Pieces of `size` bytes, each from its last byte to its first; a piece that is cut stays as it is.
std::string Reversed(std::string bytes, std::size_t size) {
  for (std::size_t at = 0; at + size <= bytes.size(); at += size)
    std::reverse(bytes.data() + at, bytes.data() + at + size);
  return bytes;
}

TEST(BlockTest, ShortTransfersEndWhereTheLoopWouldEnd) {
  constexpr std::size_t kBlock = 65536;
  std::vector<std::pair<std::size_t, std::size_t>> cases;  // bytes of the array, limit
  for (std::size_t limit = 0; limit <= 64; ++limit)
    cases.emplace_back(64, limit);
  for (std::size_t limit = kBlock - 9; limit <= kBlock + 9; ++limit)
    cases.emplace_back(kBlock + 64, limit);
  cases.emplace_back(kBlock + 64, kBlock + 64);

  for (unsigned variant = 0; variant < 24; ++variant) {
    const qz::ulong element = 2u << variant / 8;
    const auto order = (variant & 1) != 0 ? DIOFile::ENDIAN_BIG : DIOFile::ENDIAN_LITTLE;
    const bool fails = (variant & 4) != 0;
    for (const auto& [size, limit] : cases) {
      SCOPED_TRACE(testing::Message() << "variant " << variant << ", " << limit << " of " << size);
      const std::size_t stride =
          (variant & 2) != 0 ? std::max<std::size_t>(size / 128 * 8, 8) : size;
      const auto count = static_cast<qz::ulong>(size / element);
      // Arrays lie at odd addresses.
      const std::string pattern = stream_suite::Pattern(1 + size);
      const std::string blank(1 + size, '\x55');
      const std::size_t piece = order == DIOFile::ENDIAN_BIG ? element : 1;
      ShortStream source(pattern, limit, stride, fails);
      source.SetEndian(order);
      std::string array = blank;
      EXPECT_EQ(source.Read(array.data() + 1, element, count), limit == size);
      EXPECT_TRUE(array == blank.substr(0, 1) + Reversed(pattern.substr(0, limit), piece) +
                               blank.substr(1 + limit));
      EXPECT_EQ(source.at, limit);

      ShortStream target(blank, limit, stride, fails);
      target.SetEndian(order);
      EXPECT_EQ(target.Write(pattern.data() + 1, element, count), limit == size);
      EXPECT_TRUE(target.bytes ==
                  Reversed(pattern.substr(1), piece).substr(0, limit) + blank.substr(limit));
      EXPECT_EQ(target.at, limit);
    }
  }
}

TEST(BlockTest, ANumberThatIsCutIsAFailure) {
  double number = 1;
  EXPECT_FALSE(ShortStream("12345678", 7, 8, false).Write(number));
  EXPECT_FALSE(ShortStream("12345678", 7, 8, false).Read(number));
}

}  // namespace
