#include "host/sound_check.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "audio/audio.h"
#include "host/paths.h"
#include "platform/platform.h"

namespace samplehost {

namespace {

constexpr unsigned kMaxChannels = 255;  // what the library can count and address
constexpr std::int64_t kFirstChunk = 12;

// How a container lays out its chunks, and where its samples lie.
struct Container {
  const char* head;  // the first 4 bytes of the file
  const char* dataChunk;
  bool bigEndian;
  std::int64_t samplesAt;  // bytes from the start of the chunk's data to the first sample
};

constexpr Container kContainers[] = {{"FORM", "SSND", true, 8}, {"RIFF", "data", false, 0}};

struct FileEnd {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileEnd>;

std::uint32_t Number(const unsigned char* bytes, bool bigEndian) {
  std::uint32_t value = 0;
  for (int i = 0; i < 4; ++i)
    value = value << 8 | bytes[bigEndian ? i : 3 - i];
  return value;
}

// Bytes from the first sample to the end of the file; -1 where there is no chunk of samples. The
// position is 64 bits wide and only grows, so the walk ends.
std::int64_t BytesBehindHead(std::FILE* file, std::int64_t size, const Container& container) {
  std::int64_t position = kFirstChunk;
  unsigned char head[8];
  while (position + 8 <= size) {
    if (platform::fseek64(file, position, SEEK_SET) != 0) return -1;
    if (std::fread(head, 1, sizeof head, file) != sizeof head) return -1;
    position += 8;
    if (std::memcmp(head, container.dataChunk, 4) == 0) {
      return size - position - container.samplesAt;
    }
    const std::int64_t length = Number(head + 4, container.bigEndian);
    position += length + (length & 1);
  }
  return -1;
}

// Bytes of samples that the file really has; -1 where that cannot be told.
std::int64_t BytesOfSamples(const std::string& path) {
  const File file(platform::fopen(path.c_str(), "rb"));
  const std::optional<std::uint64_t> size = FileSize(path);
  char head[4];
  if (file == nullptr || !size || std::fread(head, 1, sizeof head, file.get()) != sizeof head) {
    return -1;
  }
  for (const Container& container : kContainers) {
    if (std::memcmp(head, container.head, sizeof head) == 0) {
      return BytesBehindHead(file.get(), static_cast<std::int64_t>(*size), container);
    }
  }
  return -1;
}

Refusal Unreadable(int code) {
  const std::string text = AudioErrorMsg;
  switch (code) {
    case AUDIO_NOTFOUND:
      return {text, "Check the name, and that no other program holds the file open."};
    case AUDIO_UNKNOWNTYPE:
      return {text, "Save the sound as WAV with 8 or 16 bits of plain PCM."};
    case AUDIO_NOMEMORY:
      return {text, "Free memory or split the sound; a damaged header can be the cause too."};
    case AUDIO_BADCONTENT:
      return {text, "Save it as plain PCM of 8 or 16 bits, for instance: sox IN -b 16 OUT.wav"};
    default:
      return {text, "Save the sound anew as WAV with 16 bits of plain PCM."};
  }
}

std::optional<Refusal> CheckPromise(const std::string& path, const _AUDIO& audio) {
  if (audio.NumChannels == 0) {
    return Refusal{"The header says that the sound has no channels", "Save the sound anew."};
  }
  if (audio.NumChannels > kMaxChannels) {
    return Refusal{
        fmt::format("The sound has {} channels; {} are the most", audio.NumChannels, kMaxChannels),
        "Split it into several files."};
  }
  const std::int64_t held = BytesOfSamples(path);
  if (held < 0) return {};  // a container without a promise of its own
  const std::uint64_t width = audio.BitsPerSample > 8 ? 2 : 1;
  const std::uint64_t counted = std::uint64_t{audio.NumSamples} * audio.NumChannels * width;
  const std::uint64_t promised = std::max<std::uint64_t>(counted, audio.LengthInBytes);
  if (promised <= static_cast<std::uint64_t>(held)) return {};
  return Refusal{
      fmt::format("The header promises {} bytes of samples, the file holds {}", promised, held),
      "The file was cut short, or written into a pipe: save or copy it again."};
}

}  // namespace

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
  _AUDIO audio{};
  const int code = audio_GetFileInfo(path.c_str(), &audio);
  // The message goes with the next call into the audio library.
  std::optional<Refusal> refusal;
  if (code != AUDIO_OK) refusal = Unreadable(code);
  audio_FreeWave(&audio);
  return refusal ? refusal : CheckPromise(path, audio);
}

bool IsSoundExtension(const std::string& extension) {
  for (const char* known : {"wav", "wave", "aif", "aiff", "mort"}) {
    if (SameText(extension, known)) return true;
  }
  return false;
}

}  // namespace samplehost
