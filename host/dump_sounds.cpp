// dump of the sound files: WAV, AIFF, and MORT with the runs and blocks of its streams.
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>
#include <vector>

#include "audio/MORT_format.h"
#include "audio/audio.h"
#include "audio/gsm_codec.h"
#include "audio/gsm_frames.h"
#include "host/dump_intern.h"
#include "host/mort_stream.h"

namespace samplehost {

namespace {

constexpr U64 kShownRuns = 16;
constexpr U64 kShownBlocks = 8;
constexpr U64 kSoundHead = 8;  // of "SSND"

// A chunk's dump; false for a chunk that has none of its own.
using DumpChunk = std::function<bool(const std::string& tag, ByteReader content)>;

// Chunks from offset 12 to the end of the file, which have to hold the `wanted` ones.
void DumpChunks(Dumper& dump, ByteReader reader, std::vector<std::string> wanted,
                const DumpChunk& dumpChunk) {
  while (reader.left() != 0) {
    const U64 start = reader.position();
    reader.Need(8, "a chunk's head");
    const std::string tag = dump.Tag(reader, "chunk");
    const U64 size = dump.Unsigned(reader, 4, "size");
    // Damage inside a chunk ends there; the next chunk has its own place.
    try {
      reader.Need(size, "the chunk's data");
    } catch (const Damage& damage) {
      dump.Wrong(damage.what);
    }
    const ByteReader content = reader.Part(size);
    try {
      if (!dumpChunk(tag, content)) {
        dump.Line(content.position(), content.left(), tag == "data" ? "samples" : "content", "");
      }
    } catch (const Damage& damage) {
      dump.Wrong(damage.what);
    }
    wanted.erase(std::remove(wanted.begin(), wanted.end(), tag), wanted.end());
    reader = reader.At(start + 8 + size + size % 2);
  }
  for (const std::string& tag : wanted)
    dump.Wrong(fmt::format("there is no {} chunk", Quoted(tag)));
}

void DumpFormHead(Dumper& dump, ByteReader& reader, bool bigEndian) {
  dump.Tag(reader, "tag");
  const U64 size = reader.Number(4, "size", bigEndian);
  const U64 there = reader.end() - 8;
  dump.Line(
      4, 4, "size",
      fmt::format("{}{}", size, size == there ? "" : fmt::format("  of {} in the file", there)));
  dump.Tag(reader, "form");
}

void CheckBits(Dumper& dump, U64 offset, U64 bits) {
  if (bits == 8 || bits == 16) return;
  dump.Wrong(
      fmt::format("at 0x{:X}: {} bits per sample; imports take only 8 and 16", offset, bits));
}

// --- WAV ---

void DumpFormatChunk(Dumper& dump, ByteReader reader) {
  const U64 start = reader.position();
  const U64 tag = dump.Unsigned(reader, 2, "format tag");
  if (tag != 1) {
    dump.Wrong(fmt::format("at 0x{:X}: format tag {}; imports take only 1, PCM", start, tag));
  }
  dump.Unsigned(reader, 2, "channels");
  dump.Unsigned(reader, 4, "rate", "Hz");
  dump.Unsigned(reader, 4, "bytes per second");
  dump.Unsigned(reader, 2, "block align");
  CheckBits(dump, start + 14, dump.Unsigned(reader, 2, "bits per sample"));
  if (reader.left() != 0) {
    dump.Line(reader.position(), reader.left(), "extension", "not read");
  }
}

void DumpSamplerChunk(Dumper& dump, ByteReader reader) {
  for (const char* name : {"manufacturer", "product", "sample period", "MIDI unity note",
                           "pitch fraction", "SMPTE format", "SMPTE offset"}) {
    dump.Unsigned(reader, 4, name);
  }
  const U64 loops = dump.Unsigned(reader, 4, "loops");
  dump.Unsigned(reader, 4, "sampler data");
  reader.Need(loops * 24, "the list of loops");
  for (U64 n = 0; n < loops; ++n) {
    for (const char* name : {"cue point", "type", "start", "end", "fraction", "play count"}) {
      dump.Unsigned(reader, 4, fmt::format("loop {} {}", n, name));
    }
  }
}

// --- AIFF ---

void DumpCommonChunk(Dumper& dump, ByteReader reader) {
  dump.Unsigned(reader, 2, "channels");
  dump.Unsigned(reader, 4, "sample frames");
  const U64 bitsAt = reader.position();
  CheckBits(dump, bitsAt, dump.Unsigned(reader, 2, "bits per sample"));
  unsigned char rate[10];
  const U64 offset = reader.position();
  reader.Take(rate, sizeof rate, "rate");
  const double hertz = audioConvertFromIeeeExtended(rate);
  dump.Line(
      offset, sizeof rate, "rate",
      fmt::format("{} Hz{}", hertz, hertz >= 0 && hertz < 65536 ? "" : ", read modulo 65536"));
}

void DumpInstrumentChunk(Dumper& dump, ByteReader reader) {
  dump.Unsigned(reader, 1, "base note");
  for (const char* name : {"detune", "low note", "high note", "low velocity", "high velocity"})
    dump.Unsigned(reader, 1, name);
  dump.Signed16(reader, "gain");
  for (const std::string loop : {"sustain", "release"}) {
    for (const char* name : {" play mode", " begin marker", " end marker"})
      dump.Unsigned(reader, 2, loop + name);
  }
}

void DumpMarkerChunk(Dumper& dump, ByteReader reader) {
  const U64 count = dump.Unsigned(reader, 2, "markers");
  for (U64 n = 0; n < count; ++n) {
    dump.Unsigned(reader, 2, fmt::format("marker {} id", n));
    dump.Unsigned(reader, 4, fmt::format("marker {} at", n));
    const U64 offset = reader.position();
    char name[255];
    const auto length = static_cast<std::size_t>(reader.Number(1, "a marker's name"));
    reader.Take(name, length, "a marker's name");
    dump.Line(offset, length + 1, fmt::format("marker {} name", n),
              Quoted(std::string_view(name, length)));
    if (reader.position() % 2 != 0 && reader.left() > 0) reader.Skip(1, "padding");
  }
}

void DumpSoundChunk(Dumper& dump, ByteReader reader) {
  const U64 start = reader.position();
  if (reader.left() < kSoundHead) {
    throw Damage{
        fmt::format("at 0x{:X}: {} bytes are too few for a \"SSND\"", start, reader.left())};
  }
  dump.Unsigned(reader, 4, "offset", "not honoured");
  dump.Unsigned(reader, 4, "block size");
  dump.Line(reader.position(), reader.left(), "samples", "");
}

// --- MORT ---

// The 76 parameters of a coded block, in stream order.
void DumpGsmBlock(Dumper& dump, ByteReader stream, U64 bit, const std::string& name) {
  constexpr int kRatioBits[8] = {6, 6, 5, 5, 4, 4, 3, 3};
  constexpr int kGainBits[4] = {7, 2, 2, 6};  // of a sub-frame, in front of 13 pulses of 3 bits
  const U64 word = stream.position() + bit / 32 * 4;
  unsigned char bytes[40] = {};
  const auto size = static_cast<std::size_t>(std::min<U64>(sizeof bytes, stream.end() - word));
  ByteReader(stream.At(word)).Take(bytes, size, name);
  bitIO io;
  bitIO_Init(&io, bytes, sizeof bytes);
  qz::ulong value = 0;
  if (bit % 32 != 0) bitIO_Read(&io, &value, static_cast<qz::slong>(bit % 32));
  std::string text = "LARc";
  for (const int bits : kRatioBits) {
    bitIO_Read(&io, &value, bits);
    text += fmt::format(" {}", value);
  }
  for (int sub = 0; sub < 4; ++sub) {
    text += "; Nc bc Mc xmaxc";
    for (const int bits : kGainBits) {
      bitIO_Read(&io, &value, bits);
      text += fmt::format(" {}", value);
    }
    text += " xMc ";
    for (int pulse = 0; pulse < 13; ++pulse) {
      bitIO_Read(&io, &value, 3);
      text += fmt::format("{}", value);
    }
  }
  dump.Line(word, 33, name, fmt::format("from bit {}: {}", bit % 32, text));
}

void DumpGsm(Dumper& dump, ByteReader reader) {
  constexpr U64 kRunHeadBits = 8;
  constexpr U64 kBlockBits = 260;
  const ByteReader stream = reader;
  dump.Title("GSM block stream");
  dump.set_bigEndian(true);
  dump.ExpectTag(reader, "MORT");
  dump.Unsigned(reader, 2, "blocks", fmt::format("of {} samples", gsmBlockSamples));
  dump.Unsigned(reader, 2, "rate", "Hz");
  dump.Unsigned(reader, 4, "words", "of 4 bytes");
  U64 runs = 0;
  U64 blocks = 0;
  const MortStream walked = WalkGsm(stream, [&](const MortRun& run) {
    if (runs++ >= kShownRuns) return;
    dump.Line(stream.position() + run.bit / 32 * 4, 4, fmt::format("run {}", runs - 1),
              fmt::format("from bit {}: {}, {} blocks", run.bit % 32,
                          run.silent ? "silence" : "coded", run.blocks));
    for (U64 n = 0; !run.silent && n < run.blocks && blocks < kShownBlocks; ++n) {
      DumpGsmBlock(dump, stream, run.bit + kRunHeadBits + n * kBlockBits,
                   fmt::format("coded block {}", blocks++));
    }
  });
  if (walked.runs > kShownRuns) {
    dump.Title(fmt::format("... {} more runs", walked.runs - kShownRuns));
  }
  if (!walked.problem.empty()) dump.Wrong(walked.problem);
}

void DumpGb(Dumper& dump, const ByteReader& stream) {
  dump.Title("GB stream");
  U64 runs = 0;
  U64 blocks = 0;
  const MortStream walked = WalkGb(stream, [&](const MortRun& run) {
    if (runs++ >= kShownRuns) return;
    const U64 offset = stream.position() + run.bit / 8;
    if (run.silent) {
      dump.Line(offset, kGbBlockSize, fmt::format("run {}", runs - 1),
                fmt::format("marker, decodes to {} silent blocks", run.blocks));
      return;
    }
    dump.Line(offset, run.blocks * kGbBlockSize, fmt::format("run {}", runs - 1),
              fmt::format("plain, {} blocks", run.blocks));
    for (U64 n = 0; n < run.blocks && blocks < kShownBlocks; ++n) {
      unsigned char block[kGbBlockSize];
      ByteReader reader = stream.At(offset + n * kGbBlockSize);
      reader.Take(block, sizeof block, "block");
      dump.Line(offset + n * kGbBlockSize, sizeof block, fmt::format("plain block {}", blocks++),
                HexOf(block, sizeof block));
    }
  });
  if (walked.runs > kShownRuns) {
    dump.Title(fmt::format("... {} more runs", walked.runs - kShownRuns));
  }
  if (!walked.problem.empty()) dump.Wrong(walked.problem);
  if (const U64 tail = stream.left() % kGbBlockSize; tail != 0) {
    dump.Line(stream.end() - tail, tail, "tail", "no whole block, not read");
  }
}

// A number of the head that has only one legal value.
void DumpOnly(Dumper& dump, ByteReader& reader, std::string_view name, U64 only) {
  const U64 offset = reader.position();
  const U64 value = dump.Unsigned(reader, 2, name);
  if (value == only) return;
  dump.Wrong(fmt::format("at 0x{:X}: {} {}; only {} is read", offset, name, value, only));
}

}  // namespace

void DumpWav(Dumper& dump, ByteReader reader) {
  dump.Title("WAV sound");
  DumpFormHead(dump, reader, false);
  DumpChunks(dump, reader, {"fmt ", "data"}, [&dump](const std::string& tag, ByteReader content) {
    if (tag == "fmt ") DumpFormatChunk(dump, content);
    if (tag == "smpl") DumpSamplerChunk(dump, content);
    return tag == "fmt " || tag == "smpl";
  });
}

void DumpAiff(Dumper& dump, ByteReader reader) {
  using Part = void (*)(Dumper&, ByteReader);
  constexpr std::pair<const char*, Part> kParts[] = {{"COMM", DumpCommonChunk},
                                                     {"INST", DumpInstrumentChunk},
                                                     {"MARK", DumpMarkerChunk},
                                                     {"SSND", DumpSoundChunk}};
  dump.Title("AIFF sound");
  dump.set_bigEndian(true);
  DumpFormHead(dump, reader, true);
  DumpChunks(dump, reader, {"COMM", "SSND"}, [&](const std::string& tag, ByteReader content) {
    const auto part = std::find_if(std::begin(kParts), std::end(kParts),
                                   [&tag](const auto& entry) { return tag == entry.first; });
    if (part == std::end(kParts)) return false;
    part->second(dump, content);
    return true;
  });
}

void DumpMort(Dumper& dump, ByteReader reader) {
  dump.Title("MORT sound");
  dump.Tag(reader, "magic");
  dump.Unsigned(reader, 2, "zero");
  DumpOnly(dump, reader, "version", mortVersion);
  const U64 codecAt = reader.position();
  const U64 codec = dump.Unsigned(reader, 2, "codec", "0 GSM blocks, 1 GB");
  DumpOnly(dump, reader, "bits per sample", mortBitsPerSample);
  dump.Signed16(reader, "original key");
  DumpOnly(dump, reader, "channels", mortNumChannels);
  dump.Unsigned(reader, 4, "rate", "Hz");
  dump.Unsigned(reader, 4, "length", "not read");
  dump.Unsigned(reader, 4, "sample frames");
  dump.Ignored(reader, 16, "reserved");
  if (codec == MORT_CODEC_GSM) {
    DumpGsm(dump, reader);
  } else if (codec == MORT_CODEC_GB) {
    DumpGb(dump, reader);
  } else {
    dump.Wrong(fmt::format("at 0x{:X}: no codec has this number; read as plain samples", codecAt));
  }
}

}  // namespace samplehost
