#include "host/mort_stream.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "audio/gsm_frames.h"

namespace samplehost {

namespace {

constexpr U64 kWordSize = 4;
constexpr U64 kWordBits = 32;
constexpr unsigned kSilentCountBits = 4;
constexpr unsigned kCodedCountBits = 7;
constexpr U64 kCodedBlockBits = 260;
constexpr U64 kMarkerNibble = 7;

// Bits of a stream of 32-bit words, each filled from its lowest bit. Only whole words count.
class BitWalk {
 public:
  BitWalk(const ByteReader& stream, U64 from)
      : stream_(stream), start_(stream.position()), bits_(stream.left() / kWordSize * kWordBits) {
    bit_ = from;
  }

  U64 bit() const { return bit_; }
  // False where fewer than `count` bits are left.
  bool Skip(U64 count) {
    if (bit_ > bits_ || count > bits_ - bit_) return false;
    bit_ += count;
    return true;
  }
  // As Skip, with the bits, 16 at most.
  bool Take(unsigned count, U64* value) {
    const U64 from = bit_;
    if (!Skip(count)) return false;
    *value = Word(from / kWordBits) >> from % kWordBits;
    if (from / kWordBits != (bit_ - 1) / kWordBits) {
      *value |= Word(from / kWordBits + 1) << (kWordBits - from % kWordBits);
    }
    *value &= (U64{1} << count) - 1;
    return true;
  }

 private:
  U64 Word(U64 index) const {
    ByteReader reader = stream_.At(start_ + index * kWordSize);
    return reader.Number(kWordSize, "a word of the stream", true);
  }

  ByteReader stream_;
  U64 start_;
  U64 bits_;
  U64 bit_;
};

// The next run; false where the stream ends in it.
bool NextGsmRun(BitWalk& walk, U64 blocksLeft, MortRun* run) {
  run->bit = walk.bit();
  U64 kind = 0;
  if (!walk.Take(1, &kind)) return false;
  run->silent = kind == 1;
  if (!walk.Take(run->silent ? kSilentCountBits : kCodedCountBits, &run->blocks)) return false;
  run->blocks = std::min(run->blocks + 1, blocksLeft);
  return run->silent || walk.Skip(run->blocks * kCodedBlockBits);
}

}  // namespace

GsmHead ReadGsmHead(ByteReader stream) {
  char magic[4];
  stream.Take(magic, sizeof magic, "the stream's head");
  if (std::memcmp(magic, "MORT", sizeof magic) != 0) {
    throw Damage{fmt::format("at 0x{:X}: the stream does not begin with \"MORT\"",
                             stream.position() - sizeof magic)};
  }
  GsmHead head;
  head.numBlocks = stream.Number(2, "the stream's block count", true);
  head.sampleRate = stream.Number(2, "the stream's rate", true);
  head.numWords = stream.Number(kWordSize, "the stream's word count", true);
  return head;
}

MortStream WalkGsm(const ByteReader& stream, const OnMortRun& onRun) {
  MortStream result;
  try {
    const GsmHead head = ReadGsmHead(stream);
    // The decoder holds the count of words against the bytes.
    if (head.numWords > stream.left()) {
      result.problem = fmt::format("the stream promises {} words and has {} bytes", head.numWords,
                                   stream.left());
      return result;
    }
    BitWalk walk(stream, kGsmHeadSize * 8);
    U64 done = 0;
    while (done < head.numBlocks) {
      MortRun run;
      if (!NextGsmRun(walk, head.numBlocks - done, &run)) {
        result.problem =
            fmt::format("the stream ends behind {} of {} blocks", done, head.numBlocks);
        return result;
      }
      if (onRun) onRun(run);
      ++result.runs;
      done += run.blocks;
    }
    result.most = done * gsmBlockSamples;
  } catch (const Damage& damage) {
    result.problem = damage.what;
  }
  return result;
}

MortStream WalkGb(const ByteReader& stream, const OnMortRun& onRun) {
  MortStream result;
  ByteReader reader = stream;
  MortRun plain;
  const auto tell = [&](const MortRun& run) {
    if (run.blocks == 0 && !run.silent) return;
    if (onRun) onRun(run);
    ++result.runs;
  };
  U64 blocks = 0;
  try {
    while (reader.left() >= kGbBlockSize) {
      const U64 bit = (reader.position() - stream.position()) * 8;
      unsigned char block[kGbBlockSize];
      reader.Take(block, sizeof block, "a block of the stream");
      if (block[0] >> 4 != kMarkerNibble) {
        if (plain.blocks == 0) plain.bit = bit;
        ++plain.blocks;
        ++blocks;
        continue;
      }
      tell(plain);
      plain = {};
      tell({bit, true, block[1]});
      blocks += U64{block[1]} + 1;  // a marker decodes to one block less than it stands for
    }
    tell(plain);
  } catch (const Damage& damage) {
    result.problem = damage.what;
  }
  // A sound with markers may have lost its last block.
  result.most = blocks == 0 ? 0 : (blocks + 1) * kGbBlockSamples;
  return result;
}

}  // namespace samplehost
