// What all tests of the library share: a host that keeps its side of the contract and can be told
// to refuse, a folder on the disk mounted as two drives, sound files, and failures on demand.
#ifndef TESTS_SD_FIXTURE_H_
#define TESTS_SD_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/faults.h"
#include "sampledata/sd_access.h"
#include "sampledata/sd_main.h"
#include "sampledata/sd_setup.h"
#include "tests/heap_faults.h"
#include "tests/platform_folder.h"

namespace qz {
inline void PrintTo(const string& text, std::ostream* out) {
  *out << '"' << text.c_str() << '"';
}
}  // namespace qz

// The way into private state.
struct SDTestAccess {
  static SDSampleList& Samples(const SDAccess& node) { return node.sampleList; }
  static qz::string& Folder(SDAccess& node) { return node.internalSampleFileName; }
  static qz::string& Selected(SDAccess& node) { return node.selQualityClass; }
  static bool& CheckedOut(const SDAccess& node) { return node.checkedOut; }
  static const qz::string& CheckOutFolder(const SDAccess& node) { return node.checkOutFolder; }
  static const qz::string& FolderBeforeCheckIn(const SDAccess& node) {
    return node.lastPreCheckOutInternalName;
  }
  static int LastError(const SDAccess& node) { return node.lastError; }
  static int LastError(const SDSetup& setup) { return setup.lastError; }

  static qz::string Expand(const SDAccess& node, const qz::string& name) {
    return node.ExpandSamplePath(name);
  }
  static qz::string EncodedName(const SDAccess& node, const qz::string& name) {
    return node.BuildEncodedSampleDataFileName(name);
  }
  static SDCompType TypeOf(const SDAccess& node, const qz::string& name) {
    return node.CompTypeStringToBin(name);
  }
  static bool CreateSampleFileName(const SDAccess& node, qz::string& name) {
    return node.CreateSampleFileName(nullptr, name);
  }
  static SDAccess::SDError ReadSampleInformation(SDAccess& node, const qz::string& qualClass) {
    return node.ReadSampleInformation(qualClass);
  }

  static SDAccess::SDError ReadEncodedSampleInfo(const SDAccess& node, const SDSample& sample,
                                                 SDInfoIntern* info, SDCompType& compType) {
    return node.ReadEncodedSampleInfo(sample, info, compType);
  }

  static SDDeleteInfoList& ToDelete(SDSetup& setup) { return setup.deleteFilesList; }
  static SDDeleteInfoList& Unsaved(SDSetup& setup) { return setup.unsavedFilesList; }
  static SDVersionID SavedVersion(const SDSetup& setup) { return setup.savedVersionID; }
  static SDClassList& Classes(SDSetup& setup) { return setup.classList; }
  static qz::ulong Bookmark(const SDDeleteInfoList& list) { return list.bookMark; }
  static SDDeleteInfo Files(const qz::string& raw, const qz::string& encoded,
                            const qz::string& folder) {
    return {raw, encoded, folder};
  }
};

namespace sdtest {

// --- Failures on demand ---

using FailingAllocation = heap_faults::Failing;
using SparedAllocations = heap_faults::Spared;  // the host's memory is no concern of the library

// While it lives, the n-th platform call (from 1) of those that `counts` picks fails, alone or with
// all behind it.
class FailingCall {
 public:
  using Filter = std::function<bool(platform::Call call, const std::string& path)>;
  explicit FailingCall(int n, Filter counts = {}, DWORD error = ERROR_GEN_FAILURE,
                       bool forGood = false);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;
  bool Fired() const { return fired_; }
  // The failed call, the first one where there were more, and with its path.
  platform::Call Kind() const { return kind_; }
  std::string What() const { return std::string(platform::CallName(kind_)) + " " + path_; }
  // Calls that have failed so far, of all objects.
  static long Failures();

 private:
  int left_;
  bool fired_ = false;
  platform::Call kind_ = platform::Call::kCount;
  std::string path_;
};

// --- Files ---

// Files below a folder by their path in it, with their content; folders end in '/'.
using Tree = std::map<std::string, std::string>;
Tree ReadTree(const std::string& folder);
// One line for each difference, empty where there is none.
std::string Difference(const Tree& before, const Tree& after);

std::string ReadBytes(const std::string& native);
void WriteBytes(const std::string& native, const std::string& bytes);

struct Wav {
  std::uint16_t channels = 1;
  std::uint16_t bits = 16;
  std::uint32_t rate = 32000;
  // Interleaved values as the sound has them: 8-bit ones from -128 to 127.
  std::vector<int> samples;
  bool loop = false;
  std::uint32_t loopStart = 0;
  std::uint32_t loopEnd = 0;  // inclusive
};
std::string WavBytes(const Wav& wav);
std::string AiffBytes(const Wav& wav);  // without its loop
// `frames` samples a channel of a sound that is neither silent nor periodic, the channels unlike.
Wav SomeSound(std::uint32_t frames, std::uint16_t channels = 1, std::uint16_t bits = 16);
// Writes a sound of one channel and 16 bits, with 62 for its key, as a compressed file.
void WriteMort(const char* path, const Wav& wav, int format);

// --- The host ---

class FakeHost;

class FakeNode final : public HDBBaseNodeInterface {
 public:
  FakeNode(FakeHost& host, const _GUID& type, const std::string& name)
      : host_(host), type_{type}, name_(name) {}

  bool RequestModifyData() override;
  bool BeginModify() override;
  void EndModify(HDBUndoInfo* info) override;
  bool AddReference(HDBBaseNodeInterface* node) override;
  const std::list<HDBBaseNodeInterface*>& GetNodesReferencing() const override {
    return referencing_;
  }
  HDBAccessBaseInterface* GetTypeInterface() const override { return object_; }
  PGIBaseInterface* GetBaseInterface() const override;
  HDBRootInterface* GetRootInterface() const override;
  bool IsType(const HDBTypeStorage& type) const override { return type == type_; }
  qz::string GetName() const override {
    const SparedAllocations host;
    return name_.c_str();
  }

  // What the host got for this node from the library.
  SDAccess& Sample() const { return *static_cast<SDAccess*>(object_); }
  SDSetup& Setup() const { return *static_cast<SDSetup*>(object_); }
  bool InitSucceeded() const { return initSucceeded_; }
  bool IsDuplicate() const { return isDuplicate_; }

 private:
  friend class FakeHost;
  FakeHost& host_;
  HDBTypeStorage type_;
  std::string name_;
  HDBAccessBaseInterface* object_ = nullptr;
  bool initSucceeded_ = false;
  bool isDuplicate_ = false;
  std::list<HDBBaseNodeInterface*> referencing_;
};

class FakeHost final : public HDBRootInterface {
 public:
  explicit FakeHost(const qz::string& _filename) : filename(_filename) {}
  ~FakeHost();
  FakeHost(const FakeHost&) = delete;
  FakeHost& operator=(const FakeHost&) = delete;

  // Makes the object and calls its Init, whose result the node keeps.
  FakeNode& AddSetup();
  FakeNode& AddSample(const std::string& name = "kick");
  // Gives the object back and drops the node; its undo records live on.
  void Remove(FakeNode& node);
  // Removes all nodes, the samples first, and discards all undo records.
  void Close();

  // The last record goes back to its node, and is discarded.
  bool UndoLast();
  void DiscardUndo();
  // As a host must: within a modification that it closes itself where the load fails.
  bool LoadNodeFile(FakeNode& node, const qz::string& name);
  // The last failure's text.
  static std::string ErrorText(const FakeNode& node);

  struct Undo {
    FakeNode* node;
    HDBUndoInfo info;
  };

  // --- Switches ---
  qz::string filename;
  qz::string loadLocation;  // empty: as filename
  bool refuseRequest = false;
  bool refuseBegin = false;
  bool refuseReference = false;
  bool shutDown = false;
  HDBSampleType defaultType = HDB_SAMPLETYPE_DEFAULT;
  bool onlyDefaultType = false;
  bool dropsDeleted = false;  // DeleteNode destroys the node, as it does in earnest

  // --- What happened ---
  std::vector<Undo> undo;  // latest last
  int openModifications = 0;
  int closedWithoutRecord = 0;
  int undoDisabled = 0;

  HDBBaseNodeInterface* GetSampleSetupNode() const override { return setupNode_; }
  void SetSampleSetupNode(HDBBaseNodeInterface* node) override { setupNode_ = node; }
  qz::string GetFilename() const override {
    const SparedAllocations host;
    return filename;
  }
  qz::string GetCurrentLoadLocation() const override {
    const SparedAllocations host;
    return loadLocation.empty() ? filename : loadLocation;
  }
  bool IsShutDownActive() const override { return shutDown; }
  HDBSampleType GetDefaultSampleType() const override { return defaultType; }
  bool GetOnlyDefaultSampleType() const override { return onlyDefaultType; }
  void DisableUndo() override { ++undoDisabled; }
  void EnableUndo() override { --undoDisabled; }
  bool DeleteNode(HDBBaseNodeInterface* node) override;

  PGIBaseInterface* Base() { return &base_; }

 private:
  FakeNode& Add(const _GUID& type, const std::string& name);

  PGISampleDataBaseInterface base_{&platform::thisModule};
  HDBBaseNodeInterface* setupNode_ = nullptr;
  std::list<std::unique_ptr<FakeNode>> nodes_;
};

// --- The fixture ---

// Two drives, S: and T:, on an empty folder of their own. On S: a database S:\db\game.db with the
// sample folder S:\db\samples\ and, for sources, S:\wav\. All is taken down behind the test, which
// fails if a modification was left open or an object was not released.
class SampleDataTest : public ::testing::Test {
 public:  // to operations on worlds that a test makes
  SampleDataTest();
  ~SampleDataTest() override;
  void TearDown() override;

  // The native path of one in our notation.
  std::string Native(const qz::string& path) const;
  // Writes a sound file S:\wav\NAME and gives its path.
  qz::string MakeWav(const std::string& name, const Wav& wav);
  bool Exists(const qz::string& path) const;
  // The last write time: seconds since 1970 and a part of a second.
  void SetWriteTime(const qz::string& path, std::int64_t seconds, long nanoseconds = 0);
  Tree Database() const { return ReadTree(folder_ + "/s/db"); }

  // The setup node, with its folder set and the classes "Low" (1) and "High" (2).
  FakeNode& AddPreparedSetup();

  const platform_test::TempFolder temporary_{platform_test::FastPlace()};
  const std::string& folder_ = temporary_.path;  // drives are its subfolders "s" and "t"
  FakeHost host_;
};

// Indexes of formats as imports take them.
enum Format : qz::uchar { kDefault, kPcm16, kAdpcm, kAdpcmPlus, kPcm8, kAdpcmVs };

// The same with a prepared setup node and one sample node.
class SampleNodeTest : public SampleDataTest {
 public:
  using Access = SDAccess;

  SampleNodeTest()
      : setupNode_(AddPreparedSetup()),
        setup_(setupNode_.Setup()),
        node_(host_.AddSample()),
        access_(node_.Sample()) {}

  // Imports a sound under the name S:\wav\NAME; it must succeed.
  void Import(const std::string& name, const Wav& wav, qz::uchar format, const char* qualClass);
  const SDSample& Record(const char* qualClass) const;
  // Full paths of a sample's files.
  qz::string RawPath(const char* qualClass) const;
  qz::string EncodedPath(const char* qualClass) const;
  std::string EncodedBytes(const char* qualClass) const;
  void SetEncodedBytes(const char* qualClass, const std::string& bytes);
  SDAccess::SDError LastError() const { return ErrorOf(node_); }
  static SDAccess::SDError ErrorOf(const FakeNode& node);

  // A sound of 20 samples of the class "Low", one of 30 of "High".
  void ImportTwo(qz::uchar low = kPcm16, qz::uchar high = kAdpcm);
  // A sample's files as the two lists of the setup have them.
  SDDeleteInfo Files(const char* qualClass) { return {&access_, &Record(qualClass)}; }
  SDDeleteInfoList& ToDelete() { return SDTestAccess::ToDelete(setup_); }
  SDDeleteInfoList& Unsaved() { return SDTestAccess::Unsaved(setup_); }
  using Sizes = std::pair<std::size_t, std::size_t>;
  Sizes Listed() { return {ToDelete().size(), Unsaved().size()}; }
  // An operation that is refused: the answer, where nothing else changed.
  using Operation = std::function<SDAccess::SDError()>;
  SDAccess::SDError Refused(const Operation& operation);

  FakeNode& setupNode_;
  SDSetup& setup_;
  FakeNode& node_;
  SDAccess& access_;
};

// A little-endian number of `width` bytes in a file's content.
std::uint64_t NumberAt(const std::string& bytes, std::size_t at, int width);
void PutNumber(std::string& bytes, std::size_t at, int width, std::uint64_t value);

}  // namespace sdtest

#endif  // TESTS_SD_FIXTURE_H_
