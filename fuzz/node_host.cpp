#include "fuzz/node_host.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "adpcm/adpcm.h"
#include "host/stream.h"
#include "platform/native.h"

namespace fs = std::filesystem;

namespace fuzz {

namespace {

// A load from a database begins behind the first chunk of what was saved there, which says what
// kind of node it is.
constexpr std::size_t kLoadStart = 28;

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};

}  // namespace

Drive& Drive::Instance() {
  static Drive drive;
  return drive;
}

Drive::Drive() : TempFolder(platform_test::FastPlace()) {
  GTEST_FLAG_SET(break_on_failure, true);  // what the host expects is a Check here
  platform::MountDrive('S', path);
  for (const char* name : {"db/samples/a/Low.wav", "db/samples/a/High.wav"})
    Put(name, sdtest::WavBytes(sdtest::SomeSound(20, 2)));

  NodeHost database(*this);
  SDAccess& node = database.Sample();
  Check(node.ImportSample("S:\\db\\samples\\a\\Low.wav", 2, "Low") == SDAccess::ERROR_OK,
        "a sound can be imported");
  const qz::string& raw = SDTestAccess::Samples(node).front().fileName;
  DIOFile::Copy(SDTestAccess::EncodedName(node, raw), "S:\\db\\samples\\a\\Low.esmp");
}

bool Drive::Restore() const {
  bool restored = true;
  for (const fs::directory_entry& entry : fs::directory_iterator(Native("db/samples"))) {
    if (entry.path().filename() == "a") continue;
    fs::remove_all(entry.path());
    restored = false;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(Native("db/samples/a"))) {
    const std::string name = entry.path().filename().string();
    if (name != "Low.wav" && name != "Low.esmp" && name != "High.wav") fs::remove_all(entry.path());
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
  if (ownFile) Drive::Instance().Put("db/stored", std::string(bytes));
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
  NodeHost again(Drive::Instance());
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
