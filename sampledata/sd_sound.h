// A sound file's record with its end, and the samples of one channel of it.
#ifndef SAMPLEDATA_SD_SOUND_H_
#define SAMPLEDATA_SD_SOUND_H_

#include "audio/audio.h"
#include "common/qzclasses.h"

// One sound in memory. Not copyable; frees its samples.
class Sound {
 public:
  Sound() = default;
  Sound(const Sound&) = delete;
  Sound& operator=(const Sound&) = delete;
  ~Sound() { audio_FreeWave(&record_); }

  // Each is called once on an object. False where the audio library cannot read the file.
  //
  // The numbers alone; the samples are not there.
  bool ReadInformation(const qz::string& path);
  // The whole sound as plain samples: a compressed one is decoded. The sample count of the file's
  // head holds: a longer decode is cut, a shorter one ends in silence.
  bool Read(const qz::string& path);

  const _AUDIO& Record() const { return record_; }

 private:
  bool Decode();

  _AUDIO record_{};
};

// The samples of one channel of a plain record, which must outlive the view. Nothing is read
// beyond the record's bytes: samples that it promises behind them are zero.
class ChannelView {
 public:
  // A channel that the record does not have reads as whatever its bytes give, never beyond them.
  ChannelView(const _AUDIO& record, qz::ulong channel);

  // Samples per channel as the record promises them.
  qz::ulong Size() const { return size_; }
  // Those of them that the record's bytes hold; the rest is zero.
  qz::ulong Held() const;

  // All samples as one block of 16-bit values in the record itself, at least `count` long; null
  // where they do not lie so.
  short* InPlace(qz::ulong count) const;

  // `count` samples from sample `first` on, zeros behind the end: 16-bit values as they are, bytes
  // shifted left by 8.
  void Take16(qz::uint64 first, qz::ulong count, short* out) const;
  // Bytes as they are; of 16-bit values the high byte.
  void Take8(qz::uint64 first, qz::ulong count, signed char* out) const;
  // As Take16, but a byte is repeated in the low byte, taken unsigned: 0x80 gives 0x8080.
  void TakeRepeated(qz::uint64 first, qz::ulong count, short* out) const;

 private:
  struct Stretch {
    qz::uint64 start;  // an element of the record
    qz::ulong have;    // samples
  };
  // Of `count` samples from sample `first` on those that the record's bytes hold.
  Stretch Find(qz::uint64 first, qz::ulong count) const;
  template <class Out, class From16, class From8>
  void Take(qz::uint64 first, qz::ulong count, Out* out, From16 from16, From8 from8) const;

  void* samples_;
  bool is16Bit_;
  qz::ulong channel_;
  qz::ulong stride_;     // elements between two samples of the channel
  qz::uint64 elements_;  // in the record's bytes, all channels
  qz::ulong size_;
};

// A byte in both halves of a 16-bit value, as raw and decoded data show 8-bit samples.
inline short RepeatByte(qz::uchar value) {
  return static_cast<short>(value * 256 | value);
}

#endif  // SAMPLEDATA_SD_SOUND_H_
