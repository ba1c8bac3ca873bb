#include "audio/gsm_codec.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "audio/gsm_frames.h"

namespace {

constexpr qz::ulong kMagic = 0x4D4F5254;  // "MORT"
constexpr qz::ulong kWordCountPlaceholder = 0xF0F0F0F0;
constexpr qz::ulong kWordCountOffset = 8;
constexpr qz::ulong kGrowth = 65536;
constexpr qz::ulong kMaxSilentRun = 16;
constexpr qz::slong kSilentRunBits = 4;
constexpr qz::ulong kMaxCodedRun = 128;
constexpr qz::slong kCodedRunBits = 7;
constexpr qz::ulong kKindCoded = 0;
constexpr qz::ulong kKindSilent = 1;
constexpr int kAudible = 8;  // a sample of this size makes a block audible
constexpr qz::ulong kBlockSamples = gsmBlockSamples;
constexpr qz::ulong kBlockBytes = kBlockSamples * sizeof(short);

// Bits of the parameters in stream order: the log area ratios, then four sub-frames alike.
constexpr int kRatioBits[8] = {6, 6, 5, 5, 4, 4, 3, 3};
constexpr int kSubFrameBits[17] = {7, 2, 2, 6, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};

constexpr int ParameterBits(int parameter) {
  constexpr int kNumRatios = static_cast<int>(std::size(kRatioBits));
  if (parameter < kNumRatios) return kRatioBits[parameter];
  return kSubFrameBits[(parameter - kNumRatios) % static_cast<int>(std::size(kSubFrameBits))];
}

void Store32(unsigned char* bytes, qz::ulong value) {
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
}

qz::ulong Load32(const unsigned char* bytes) {
  return qz::ulong{bytes[0]} << 24 | qz::ulong{bytes[1]} << 16 | qz::ulong{bytes[2]} << 8 |
         qz::ulong{bytes[3]};
}

// The low `count` bits, 0 to 32.
qz::ulong LowBits(qz::uint64 value, qz::slong count) {
  return static_cast<qz::ulong>(value & ((qz::uint64{1} << count) - 1));
}

bool Grow(bitIO* io) {
  if (io->capacity > std::numeric_limits<qz::ulong>::max() - kGrowth) return false;
  void* buffer = std::realloc(io->buffer, io->capacity + kGrowth);
  if (buffer == nullptr) return false;
  io->buffer = static_cast<unsigned char*>(buffer);
  io->capacity += kGrowth;
  return true;
}

bool IsSilent(const short* block) {
  return std::all_of(block, block + kBlockSamples,
                     [](short sample) { return sample > -kAudible && sample < kAudible; });
}

// Makes one stream. Blocks are held back until their run ends, because its length precedes them.
class Encoder {
 public:
  Encoder() { bitIO_Init(&stream_, nullptr, 0); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
  ~Encoder() { std::free(stream_.buffer); }

  void Begin(qz::ulong numSamples, qz::ulong sampleRate);
  void AddBlock(short* block);
  void End();

  // Memory has run out: nothing comes of this stream, and no more blocks need be added.
  bool HasFailed() const { return failed_; }
  const gsmCodecInfo& Info() const { return info_; }
  // The finished stream, which is then the caller's.
  void* Release() { return std::exchange(stream_.buffer, nullptr); }

 private:
  void Write(qz::ulong value, qz::slong count) {
    if (bitIO_Write(&stream_, value, count) != 0) failed_ = true;
  }
  void FlushUnusedBlocks();
  void FlushUsedBlocks();

  qz::ulong silent_ = 0;  // pending blocks of either kind; one of the two is 0
  qz::ulong coded_ = 0;
  unsigned char frames_[kMaxCodedRun][gsmFrameSize];
  gsmCodecInfo info_ = {};
  bitIO stream_;
  GsmObjectPtr coder_{gsmFrames_Create()};  // sees the coded blocks only
  GsmObjectPtr exploder_{gsmFrames_Create()};
  bool failed_ = !coder_ || !exploder_;
};

void Encoder::Begin(qz::ulong numSamples, qz::ulong sampleRate) {
  info_.sampleRate = sampleRate;
  const auto numBlocks =
      static_cast<qz::ulong>((qz::uint64{numSamples} + kBlockSamples - 1) / kBlockSamples);
  Write(kMagic, 32);
  Write(sampleRate, 16);
  Write(numBlocks, 16);
  Write(kWordCountPlaceholder, 32);
}

void Encoder::AddBlock(short* block) {
  if (IsSilent(block)) {
    if (coded_ > 0) FlushUsedBlocks();
    ++silent_;
    if (silent_ == kMaxSilentRun) FlushUnusedBlocks();
  } else {
    if (silent_ > 0) FlushUnusedBlocks();
    gsmFrames_Encode(coder_.get(), block, frames_[coded_]);
    ++coded_;
    if (coded_ == kMaxCodedRun) FlushUsedBlocks();
  }
  info_.numSamples += kBlockSamples;
  info_.uncompressedBytes += kBlockBytes;
}

void Encoder::End() {
  if (coded_ > 0) FlushUsedBlocks();
  if (silent_ > 0) FlushUnusedBlocks();
  if (bitIO_WriteFlush(&stream_) != 0) failed_ = true;
  if (failed_) return;
  info_.compressedBytes = stream_.index;
  Store32(stream_.buffer + kWordCountOffset, info_.compressedBytes / 4);
}

void Encoder::FlushUnusedBlocks() {
  Write(kKindSilent, 1);
  Write(silent_ - 1, kSilentRunBits);
  info_.numBlocks += silent_;
  info_.unusedBlocks += silent_;
  silent_ = 0;
}

void Encoder::FlushUsedBlocks() {
  Write(kKindCoded, 1);
  Write(coded_ - 1, kCodedRunBits);
  for (qz::ulong i = 0; i < coded_; ++i) {
    short parameters[gsmNumParameters];
    gsmFrames_Explode(exploder_.get(), frames_[i], parameters);
    for (int p = 0; p < gsmNumParameters; ++p)
      Write(static_cast<qz::ushort>(parameters[p]), ParameterBits(p));
  }
  info_.numBlocks += coded_;
  info_.usedBlocks += coded_;
  coded_ = 0;
}

struct Head {
  qz::ulong sampleRate;
  qz::ulong numBlocks;
};

int ReadHead(bitIO* stream, qz::ulong length, Head* head) {
  qz::ulong magic = 0;
  qz::ulong numWords = 0;
  if (bitIO_Read(stream, &magic, 32) != 0) return GSMCODEC_DATAENDED;
  if (magic != kMagic) return GSMCODEC_NOMORT;
  if (bitIO_Read(stream, &head->sampleRate, 16) != 0 ||
      bitIO_Read(stream, &head->numBlocks, 16) != 0 || bitIO_Read(stream, &numWords, 32) != 0) {
    return GSMCODEC_DATAENDED;
  }
  return numWords > length ? GSMCODEC_MANGLED : GSMCODEC_OK;  // words against bytes: a coarse test
}

bool DecodeBlock(bitIO* stream, GsmObject* decoder, short* block) {
  short parameters[gsmNumParameters];
  for (int p = 0; p < gsmNumParameters; ++p) {
    qz::ulong value = 0;
    if (bitIO_Read(stream, &value, ParameterBits(p)) != 0) return false;
    parameters[p] = static_cast<short>(value);
  }
  unsigned char frame[gsmFrameSize];
  gsmFrames_Implode(decoder, parameters, frame);
  gsmFrames_Decode(decoder, frame, block);
  return true;
}

// Fills `samples`, which is zero, with `numBlocks` blocks.
int DecodeBlocks(bitIO* stream, GsmObject* decoder, qz::ulong numBlocks, short* samples,
                 gsmCodecInfo* info) {
  for (qz::ulong done = 0; done < numBlocks;) {
    qz::ulong kind = 0;
    qz::ulong run = 0;
    if (bitIO_Read(stream, &kind, 1) != 0) return GSMCODEC_DATAENDED;
    const bool silent = kind == kKindSilent;
    if (bitIO_Read(stream, &run, silent ? kSilentRunBits : kCodedRunBits) != 0) {
      return GSMCODEC_DATAENDED;
    }
    run = std::min(run + 1, numBlocks - done);
    (silent ? info->unusedBlocks : info->usedBlocks) += run;
    for (qz::ulong i = 0; !silent && i < run; ++i) {
      if (!DecodeBlock(stream, decoder, samples + std::size_t{done + i} * kBlockSamples)) {
        return GSMCODEC_DATAENDED;
      }
    }
    done += run;
  }
  return GSMCODEC_OK;
}

}  // namespace

void bitIO_Init(bitIO* io, void* buffer, qz::ulong length) {
  *io = bitIO{};
  if (buffer == nullptr) return;
  io->buffer = static_cast<unsigned char*>(buffer);
  io->capacity = length;
}

int bitIO_Write(bitIO* io, qz::ulong value, qz::slong count) {
  qz::uint64 bits = qz::uint64{LowBits(value, count)} << io->numBits | io->word;
  qz::ulong numBits = io->numBits + static_cast<qz::ulong>(count);
  if (numBits >= 32) {
    if (io->capacity - io->index < 4 && !Grow(io)) return 1;
    Store32(io->buffer + io->index, static_cast<qz::ulong>(bits));
    io->index += 4;
    bits >>= 32;
    numBits -= 32;
  }
  io->word = static_cast<qz::ulong>(bits);
  io->numBits = numBits;
  io->totalBits += static_cast<qz::ulong>(count);
  return 0;
}

int bitIO_WriteFlush(bitIO* io) {
  return bitIO_Write(io, 0, static_cast<qz::slong>(32 - io->numBits));
}

int bitIO_Read(bitIO* io, qz::ulong* value, qz::slong count) {
  qz::uint64 bits = io->word;
  qz::ulong numBits = io->numBits;
  if (numBits < static_cast<qz::ulong>(count)) {
    if (io->capacity - io->index < 4) return 2;
    bits |= qz::uint64{Load32(io->buffer + io->index)} << numBits;
    io->index += 4;
    numBits += 32;
  }
  *value = LowBits(bits, count);
  io->word = static_cast<qz::ulong>(bits >> count);
  io->numBits = numBits - static_cast<qz::ulong>(count);
  io->totalBits += static_cast<qz::ulong>(count);
  return 0;
}

int gsmCodec_Encode(const short* samples, qz::ulong numSamples, qz::ulong sampleRate, void** out,
                    gsmCodecInfo* info) {
  return gsmCodec_EncodePadded(samples, numSamples, numSamples, sampleRate, out, info);
}

int gsmCodec_EncodePadded(const short* samples, qz::ulong numGiven, qz::ulong numSamples,
                          qz::ulong sampleRate, void** out, gsmCodecInfo* info) {
  if (info != nullptr) *info = {};
  if (out != nullptr) *out = nullptr;
  const std::unique_ptr<Encoder> encoder(new (std::nothrow) Encoder);
  if (!encoder) return GSMCODEC_NOMEMORY;

  encoder->Begin(numSamples, sampleRate);
  for (qz::uint64 done = 0; done < numSamples && !encoder->HasFailed(); done += kBlockSamples) {
    short block[kBlockSamples] = {};
    if (done < numGiven) {
      std::copy_n(samples + done, std::min<qz::uint64>(numGiven - done, kBlockSamples), block);
    }
    encoder->AddBlock(block);
  }
  encoder->End();
  if (encoder->HasFailed()) return GSMCODEC_NOMEMORY;
  if (info != nullptr) *info = encoder->Info();
  if (out != nullptr) *out = encoder->Release();
  return GSMCODEC_OK;
}

int gsmCodec_Decode(const void* data, qz::ulong length, void** samples, gsmCodecInfo* info) {
  if (info != nullptr) *info = {};
  if (samples != nullptr) *samples = nullptr;
  const GsmObjectPtr decoder(gsmFrames_Create());
  if (!decoder) return GSMCODEC_NOMEMORY;
  bitIO stream;
  bitIO_Init(&stream, const_cast<void*>(data), length);
  Head head = {};
  if (const int error = ReadHead(&stream, length, &head); error != GSMCODEC_OK) return error;

  // Zeroed because silence isn't written; an empty sound has a block too.
  void* decoded = std::calloc(std::max(head.numBlocks, qz::ulong{1}), kBlockBytes);
  if (decoded == nullptr) return GSMCODEC_NOMEMORY;
  gsmCodecInfo counted = {};
  const int result =
      DecodeBlocks(&stream, decoder.get(), head.numBlocks, static_cast<short*>(decoded), &counted);
  if (result != GSMCODEC_OK || samples == nullptr) {
    std::free(decoded);
  } else {
    *samples = decoded;
  }
  if (result != GSMCODEC_OK) return result;
  counted.numBlocks = head.numBlocks;
  counted.numSamples = head.numBlocks * kBlockSamples;
  counted.sampleRate = head.sampleRate;
  counted.compressedBytes = length;
  counted.uncompressedBytes = head.numBlocks * kBlockBytes;
  if (info != nullptr) *info = counted;
  return GSMCODEC_OK;
}

const char* gsmCodec_ErrorDescription(qz::slong code) {
  switch (code) {
    case GSMCODEC_OK:
      return "GSM_CODEC - No Error";
    case GSMCODEC_NOMEMORY:
      return "GSM_CODEC - Out of memory";
    case GSMCODEC_NOMORT:
      return "GSM_CODEC - No Mort file";
    case GSMCODEC_MANGLED:
      return "GSM_CODEC - Data mangeled";
    case GSMCODEC_DATAENDED:
      return "GSM_CODEC - Decoder ran out of data";
    default:
      return "GSM_CODEC - Unspecified error";
  }
}
