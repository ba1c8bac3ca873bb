#include "sampledata/sd_sound.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "audio/MORT_codecs.h"

bool Sound::ReadInformation(const qz::string& path) {
  return audio_GetFileInfo(path.c_str(), &record_) == AUDIO_OK;
}

bool Sound::Read(const qz::string& path) {
  if (audio_ReadWave(path.c_str(), &record_, false) != AUDIO_OK) return false;
  return record_.UsesCompression == 0 || Decode();
}

bool Sound::Decode() {
  const std::unique_ptr<_AUDIO, void (*)(_AUDIO*)> plain(mort_Decode(&record_), mort_Release);
  if (plain == nullptr) return false;
  // The compressed bytes go with the decoder's record. Views read no further than the bytes that
  // were decoded, whatever count the head keeps.
  std::swap(record_.Samples, plain->Samples);
  record_.LengthInBytes = plain->LengthInBytes;
  record_.UsesCompression = 0;
  return true;
}

ChannelView::ChannelView(const _AUDIO& record, qz::ulong channel)
    : samples_(record.Samples),
      is16Bit_(record.BitsPerSample == 16),
      channel_(channel),
      stride_(std::max<qz::ulong>(record.NumChannels, 1)),
      elements_(record.Samples == nullptr ? 0 : record.LengthInBytes / (is16Bit_ ? 2u : 1u)),
      size_(record.NumSamples) {}

qz::ulong ChannelView::Held() const {
  if (channel_ >= elements_) return 0;
  const qz::uint64 there = (elements_ - channel_ + stride_ - 1) / stride_;
  return static_cast<qz::ulong>(std::min<qz::uint64>(there, size_));
}

short* ChannelView::InPlace(qz::ulong count) const {
  const bool lies = is16Bit_ && stride_ == 1 && channel_ == 0;
  return lies && count <= elements_ ? static_cast<short*>(samples_) : nullptr;
}

ChannelView::Stretch ChannelView::Find(qz::uint64 first, qz::ulong count) const {
  const qz::uint64 there = Held();
  if (first >= there) return {0, 0};
  return {channel_ + first * stride_,
          static_cast<qz::ulong>(std::min<qz::uint64>(count, there - first))};
}

template <class Out, class From16, class From8>
void ChannelView::Take(qz::uint64 first, qz::ulong count, Out* out, From16 from16,
                       From8 from8) const {
  const auto [start, have] = Find(first, count);
  if (is16Bit_) {
    const short* from = static_cast<const short*>(samples_) + start;
    for (qz::ulong i = 0; i < have; ++i)
      out[i] = from16(from[qz::uint64{i} * stride_]);
  } else {
    const signed char* from = static_cast<const signed char*>(samples_) + start;
    for (qz::ulong i = 0; i < have; ++i)
      out[i] = from8(from[qz::uint64{i} * stride_]);
  }
  std::fill(out + have, out + count, Out{0});
}

void ChannelView::Take16(qz::uint64 first, qz::ulong count, short* out) const {
  Take(
      first, count, out, [](short value) { return value; },
      [](signed char value) { return static_cast<short>(value * 256); });
}

void ChannelView::Take8(qz::uint64 first, qz::ulong count, signed char* out) const {
  Take(
      first, count, out, [](short value) { return static_cast<signed char>(value >> 8); },
      [](signed char value) { return value; });
}

void ChannelView::TakeRepeated(qz::uint64 first, qz::ulong count, short* out) const {
  Take(
      first, count, out, [](short value) { return value; },
      [](signed char value) { return RepeatByte(static_cast<qz::uchar>(value)); });
}
