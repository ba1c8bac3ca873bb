#include "host/sound_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

#include "audio/MORT_format.h"
#include "audio/audio.h"
#include "host/paths.h"

namespace samplehost {

namespace {

constexpr unsigned kMaxChannels = 255;  // what the library can count and address

// What to do about a container that no reader takes.
std::string AdviceForUnknown(const SoundLayout& layout) {
  if (layout.magic == "FORM" && layout.form == "AIFC") {
    return "It is compressed AIFF (AIFC). Convert it to AIFF: sox IN -b 16 OUT.aiff";
  }
  if (layout.magic == "RIFX" || layout.magic == "RF64") {
    return fmt::format("It is WAV of another kind ({}). Convert it: sox IN -b 16 -t wavpcm OUT.wav",
                       layout.magic);
  }
  if (layout.container == Container::kMort && layout.version) {
    return fmt::format(
        "It is MORT of version {}; only version {} is read. Make it anew from its "
        "source: samplehost convert IN OUT.mort",
        *layout.version, mortVersion);
  }
  return "Save the sound as WAV with 8 or 16 bits of plain PCM: sox IN -b 16 -t wavpcm OUT.wav";
}

// What to do about content that the reader of its container does not take.
std::string AdviceForContent(const SoundLayout& layout, const _AUDIO& audio) {
  constexpr unsigned kExtensible = 0xFFFE;
  if (layout.container == Container::kMort) {
    return "Convert it to WAV where it comes from, then: samplehost convert IN.wav OUT.mort";
  }
  const bool aiff = layout.container == Container::kAiff;
  const char* what = aiff ? "sox IN -b 16 OUT.aiff" : "sox IN -b 16 -t wavpcm OUT.wav";
  if (layout.Find(aiff ? "COMM" : "fmt ") == nullptr || !layout.SampleBytes()) {
    return "A part of the file is missing: copy or save it again.";
  }
  if (!aiff && layout.formatTag == kExtensible) {
    return fmt::format("Its \"fmt \" chunk is of the extensible kind. Convert it to plain PCM: {}",
                       what);
  }
  if (!aiff && layout.formatTag && *layout.formatTag != 1) {
    return fmt::format("It is no plain PCM. Convert it: {}", what);
  }
  return fmt::format("{} bits per sample: convert to 16: {}", audio.BitsPerSample, what);
}

Refusal Unreadable(int code, const SoundLayout& layout, const _AUDIO& audio) {
  const std::string text = AudioErrorMsg;
  switch (code) {
    case AUDIO_NOTFOUND:
      return {text, "Check the name, and that no other program holds the file open."};
    case AUDIO_UNKNOWNTYPE:
      return {text, AdviceForUnknown(layout)};
    case AUDIO_NOMEMORY:
      return {text, "Free memory or split the sound; a damaged header can be the cause too."};
    case AUDIO_BADCONTENT:
      return {text, AdviceForContent(layout, audio)};
    default:
      return {text, "Save the sound anew as WAV with 16 bits of plain PCM."};
  }
}

constexpr const char* kCutAdvice =
    "The file was cut short, or written into a pipe: save or copy it again.";

std::optional<Refusal> CheckStream(const SoundLayout& layout, const _AUDIO& audio) {
  if (!layout.stream.problem.empty()) {
    return Refusal{fmt::format("The sound cannot be decoded: {}", layout.stream.problem),
                   kCutAdvice};
  }
  if (audio.NumSamples <= layout.stream.most) return {};
  return Refusal{fmt::format("The header promises {} samples, the stream gives at most {}",
                             audio.NumSamples, layout.stream.most),
                 kCutAdvice};
}

std::optional<Refusal> CheckPromise(const SoundLayout& layout, const _AUDIO& audio) {
  if (audio.NumChannels == 0) {
    return Refusal{"The header says that the sound has no channels", "Save the sound anew."};
  }
  if (audio.NumChannels > kMaxChannels) {
    return Refusal{
        fmt::format("The sound has {} channels; {} are the most", audio.NumChannels, kMaxChannels),
        "Split it into several files."};
  }
  if (audio.UsesCompression != MORT_COMPRESSION_NONE) return CheckStream(layout, audio);
  const std::uint64_t held = layout.SampleBytes().value_or(0);
  const std::uint64_t width = audio.BitsPerSample > 8 ? 2 : 1;
  const std::uint64_t counted = std::uint64_t{audio.NumSamples} * audio.NumChannels * width;
  const std::uint64_t promised = std::max<std::uint64_t>(counted, audio.LengthInBytes);
  if (promised <= held) return {};
  return Refusal{
      fmt::format("The header promises {} bytes of samples, the file holds {}", promised, held),
      kCutAdvice};
}

}  // namespace

std::optional<Refusal> CheckSound(const std::string& path, const SoundLayout& layout,
                                  _AUDIO* numbers) {
  _AUDIO audio{};
  const int code = audio_GetFileInfo(path.c_str(), &audio);
  // The message goes with the next call into the audio library.
  std::optional<Refusal> refusal;
  if (code != AUDIO_OK) refusal = Unreadable(code, layout, audio);
  audio_FreeWave(&audio);
  audio.Samples = nullptr;
  if (numbers != nullptr) *numbers = audio;
  return refusal ? refusal : CheckPromise(layout, audio);
}

std::optional<Refusal> CheckSoundFile(const std::string& path) {
  if (!FileSize(path)) return Refusal{"There is no such file", "Check the name."};
  const std::string extension = ExtensionOf(path);
  if (extension.empty()) {
    return Refusal{"The file name has no extension", "Give it one, for instance .wav."};
  }
  if (SameText(extension, "esmp")) {
    return Refusal{"A raw file of this name would clash with the encoded one",
                   "Rename it by what it is, for instance .wav."};
  }
  try {
    return CheckSound(path, LayoutOf(NativePath(path)), nullptr);
  } catch (const Damage& damage) {
    return Refusal{fmt::format("It cannot be read: {}", damage.what), "Check the file."};
  }
}

bool IsSoundExtension(const std::string& extension) {
  for (const char* known : {"wav", "wave", "aif", "aiff", "mort"}) {
    if (SameText(extension, known)) return true;
  }
  return false;
}

}  // namespace samplehost
