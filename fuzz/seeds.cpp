// Writes valid inputs of each target into FOLDER/TARGET/, as a start for the search.
#include <filesystem>

#include "fuzz/node_host.h"
#include "platform/native.h"
#include "tests/audio_helpers.h"

namespace {

using audiotest::Be;
using audiotest::BeChunk;
using audiotest::Bytes;
using audiotest::Chunk;
using audiotest::Le;
using audiotest::Text;
using audiotest::operator+;

std::string folder;

// `tail` holds the choices, first the one that is taken last. A tail of zeros makes no failures.
void Seed(const std::string& target, const std::string& name, const std::string& bytes,
          const std::string& tail) {
  std::filesystem::create_directories(folder + "/" + target);
  sdtest::WriteBytes(folder + "/" + target + "/" + name, bytes + tail);
}

const std::string kNone(1, '\0');
const std::string kNoneFirst(2, '\0');

std::string String(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

void SeedSound(const std::string& target, const std::string& name, const std::string& bytes) {
  Seed(target, name, bytes, kNone);
  Seed("chain", name, bytes, kNoneFirst);
}

sdtest::Wav SomeWav(std::uint16_t channels, std::uint16_t bits, bool loop) {
  sdtest::Wav wav = sdtest::SomeSound(30, channels, bits);
  wav.loop = loop;
  wav.loopStart = 3;
  wav.loopEnd = 27;
  return wav;
}

std::string Aiff(qz::ushort channels, qz::ushort bits) {
  Bytes rate(10);
  audioConvertToIeeeExtended(32000, rate.data());
  const Bytes samples = audiotest::Noise(30u * channels * bits / 8u);
  const Bytes body = BeChunk("COMM", Be(channels, 2) + Be(30, 4) + Be(bits, 2) + rate) +
                     BeChunk("INST", Bytes{64} + Bytes(11, 3) + Be(2, 2) + Bytes(4, 3) + Be(0, 2)) +
                     BeChunk("MARK", Be(2, 2) + Be(1, 2) + Be(3, 4) + Bytes(2, 0) + Be(2, 2) +
                                         Be(28, 4) + Bytes(2, 0)) +
                     BeChunk("SSND", Bytes(8, 0) + samples);
  return String(Text("FORM") + Be(body.size() + 4, 4) + Text("AIFF") + body);
}

// A MORT file of a sound that has a row of silence; its stream lies behind the head of 44 bytes.
void SeedMort(const std::string& name, int format, const std::string& streams) {
  const Bytes sound = audiotest::Noise(400) + Bytes(700, 0) + audiotest::Noise(100);
  audiotest::Sound record(sound, 16, 1, 8000);
  audiotest::TempFolder files;
  audio_WriteWave(files.Path(name).c_str(), &record, format);
  const std::string file = String(files.Read(name));
  SeedSound("mort", name, file);
  Seed(streams, "stream", file.substr(44), kNone);
  Seed(streams, "samples", String(sound), kNone);
}

void SeedNodes() {
  fuzz::NodeHost database(fuzz::Drive::Instance());
  SDAccess& node = database.Sample();
  SDTestAccess::Folder(node) = "samples\\a";
  for (qz::uchar format = 1; format <= 5; ++format) {
    const qz::string qualClass = "High";
    if (format == 1) {
      node.ImportSample("S:\\db\\samples\\a\\Low.wav", format, qualClass);
    } else {
      node.ChangeSampleFormat(qualClass, format);
    }
    const SDSample& sample = SDTestAccess::Samples(node).front();
    std::string native;
    platform::ToNative(SDTestAccess::EncodedName(node, sample.fileName).c_str(), native);
    const std::string tail{1, static_cast<char>(sample.compType), 20, 0};
    Seed("esmp", std::to_string(format), sdtest::ReadBytes(native), tail);
  }
  // Names that the target's own files answer to.
  for (const char* name : {"samples\\a\\Low.wav", "samples\\a\\High.wav"}) {
    SDTestAccess::Samples(node).front().fileName = name;
    fuzz::Drive::Instance().Put("db/samples/a/High.esmp", "");
    const qz::string stored = "S:\\stored";
    node.Save(nullptr, &stored);
    const std::string bytes = fuzz::Drive::Instance().Get("stored");
    Seed("node", std::string("file-") + name[10], bytes, std::string("\1\0", 2));
    Seed("node", std::string("database-") + name[10], bytes.substr(44), kNoneFirst);
  }
  const qz::string stored = "S:\\stored";
  database.Setup().Save(nullptr, &stored);
  const std::string bytes = fuzz::Drive::Instance().Get("stored");
  Seed("setup", "file", bytes, std::string("\1\0", 2));
  Seed("setup", "database", bytes.substr(44), kNoneFirst);
}

}  // namespace

int main(int count, char** arguments) {
  fuzz::Check(count == 2, "one folder is named");
  folder = std::filesystem::absolute(arguments[1]).string();
  for (const std::uint16_t bits : std::initializer_list<std::uint16_t>{8, 16}) {
    for (const std::uint16_t channels : std::initializer_list<std::uint16_t>{1, 2}) {
      const std::string name = std::to_string(bits) + "x" + std::to_string(channels);
      SeedSound("wav", "wav-" + name, sdtest::WavBytes(SomeWav(channels, bits, channels == 1)));
      SeedSound("aiff", "aiff-" + name, Aiff(channels, bits));
    }
  }
  SeedMort("gsm", AUDIO_FORMAT_MORT_GSM, "gsm_stream");
  SeedMort("gb", AUDIO_FORMAT_MORT_GB, "gb_stream");

  using namespace std::string_literals;
  Seed("paths", "absolute", "C:\\db\\.\\samples\\\\a\\..\\b.wav\0D:/db/game.db\0\3"s, kNone);
  Seed("paths", "relative", "..\\a\\kick.wav \0\\\\server\\share\\a.\0\0"s, kNone);
  Seed("paths", "native", "/tmp/a/../\303\244\377.wav\0c:\0\0"s, kNone);
  Seed("text", "texts", "\0one\ntwo\0\1three %s\0\2\303\244\377\0"s, kNoneFirst);
  Seed("text", "labels", "\11ch0\0\11ch1\0\10ch0\0\6text\0\10ch1\0\7%d\n\0\14abcdefgh\0"s,
       kNoneFirst);
  Seed("text", "moves", "\16x\0\15copied\0\12ab\0\13abc\0\17\0"s, "\1\0"s);
  SeedNodes();
  return 0;
}
