#include "fuzz/node_host.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "adpcm/adpcm.h"
#include "host/stream.h"
#include "platform/native.h"

namespace fs = std::filesystem;

namespace sdtest {
SparedAllocations::SparedAllocations() {
  fuzz::Spare(1);
}
SparedAllocations::~SparedAllocations() {
  fuzz::Spare(-1);
}
}  // namespace sdtest

namespace fuzz {

namespace {

constexpr const char* kSamples = "db/samples";
constexpr const char* kFolder = "db/samples/a";

// A load from a database begins behind the first chunk of what was saved there, which says what
// kind of node it is.
constexpr std::size_t kLoadStart = 28;

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};

}  // namespace

Drive& Drive::Get() {
  static Drive drive;
  return drive;
}

Drive::Drive() : folder_(fs::exists("/dev/shm") ? "/dev/shm/fuzz.XXXXXX" : "/tmp/fuzz.XXXXXX") {
  Check(mkdtemp(folder_.data()) != nullptr, "a folder can be made");
  GTEST_FLAG_SET(break_on_failure, true);  // what the host expects is a Check here
  platform::MountDrive('S', folder_);
  fs::create_directories(Native(kFolder));
  files_["High.wav"] = sdtest::WavBytes(sdtest::SomeSound(20, 2));
  files_["Low.wav"] = files_["High.wav"];
  for (const auto& [name, bytes] : files_)
    Put(std::string(kFolder) + "/" + name, bytes);

  NodeHost database(*this);
  Check(database.Sample().ImportSample("S:\\db\\samples\\a\\Low.wav", 2, "Low") == 0,
        "a sound can be imported");
  const qz::string encoded = SDTestAccess::EncodedName(
      database.Sample(), SDTestAccess::Samples(database.Sample()).front().fileName);
  std::string native;
  platform::ToNative(encoded.c_str(), native);
  files_["Low.esmp"] = sdtest::ReadBytes(native);
  Put(std::string(kFolder) + "/Low.esmp", files_["Low.esmp"]);
}

Drive::~Drive() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void Drive::Put(const std::string& name, std::string_view bytes) const {
  std::FILE* const file = std::fopen(Native(name).c_str(), "wb");
  Check(file != nullptr, "a file can be made");
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fclose(file);
}

bool Drive::Restore() const {
  bool restored = true;
  for (const fs::directory_entry& entry : fs::directory_iterator(Native(kSamples))) {
    if (entry.path().filename() == "a") continue;
    fs::remove_all(entry.path());
    restored = false;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(Native(kFolder))) {
    if (files_.count(entry.path().filename().string()) == 0) fs::remove_all(entry.path());
  }
  return restored;
}

NodeHost::NodeHost(const Drive&) {
  setup_ = &host_.AddSetup();
  Setup().SetSampleFolder("S:\\db\\samples\\");
  Setup().AddQualityClass("Low", 1);
  Setup().AddQualityClass("High", 2);
  sample_ = &host_.AddSample();
}

NodeHost::~NodeHost() {
  host_.shutDown = true;
  host_.Close();
  Check(host_.Base()->RequestRemoval(), "all objects are given back");
}

bool LoadStored(NodeHost& database, sdtest::FakeNode& node, std::string_view bytes, bool ownFile,
                std::uint8_t fault) {
  const qz::string name = "S:\\db\\stored";
  samplehost::MemoryStream stream({bytes.begin(), bytes.end()});
  if (ownFile) Drive::Get().Put("db/stored", bytes);
  const Faults faults(fault);
  return ownFile ? database.Host().LoadNodeFile(node, name)
                 : node.GetTypeInterface()->Load(&stream, nullptr);
}

namespace {

// What a database would hold of the node; empty where it cannot be saved.
std::vector<unsigned char> Stored(const sdtest::FakeNode& node) {
  samplehost::MemoryStream stream;
  const bool saved = node.GetTypeInterface()->Save(&stream, nullptr) && stream.Finish();
  return saved ? stream.bytes() : std::vector<unsigned char>{};
}

}  // namespace

void CheckSaveAndLoad(const sdtest::FakeNode& node) {
  const std::vector<unsigned char> saved = Stored(node);
  // A text with a line feed gains a carriage return each time that it is written.
  if (saved.empty() || std::count(saved.begin(), saved.end(), '\n') != 0) return;
  NodeHost again(Drive::Get());
  sdtest::FakeNode& twin = again.TwinOf(node);
  const std::string_view bytes(reinterpret_cast<const char*>(saved.data()), saved.size());
  Check(LoadStored(again, twin, bytes.substr(kLoadStart), false, 0), "a saved node can be loaded");
  Check(Stored(twin) == saved, "a node that was loaded saves the same");
}

void ReadAll(const SDAccess& sample, const qz::string& qualClass, qz::uchar channel) {
  SDInfo encoded;
  SDInfo original;
  sample.GetSampleInformation(qualClass, encoded);
  const bool known = sample.GetOriginalSampleInformation(qualClass, original) != nullptr;

  const std::unique_ptr<short, FreeBlock> raw(sample.GetRawData(qualClass, channel));
  if (raw != nullptr && known) Touch(raw.get(), original.length * 2);
  qz::ulong size = 0;
  const std::unique_ptr<void, FreeBlock> data(sample.GetEncodedData(qualClass, channel, size));
  if (data != nullptr) Touch(data.get(), size);

  const std::unique_ptr<short, FreeBlock> decoded(sample.GetDecodedData(qualClass, channel));
  const std::unique_ptr<SDTarvaneAccessInterface::SDExtraData> extra(
      sample.GetExtraData(qualClass, channel));
  if (decoded != nullptr) {
    constexpr qz::uint64 kFrame = adpcm::kSamplesPerFrame;
    const bool frames = extra != nullptr;
    Touch(decoded.get(),
          2 * (frames ? (encoded.length + kFrame - 1) / kFrame * kFrame : encoded.length));
  }
  if (extra != nullptr && extra->type == SDTarvaneAccessInterface::EXTRADATA_ADPCMPLUS) {
    Touch(extra->data.adpcmp.blockY0, qz::uint64{extra->data.adpcmp.numBlocks} * 2);
    Touch(extra->data.adpcmp.blockY1, qz::uint64{extra->data.adpcmp.numBlocks} * 2);
  }
}

}  // namespace fuzz
