#include "host/sound_info.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "audio/MORT_format.h"
#include "host/failure.h"
#include "host/paths.h"
#include "host/report.h"
#include "host/sound_check.h"

namespace samplehost {

namespace {

using Json = nlohmann::ordered_json;

struct SoundInfo {
  SoundLayout layout;
  _AUDIO numbers{};
  std::optional<Refusal> refusal;
};

SoundInfo Look(const std::string& file) {
  const std::string path = FullPath(file);
  SoundInfo info;
  try {
    info.layout = LayoutOf(NativePath(path));
  } catch (const Damage& damage) {
    throw Failure(fmt::format("\"{}\": {}.", file, damage.what));
  }
  if (info.layout.magic == "SQLi") {
    throw UsageFailure(fmt::format("\"{}\" is a database: name one of its nodes too.", file),
                       "\"samplehost list DB\" shows them.");
  }
  info.refusal = CheckSound(path, info.layout, &info.numbers);
  return info;
}

const char* NameOf(const SoundLayout& layout) {
  switch (layout.container) {
    case Container::kWav:
      return "WAV";
    case Container::kAiff:
      return "AIFF";
    case Container::kMort:
      return "MORT";
    default:
      return "unknown";
  }
}

std::string CodecOf(const SoundLayout& layout) {
  if (!layout.codec) return {};
  if (*layout.codec == MORT_CODEC_GSM) return "gsm";
  if (*layout.codec == MORT_CODEC_GB) return "gb";
  return fmt::format("{}", *layout.codec);
}

// The chunk that gave the key, or the loop's points; empty where none did.
std::string KeyChunk(const SoundLayout& layout) {
  if (layout.container == Container::kMort) return layout.codec ? "head" : "";
  for (const char* tag : {"smpl", "INST"}) {
    if (layout.Find(tag) != nullptr) return tag;
  }
  return {};
}
std::string LoopChunk(const SoundLayout& layout) {
  return layout.container == Container::kAiff ? "MARK" : "smpl";
}

bool HasPoints(const _AUDIO& numbers) {
  return numbers.LoopStart != AUDIO_NOLOOP && numbers.LoopEnd != AUDIO_NOLOOP;
}

std::string LoopText(const SoundInfo& info) {
  const _AUDIO& numbers = info.numbers;
  const std::string points =
      HasPoints(numbers) ? fmt::format("{}..{} (both included, from \"{}\")", numbers.LoopStart,
                                       numbers.LoopEnd, LoopChunk(info.layout))
                         : "without points";
  if (numbers.LoopType == 0) {
    return HasPoints(numbers) ? "none; \"INST\" names none, markers at " + points : "none";
  }
  const bool outside = numbers.LoopStart > numbers.LoopEnd || numbers.LoopEnd >= numbers.NumSamples;
  return fmt::format(
      "{}, {}{}", points,
      numbers.LoopCount < 0 ? "without end" : fmt::format("{} times", numbers.LoopCount),
      HasPoints(numbers) && outside ? ", outside the sound" : "");
}

void PrintChunks(const SoundLayout& layout, std::ostream& out) {
  if (layout.chunks.empty()) return;
  Table table({"OFFSET", "SIZE", "CHUNK", ""});
  for (const ChunkPlace& chunk : layout.chunks) {
    table.Add({fmt::format("0x{:08X}", chunk.offset), fmt::format("{}", chunk.size), chunk.tag,
               chunk.held == chunk.size ? "" : fmt::format("{} of them in the file", chunk.held)});
  }
  table.Print(out);
  if (layout.moreChunks > 0) out << fmt::format("and {} more chunks\n", layout.moreChunks);
  if (layout.trailing > 0) out << fmt::format("{} bytes behind the last chunk\n", layout.trailing);
}

void PrintText(const std::string& file, const SoundInfo& info, std::ostream& out) {
  const _AUDIO& numbers = info.numbers;
  const auto line = [&out](const char* head, const std::string& text) {
    out << fmt::format("  {:<10}{}\n", head, Printable(text));
  };
  out << Printable(file) << '\n';
  line("container", fmt::format("{}, {} bytes", NameOf(info.layout), info.layout.fileSize));
  if (info.refusal) {
    line("refused", info.refusal->reason);
    line("help", info.refusal->advice);
  }
  if (const std::string codec = CodecOf(info.layout); !codec.empty()) {
    line("codec", fmt::format("{}, {} runs", codec, info.layout.stream.runs));
  }
  // What a refused file did not give is 0.
  if (numbers.SampleRate != 0) line("rate", fmt::format("{} Hz", numbers.SampleRate));
  if (info.layout.rate && *info.layout.rate >= 65536) {
    line("", fmt::format("in the file {} Hz: AIFF rates are read modulo 65536", *info.layout.rate));
  }
  if (numbers.BitsPerSample != 0) line("bits", fmt::format("{}", numbers.BitsPerSample));
  if (numbers.NumChannels != 0) line("channels", fmt::format("{}", numbers.NumChannels));
  if (!info.refusal) {
    const std::string key = KeyChunk(info.layout);
    line("length", fmt::format("{} samples ({:.3f} s)", numbers.NumSamples,
                               numbers.SampleRate == 0
                                   ? 0.0
                                   : static_cast<double>(numbers.NumSamples) / numbers.SampleRate));
    line("key", fmt::format("{} ({})", numbers.OriginalKey,
                            key.empty() ? "the file does not say" : "from \"" + key + "\""));
    line("loop", LoopText(info));
  }
  PrintChunks(info.layout, out);
}

Json OrNull(unsigned number) {
  return number == 0 ? Json(nullptr) : Json(number);
}

Json ToJson(const std::string& file, const SoundInfo& info) {
  const _AUDIO& numbers = info.numbers;
  const std::string codec = CodecOf(info.layout);
  const std::string key = KeyChunk(info.layout);
  Json json;
  json["file"] = file;
  json["container"] = NameOf(info.layout);
  json["bytes"] = info.layout.fileSize;
  json["taken"] = !info.refusal;
  json["problem"] = info.refusal ? Json(info.refusal->reason) : Json(nullptr);
  json["advice"] = info.refusal ? Json(info.refusal->advice) : Json(nullptr);
  json["codec"] = codec.empty() ? Json(nullptr) : Json(codec);
  json["rate_hz"] = OrNull(numbers.SampleRate);
  json["bits"] = OrNull(numbers.BitsPerSample);
  json["channels"] = OrNull(numbers.NumChannels);
  json["length"] = info.refusal ? Json(nullptr) : Json(numbers.NumSamples);
  json["key"] = info.refusal ? Json(nullptr) : Json(numbers.OriginalKey);
  json["key_from"] = key.empty() ? Json(nullptr) : Json(key);
  json["loop"] = nullptr;
  if (numbers.LoopType != 0 && HasPoints(numbers)) {
    json["loop"] = {{"start", numbers.LoopStart},
                    {"end", numbers.LoopEnd},
                    {"count", numbers.LoopCount < 0 ? Json(nullptr) : Json(numbers.LoopCount)},
                    {"from", LoopChunk(info.layout)}};
  }
  json["chunks"] = Json::array();
  for (const ChunkPlace& chunk : info.layout.chunks) {
    json["chunks"].push_back({{"name", chunk.tag},
                              {"offset", chunk.offset},
                              {"size", chunk.size},
                              {"held", chunk.held}});
  }
  json["more_chunks"] = info.layout.moreChunks;
  return json;
}

}  // namespace

bool PrintSoundInfo(const std::string& file, bool json, std::ostream& out) {
  const SoundInfo info = Look(file);
  if (json) {
    // A byte that is no UTF-8 must not stop the report.
    out << ToJson(file, info).dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  } else {
    PrintText(file, info, out);
  }
  return !info.refusal;
}

}  // namespace samplehost
