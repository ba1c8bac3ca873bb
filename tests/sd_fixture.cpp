#include "tests/sd_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "audio/audio.h"
#include "platform/native.h"
#include "sampledata/sd_intern.h"
#include "tests/audio_helpers.h"

namespace fs = std::filesystem;

namespace sdtest {

// --- Failures on demand ---

namespace {
long failedCalls = 0;
}

FailingCall::FailingCall(int n, Filter counts, DWORD error, bool forGood) : left_(n) {
  platform::SetFaultHook([this, counts = std::move(counts), error, forGood](
                             platform::Call call, const char* path) -> DWORD {
    if (SparedAllocations::Any()) return NO_ERROR;  // the host's own
    const SparedAllocations own;
    if (counts && !counts(call, path)) return NO_ERROR;
    if (!(fired_ && forGood) && (left_ == 0 || --left_ > 0)) return NO_ERROR;
    if (!fired_) path_ = path;
    if (!fired_) kind_ = call;
    fired_ = true;
    ++failedCalls;
    return error;
  });
}
long FailingCall::Failures() {
  return failedCalls;
}
FailingCall::~FailingCall() {
  platform::SetFaultHook({});
}

// --- Files ---

std::string ReadBytes(const std::string& native) {
  std::ifstream file(native, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteBytes(const std::string& native, const std::string& bytes) {
  std::ofstream file(native, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(file.good()) << native;
}

Tree ReadTree(const std::string& folder) {
  Tree tree;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder).string();
    if (entry.is_directory()) {
      tree[name + "/"] = "";
    } else {
      tree[name] = ReadBytes(entry.path().string());
    }
  }
  return tree;
}

std::string Difference(const Tree& before, const Tree& after) {
  std::string lines;
  for (const auto& [name, content] : before) {
    const auto found = after.find(name);
    if (found == after.end()) {
      lines += "gone: " + name + "\n";
    } else if (found->second != content) {
      lines += "changed: " + name + "\n";
    }
  }
  for (const auto& [name, content] : after) {
    if (before.count(name) == 0) lines += "new: " + name + "\n";
  }
  return lines;
}

namespace {

using audiotest::Bytes;
using audiotest::Le;
using audiotest::operator+;

// 8-bit samples are unsigned in a WAV and signed in an AIFF.
Bytes SampleBytes(const Wav& wav, Bytes (*number)(qz::uint64, int), int zero8) {
  Bytes bytes;
  for (const int sample : wav.samples) {
    const int stored = wav.bits == 8 ? sample + zero8 : sample;
    const Bytes value = number(static_cast<qz::uint64>(stored), wav.bits / 8);
    bytes.insert(bytes.end(), value.begin(), value.end());
  }
  return bytes;
}

}  // namespace

std::string WavBytes(const Wav& wav) {
  const qz::ulong frame = wav.channels * wav.bits / 8u;
  Bytes chunks =
      audiotest::Chunk("fmt ", Le(1, 2) + Le(wav.channels, 2) + Le(wav.rate, 4) +
                                   Le(wav.rate * frame, 4) + Le(frame, 2) + Le(wav.bits, 2));
  if (wav.loop) {
    chunks = chunks + audiotest::Chunk(
                          "smpl", audiotest::Words({0, 0, 1000000000 / wav.rate, 60, 0, 0, 0, 1, 0,
                                                    0, 0, wav.loopStart, wav.loopEnd, 0, 0}));
  }
  const Bytes file =
      audiotest::RiffFile(chunks + audiotest::Chunk("data", SampleBytes(wav, Le, 128)));
  return {file.begin(), file.end()};
}

std::string AiffBytes(const Wav& wav) {
  const auto frames = static_cast<qz::ulong>(wav.samples.size()) / wav.channels;
  const Bytes file =
      audiotest::AiffFile(audiotest::AiffCommon(wav.channels, frames, wav.bits, wav.rate) +
                          audiotest::AiffSamples(SampleBytes(wav, audiotest::Be, 0)));
  return {file.begin(), file.end()};
}

Wav SomeSound(std::uint32_t frames, std::uint16_t channels, std::uint16_t bits) {
  Wav wav;
  wav.channels = channels;
  wav.bits = bits;
  std::uint32_t noise = 12345;
  for (std::uint32_t frame = 0; frame < frames; ++frame) {
    for (std::uint32_t channel = 0; channel < channels; ++channel) {
      noise = noise * 1664525u + 1013904223u;
      const int slope = static_cast<int>(frame * (37 + 20 * channel) % 20000) - 10000;
      const int value = slope + static_cast<int>(noise >> 20) - 2048;
      wav.samples.push_back(bits == 8 ? value / 128 : value);
    }
  }
  return wav;
}

void WriteMort(const char* path, const Wav& wav, int format) {
  std::vector<short> samples(wav.samples.begin(), wav.samples.end());
  _AUDIO sound{};
  sound.Samples = samples.data();
  sound.NumSamples = static_cast<qz::ulong>(samples.size());
  sound.LengthInBytes = sound.NumSamples * 2;
  sound.NumChannels = 1;
  sound.BitsPerSample = 16;
  sound.SampleRate = wav.rate;
  sound.OriginalKey = 62;
  EXPECT_EQ(AUDIO_OK, audio_WriteWave(path, &sound, format)) << AudioErrorMsg;
}

// --- The host ---

bool FakeNode::RequestModifyData() {
  return !host_.refuseRequest;
}

bool FakeNode::BeginModify() {
  if (host_.refuseBegin) return false;
  ++host_.openModifications;
  return true;
}

void FakeNode::EndModify(HDBUndoInfo* info) {
  const SparedAllocations host;
  EXPECT_GT(host_.openModifications, 0) << "a change was closed that nobody opened";
  --host_.openModifications;
  if (info != nullptr) {
    host_.undo.push_back({this, *info});
  } else {
    ++host_.closedWithoutRecord;
  }
}

bool FakeNode::AddReference(HDBBaseNodeInterface* node) {
  const SparedAllocations host;
  if (host_.refuseReference) return false;
  static_cast<FakeNode*>(node)->referencing_.push_back(this);
  return true;
}

PGIBaseInterface* FakeNode::GetBaseInterface() const {
  return host_.Base();
}
HDBRootInterface* FakeNode::GetRootInterface() const {
  return &host_;
}

FakeHost::~FakeHost() {
  Close();
}

FakeNode& FakeHost::Add(const _GUID& type, const std::string& name) {
  FakeNode& node = *nodes_.emplace_back(std::make_unique<FakeNode>(*this, type, name));
  node.object_ =
      static_cast<HDBAccessBaseInterface*>(base_.CreateInterface(&type, &dbSubTypeTarvane));
  node.initSucceeded_ = node.object_->Init(&node, node.isDuplicate_);
  return node;
}

FakeNode& FakeHost::AddSetup() {
  return Add(hdbTypeSampleDataSetup, "setup");
}
FakeNode& FakeHost::AddSample(const std::string& name) {
  return Add(hdbTypeSampleData, name);
}

void FakeHost::Remove(FakeNode& node) {
  base_.ReleaseInterface(&node.type_.guid, node.object_);
  node.object_ = nullptr;
  for (const auto& other : nodes_)
    other->referencing_.remove(&node);
  for (Undo& record : undo) {
    if (record.node == &node) record.node = nullptr;
  }
  nodes_.remove_if([&node](const auto& entry) { return entry.get() == &node; });
}

void FakeHost::Close() {
  DiscardUndo();
  while (!nodes_.empty()) {
    const auto sample = std::find_if(nodes_.begin(), nodes_.end(), [](const auto& node) {
      return node->IsType(HDBTypeStorage{hdbTypeSampleData});
    });
    Remove(sample != nodes_.end() ? **sample : *nodes_.front());
  }
}

bool FakeHost::DeleteNode(HDBBaseNodeInterface* node) {
  if (dropsDeleted) Remove(*static_cast<FakeNode*>(node));
  return true;
}

bool FakeHost::UndoLast() {
  Undo record = undo.back();
  undo.pop_back();
  FakeNode& node = *record.node;
  const bool done = node.object_->DoUndo(&record.info);
  EXPECT_TRUE(node.object_->DiscardUndoInfo(&record.info));
  return done;
}

void FakeHost::DiscardUndo() {
  // Any sample object will do, and nodes may be gone: one is made for it.
  const SparedAllocations host;
  void* const object = base_.CreateInterface(&hdbTypeSampleData, &dbSubTypeTarvane);
  for (Undo& record : undo) {
    EXPECT_TRUE(static_cast<HDBAccessBaseInterface*>(object)->DiscardUndoInfo(&record.info));
  }
  undo.clear();
  base_.ReleaseInterface(&hdbTypeSampleData, object);
}

bool FakeHost::LoadNodeFile(FakeNode& node, const qz::string& name) {
  ++openModifications;
  const bool loaded = node.object_->Load(nullptr, &name);
  // A setup node never closes what it was loaded in; a sample node does where it succeeds.
  if (!loaded || node.IsType(HDBTypeStorage{hdbTypeSampleDataSetup})) --openModifications;
  return loaded;
}

std::string FakeHost::ErrorText(const FakeNode& node) {
  qz::string text;
  qz::ulong code = 0;
  node.object_->GetLastError(text, code);
  return text.c_str();
}

// --- The fixture ---

SampleDataTest::SampleDataTest() : host_("S:\\db\\game.db") {
  for (const char* part : {"/s/db/samples", "/s/wav", "/t"})
    fs::create_directories(folder_ + part);
  platform::MountDrive('S', folder_ + "/s");
  platform::MountDrive('T', folder_ + "/t");
}

void SampleDataTest::TearDown() {
  platform::SetFaultHook({});
  host_.Close();
  EXPECT_TRUE(host_.Base()->RequestRemoval());
  EXPECT_EQ(0, host_.openModifications);
  EXPECT_EQ(0, host_.undoDisabled);
}

SampleDataTest::~SampleDataTest() {
  host_.Close();
  platform::MountDrive('S', "");
  platform::MountDrive('T', "");
}

std::string SampleDataTest::Native(const qz::string& path) const {
  std::string native;
  EXPECT_TRUE(platform::ToNative(path.c_str(), native)) << path.c_str();
  return native;
}

qz::string SampleDataTest::MakeWav(const std::string& name, const Wav& wav) {
  WriteBytes(folder_ + "/s/wav/" + name, WavBytes(wav));
  return ("S:\\wav\\" + name).c_str();
}

bool SampleDataTest::Exists(const qz::string& path) const {
  return fs::exists(Native(path));
}

void SampleDataTest::SetWriteTime(const qz::string& path, std::int64_t seconds, long nanoseconds) {
  const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), nanoseconds}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, Native(path).c_str(), times, 0)) << path.c_str();
}

FakeNode& SampleDataTest::AddPreparedSetup() {
  FakeNode& setup = host_.AddSetup();
  setup.Setup().SetSampleFolder("S:\\db\\samples\\");
  setup.Setup().AddQualityClass("Low", 1);
  setup.Setup().AddQualityClass("High", 2);
  return setup;
}

// --- The sample node ---

void SampleNodeTest::Import(const std::string& name, const Wav& wav, qz::uchar format,
                            const char* qualClass) {
  const qz::string source = MakeWav(name, wav);
  ASSERT_EQ(SDAccess::ERROR_OK, access_.ImportSample(source, format, qualClass)) << name;
}

const SDSample& SampleNodeTest::Record(const char* qualClass) const {
  const SDSample* found = std::as_const(SDTestAccess::Samples(access_)).FindSample(qualClass);
  static const SDSample kNone;
  EXPECT_NE(nullptr, found) << qualClass;
  return found != nullptr ? *found : kNone;
}

qz::string SampleNodeTest::RawPath(const char* qualClass) const {
  return SDTestAccess::Expand(access_, Record(qualClass).fileName);
}

qz::string SampleNodeTest::EncodedPath(const char* qualClass) const {
  return SDTestAccess::EncodedName(access_, Record(qualClass).fileName);
}

std::string SampleNodeTest::EncodedBytes(const char* qualClass) const {
  return ReadBytes(Native(EncodedPath(qualClass)));
}

void SampleNodeTest::SetEncodedBytes(const char* qualClass, const std::string& bytes) {
  WriteBytes(Native(EncodedPath(qualClass)), bytes);
}

void SampleNodeTest::ImportTwo(qz::uchar low, qz::uchar high) {
  Import("low.wav", SomeSound(20), low, "Low");
  Import("high.wav", SomeSound(30), high, "High");
}

SDAccess::SDError SampleNodeTest::Refused(const Operation& operation) {
  const Tree before = Database();
  const std::size_t undo = host_.undo.size();
  const qz::string folder = SDTestAccess::Folder(access_);
  const std::list<qz::string> classes = access_.GetQualityClasses();
  const Sizes listed = Listed();
  const SDAccess::SDError error = operation();
  EXPECT_EQ(error, LastError());
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_EQ(undo, host_.undo.size());
  EXPECT_EQ(0, host_.openModifications);
  EXPECT_EQ(folder, SDTestAccess::Folder(access_));
  EXPECT_EQ(classes, access_.GetQualityClasses());
  EXPECT_EQ(listed, Listed());
  return error;
}

SDAccess::SDError SampleNodeTest::ErrorOf(const FakeNode& node) {
  qz::string text;
  qz::ulong code = 0;
  const bool failed = node.Sample().GetLastError(text, code);
  EXPECT_EQ(failed, code != 0);
  return static_cast<SDAccess::SDError>(code);
}

std::uint64_t NumberAt(const std::string& bytes, std::size_t at, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) {
    const auto byte = static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
    value |= std::uint64_t{byte} << (8 * i);
  }
  return value;
}

void PutNumber(std::string& bytes, std::size_t at, int width, std::uint64_t value) {
  for (int i = 0; i < width; ++i) {
    bytes.at(at + static_cast<std::size_t>(i)) = static_cast<char>(value >> (8 * i) & 0xFF);
  }
}

}  // namespace sdtest
