#include "host/convert.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>

#include "audio/MORT_codecs.h"
#include "audio/MORT_format.h"
#include "audio/audio.h"
#include "audio/gsm_frames.h"
#include "host/failure.h"
#include "host/paths.h"
#include "host/sound_check.h"

namespace samplehost {

namespace {

constexpr U64 kWavHead = 44;
constexpr U64 kWavSampler = 8 + 36;
constexpr U64 kWavLoop = 24;
constexpr U64 kMostGsmRate = 0xFFFF;
constexpr U64 kMostGsmBlocks = 0xFFFF;
constexpr U64 kGsmWordCount = 8;  // in the stream

// A record that frees its samples.
struct Sound : _AUDIO {
  Sound() : _AUDIO() {}
  ~Sound() { std::free(Samples); }
  Sound(const Sound&) = delete;
  Sound& operator=(const Sound&) = delete;
};

[[noreturn]] void FailWith(const Refusal& refusal) {
  throw Failure(refusal.reason + ".", refusal.advice);
}

AudioFormat FormatOf(const ConvertOptions& options) {
  const std::string extension = ExtensionOf(options.target);
  if (SameText(extension, "mort")) {
    return options.codec == "gb" ? AUDIO_FORMAT_MORT_GB : AUDIO_FORMAT_MORT_GSM;
  }
  if (!SameText(extension, "wav")) {
    throw UsageFailure("The target's name has to end in .wav or .mort.");
  }
  if (!options.codec.empty()) throw UsageFailure("--codec goes with a .mort file.");
  return AUDIO_FORMAT_WAV;
}

void Read(const std::string& path, Sound& sound) {
  SoundLayout layout;
  try {
    layout = LayoutOf(NativePath(path));
  } catch (const Damage& damage) {
    throw Failure(fmt::format("\"{}\": {}.", NativePath(path), damage.what));
  }
  if (const auto refusal = CheckSound(path, layout, nullptr)) FailWith(*refusal);
  if (audio_ReadWave(path.c_str(), &sound, false) != AUDIO_OK) throw Failure(AudioErrorMsg);
  if (layout.rate && std::floor(*layout.rate) != static_cast<double>(sound.SampleRate)) {
    throw Failure(fmt::format("The rate of {} Hz reads as {}: AIFF is taken below 65536 Hz.",
                              *layout.rate, sound.SampleRate),
                  "Convert it to WAV: sox IN -b 16 -t wavpcm OUT.wav");
  }
}

// Makes a compressed sound plain. Unlike the codec's own record it keeps the key and the length:
// what the codec adds is cut, what it lacks is silence.
void Decode(Sound& sound) {
  const std::unique_ptr<_AUDIO, void (*)(_AUDIO*)> plain(mort_Decode(&sound), mort_Release);
  if (plain == nullptr) throw Failure("The sound cannot be decoded.");
  const U64 wanted = U64{sound.NumSamples} * 2;
  auto* samples = static_cast<unsigned char*>(std::calloc(std::max<U64>(wanted, 1), 1));
  if (samples == nullptr || wanted > UINT32_MAX) {
    std::free(samples);
    throw std::bad_alloc();
  }
  std::copy_n(static_cast<const unsigned char*>(plain->Samples),
              std::min<U64>(plain->LengthInBytes, wanted), samples);
  std::free(sound.Samples);
  sound.Samples = samples;
  sound.LengthInBytes = static_cast<qz::ulong>(wanted);
  sound.UsesCompression = MORT_COMPRESSION_NONE;
}

bool IsCodecOf(const _AUDIO& sound, AudioFormat format) {
  return (sound.UsesCompression == MORT_COMPRESSION_GSM && format == AUDIO_FORMAT_MORT_GSM) ||
         (sound.UsesCompression == MORT_COMPRESSION_GB && format == AUDIO_FORMAT_MORT_GB);
}

// What MORT cannot hold, and what would help.
std::optional<Refusal> CheckForMort(const _AUDIO& sound, AudioFormat format) {
  if (sound.NumChannels != mortNumChannels) {
    return Refusal{fmt::format("MORT is mono, the sound has {} channels", sound.NumChannels),
                   "Mix it down: sox IN -c 1 OUT.wav"};
  }
  if (sound.BitsPerSample != mortBitsPerSample) {
    return Refusal{fmt::format("MORT has 16 bits per sample, the sound {}", sound.BitsPerSample),
                   "Convert it: sox IN -b 16 OUT.wav"};
  }
  if (format != AUDIO_FORMAT_MORT_GSM) return {};
  if (sound.SampleRate > kMostGsmRate) {
    return Refusal{fmt::format("The gsm codec holds rates up to {} Hz, the sound has {}",
                               kMostGsmRate, sound.SampleRate),
                   "Bring the rate down (sox IN -r 32000 OUT.wav), or take --codec gb."};
  }
  if (sound.NumSamples > kMostGsmBlocks * gsmBlockSamples) {
    return Refusal{fmt::format("The gsm codec holds {} samples, the sound has {}",
                               kMostGsmBlocks * gsmBlockSamples, sound.NumSamples),
                   "Split the sound, or take --codec gb."};
  }
  return {};
}

bool HasLoop(const _AUDIO& sound) {
  // The writer takes a loop that ends at 0 for none.
  return sound.LoopStart != AUDIO_NOLOOP && sound.LoopEnd != AUDIO_NOLOOP && sound.LoopEnd != 0;
}

// The size that the written file must have: the writers do not see every failed write.
U64 WholeSize(Sound& sound, AudioFormat format, const std::string& written) {
  if (format == AUDIO_FORMAT_WAV) {
    return kWavHead + sound.LengthInBytes + sound.LengthInBytes % 2 + kWavSampler +
           (HasLoop(sound) ? kWavLoop : 0);
  }
  if (sound.UsesCompression != MORT_COMPRESSION_NONE) return mortHeadSize + sound.LengthInBytes;
  if (format == AUDIO_FORMAT_MORT_GSM) {
    ByteSource source(NativePath(written));
    const ByteReader file(source);
    if (file.end() < mortHeadSize + kGsmHeadSize) return UINT64_MAX;
    return mortHeadSize + 4 * file.At(mortHeadSize + kGsmWordCount).Number(4, "words", true);
  }
  void* stream = nullptr;
  qz::ulong size = 0;
  const bool encoded = mort_EncodeGB(&sound, &stream, &size);
  std::free(stream);
  return encoded ? mortHeadSize + size : UINT64_MAX;
}

}  // namespace

std::vector<std::string> ConvertSound(const ConvertOptions& options) {
  const AudioFormat format = FormatOf(options);
  Sound sound;
  Read(options.source, sound);
  if (sound.UsesCompression != MORT_COMPRESSION_NONE && !IsCodecOf(sound, format)) Decode(sound);
  if (sound.LoopType == 0) sound.LoopStart = sound.LoopEnd = AUDIO_NOLOOP;

  std::vector<std::string> notes;
  if (format != AUDIO_FORMAT_WAV) {
    if (const auto refusal = CheckForMort(sound, format)) FailWith(*refusal);
    if (HasLoop(sound)) {
      notes.push_back(fmt::format("MORT has no loops: the loop {}..{} is left out.",
                                  sound.LoopStart, sound.LoopEnd));
    }
  }
  PendingFile target(options.target, options.overwrite);
  if (audio_WriteWave(target.path().c_str(), &sound, format) != AUDIO_OK) {
    throw Failure(AudioErrorMsg);
  }
  if (FileSize(target.path()) != WholeSize(sound, format, target.path())) {
    throw Failure("The file could not be written whole.", "Make room on the disk.");
  }
  target.Commit();
  return notes;
}

}  // namespace samplehost
