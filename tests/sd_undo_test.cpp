// Undo of every change of a sample node, deletion and its undo, and copies of nodes: what comes
// back, which files leave the disk at once, and what the two lists of files say behind it.
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

class UndoTest : public SampleNodeTest {
 protected:
  SDDeleteInfo Files(const char* qualClass) { return {&access_, &Record(qualClass)}; }
  SDDeleteInfoList& ToDelete() { return SDTestAccess::ToDelete(setup_); }
  SDDeleteInfoList& Unsaved() { return SDTestAccess::Unsaved(setup_); }

  // The setup first: samples are stamped with its new version.
  void Save() {
    const qz::string setupFile = "S:\\setup";
    const qz::string nodeFile = "S:\\node";
    ASSERT_TRUE(setup_.Save(nullptr, &setupFile));
    ASSERT_TRUE(access_.Save(nullptr, &nodeFile));
  }
  void CloseFlagged() {
    host_.shutDown = true;
    host_.Close();
  }
  void ImportTwo() {
    Import("low.wav", SomeSound(20), kPcm16, "Low");
    Import("high.wav", SomeSound(30), kAdpcm, "High");
  }
  // As the host does: the record first, then the node goes.
  HDBUndoInfo Delete(FakeNode& node) {
    HDBUndoInfo info;
    info.description = "the host's";
    EXPECT_TRUE(node.Sample().GatherDeleteInfo(&info));
    host_.Remove(node);
    return info;
  }
  // Back to the host's list, for it to discard.
  void GiveBack(const HDBUndoInfo& info) { host_.undo.push_back({nullptr, info}); }
};

TEST_F(UndoTest, EveryRecordTellsWhatItUndoes) {
  const qz::string file = "S:\\node";
  ImportTwo();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kPcm8));
  EXPECT_TRUE(access_.SetSelQualityClass("High"));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  EXPECT_TRUE(access_.Save(nullptr, &file));
  EXPECT_TRUE(host_.LoadNodeFile(node_, file));
  EXPECT_TRUE(host_.AddSample("copy").Sample().Copy(&node_));
  std::vector<std::string> records;
  for (const FakeHost::Undo& record : host_.undo)
    records.push_back(std::to_string(record.info.ID) + " " + record.info.description.c_str());
  EXPECT_THAT(records,
              ElementsAre("3 import sample node", "3 import sample node",
                          "5 change sample encoding type", "6 change selected quality class",
                          "1 delete sample node", "2 load sample node", "4 copy sample node"));
}

TEST_F(UndoTest, OfAFirstImportLeavesNothingAtOnce) {
  MakeWav("high.wav", SomeSound(30));
  const Tree before = Database();
  Import("high.wav", SomeSound(30), kAdpcm, "High");
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_TRUE(access_.GetQualityClasses().empty());
  EXPECT_TRUE(SDTestAccess::Folder(access_).empty());
  EXPECT_EQ("High", access_.GetSelQualityClass()) << "the selection is no part of it";
  EXPECT_TRUE(Unsaved().empty() && ToDelete().empty());
}

TEST_F(UndoTest, OfAFormatChangeOfASavedSampleLeavesTheSavedState) {
  ImportTwo();
  Save();
  const Tree before = Database();
  const std::size_t toDelete = ToDelete().size();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kAdpcmVs));
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_EQ(SDAccess::COMPTYPE_RAW, Record("Low").compType);
  EXPECT_TRUE(Unsaved().empty()) << "the saved database has these files";
  EXPECT_EQ(toDelete, ToDelete().size());
}

TEST_F(UndoTest, BehindASaveMakesTheOldFilesTheOnesToGo) {
  ImportTwo();
  const SDDeleteInfo low = Files("Low");
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kAdpcmVs));
  const SDDeleteInfo savedLow = Files("Low");
  const SDDeleteInfo savedHigh = Files("High");
  Save();
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_EQ(low, Files("Low"));
  EXPECT_TRUE(Unsaved().check(low)) << "no saved state has these any more";
  EXPECT_FALSE(ToDelete().check(low));
  EXPECT_TRUE(ToDelete().check(savedLow) && ToDelete().check(savedHigh));
  CloseFlagged();
  EXPECT_FALSE(Exists(low.getFolder()));
  for (const SDDeleteInfo& files : {savedLow, savedHigh})
    EXPECT_TRUE(Exists(files.getRawName()) && Exists(files.getEncodedName()));
}

TEST_F(UndoTest, OfARemovalBringsTheSampleBack) {
  ImportTwo();
  const Tree before = Database();
  const qz::string folder = SDTestAccess::Folder(access_);
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("High"));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low"));
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low", "High"));
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_EQ(folder, SDTestAccess::Folder(access_));
  EXPECT_FALSE(ToDelete().check(Files("Low")) || ToDelete().check(Files("High")));
}

TEST_F(UndoTest, OfALoadBringsTheListBackAndTouchesNoFile) {
  ImportTwo();
  const qz::string file = "S:\\node";
  ASSERT_TRUE(access_.Save(nullptr, &file));
  EXPECT_TRUE(access_.SetSelQualityClass("High"));
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_EQ("Low", access_.GetSelQualityClass());
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  const Tree before = Database();
  const std::size_t unsaved = Unsaved().size();
  const std::size_t toDelete = ToDelete().size();
  ASSERT_TRUE(host_.LoadNodeFile(node_, file));
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low", "High"));
  const qz::string folder = SDTestAccess::Folder(access_);
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("High"));
  EXPECT_EQ(folder, SDTestAccess::Folder(access_)) << "only the list";
  HDBUndoInfo unknown;
  unknown.ID = 7;
  EXPECT_FALSE(access_.DoUndo(&unknown));
  EXPECT_TRUE(access_.DiscardUndoInfo(&unknown)) << "a record without data";
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("High"));
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_EQ(unsaved, Unsaved().size());
  EXPECT_EQ(toDelete, ToDelete().size());
}

TEST_F(UndoTest, TakesNoNoticeOfFilesThatCannotBeDeleted) {
  ImportTwo();
  const SDDeleteInfo newFiles = Files("Low");
  FailingCall fault(1, [](platform::Call call, const std::string&) {
    return call == platform::Call::kDeleteFile;
  });
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_TRUE(fault.Fired());
  EXPECT_TRUE(Exists(newFiles.getRawName()));
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low"));
  EXPECT_TRUE(Exists(RawPath("Low")));
}

// Undo that ran out of memory works when it is tried again. What could not be deleted then stays on
// the disk, but what came back is never among the files to go.
TEST_F(UndoTest, CanBeRepeatedWhereMemoryRanOut) {
  ImportTwo();
  const Tree before = Database();
  const SDDeleteInfoList toDelete = ToDelete();
  const SDDeleteInfoList unsaved = Unsaved();
  for (int n = 1; !HasFailure(); ++n) {
    ToDelete() = toDelete;
    Unsaved() = unsaved;
    ASSERT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kAdpcmPlus));
    HDBUndoInfo info = host_.undo.back().info;
    host_.undo.pop_back();
    FailingAllocation fault(n);
    const bool done = access_.DoUndo(&info);
    const bool fired = fault.Fired();
    EXPECT_TRUE(done || fired) << n;
    if (!done) {
      EXPECT_TRUE(access_.DoUndo(&info)) << n;
    }
    GiveBack(info);
    EXPECT_THAT(Difference(before, Database()), ::testing::Not(::testing::HasSubstr("gone"))) << n;
    EXPECT_EQ(SDAccess::COMPTYPE_RAW, Record("Low").compType) << n;
    EXPECT_FALSE(ToDelete().check(Files("Low")) || ToDelete().check(Files("High"))) << n;
    EXPECT_TRUE(Unsaved().check(Files("Low")) && Unsaved().check(Files("High"))) << n;
    if (!fired) return;
  }
}

// --- Deletion of a node ---

TEST_F(UndoTest, OfADeletionMakesCopiesAndLeavesTheOldFilesToGo) {
  ImportTwo();
  EXPECT_TRUE(access_.SetSelQualityClass("High"));
  Save();
  const std::string sound = ReadBytes(Native(RawPath("High")));
  const SDDeleteInfo oldHigh = Files("High");
  HDBUndoInfo info;
  EXPECT_TRUE(access_.GatherDeleteInfo(&info));
  EXPECT_EQ(static_cast<qz::ulong>(UNDO_SD_DELETED), info.ID);
  EXPECT_EQ("", info.description) << "the host has its own";
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low", "High"));
  EXPECT_TRUE(ToDelete().check(oldHigh));
  const Tree before = Database();
  host_.Remove(node_);
  EXPECT_EQ("", Difference(before, Database()));

  FakeNode& again = host_.AddSample();
  EXPECT_TRUE(again.Sample().DoUndo(&info));
  GiveBack(info);
  EXPECT_THAT(again.Sample().GetQualityClasses(), ElementsAre("Low", "High"));
  EXPECT_EQ("High", again.Sample().GetSelQualityClass());
  const SDDeleteInfo newHigh(&again.Sample(), &SDTestAccess::Samples(again.Sample()).back());
  EXPECT_NE(oldHigh.getFolder(), newHigh.getFolder());
  EXPECT_EQ(sound, ReadBytes(Native(newHigh.getRawName())));
  EXPECT_TRUE(Unsaved().check(newHigh));
  // The deletion marked them twice, and one entry is left.
  EXPECT_TRUE(ToDelete().remove(oldHigh));
  EXPECT_FALSE(ToDelete().check(oldHigh));
  SDTestAccess::ToDelete(setup_).push_back(oldHigh);

  const qz::string file = "S:\\file";
  ASSERT_TRUE(setup_.Save(nullptr, &file) && again.Sample().Save(nullptr, &file));
  CloseFlagged();
  EXPECT_FALSE(Exists(oldHigh.getFolder()));
  EXPECT_TRUE(Exists(newHigh.getRawName()) && Exists(newHigh.getEncodedName()));
}

TEST_F(UndoTest, OfADeletionStopsAtAFileThatIsGone) {
  ImportTwo();
  const SDDeleteInfo low = Files("Low");
  const SDDeleteInfo high = Files("High");
  const HDBUndoInfo info = Delete(node_);
  ASSERT_TRUE(DIOFile::Delete(high.getEncodedName()));
  FakeNode& again = host_.AddSample();
  HDBUndoInfo record = info;
  EXPECT_FALSE(again.Sample().DoUndo(&record));
  EXPECT_THAT(again.Sample().GetQualityClasses(), ElementsAre("Low"));
  EXPECT_EQ("", again.Sample().GetSelQualityClass());
  for (const SDDeleteInfo& files : {low, high}) {
    EXPECT_TRUE(ToDelete().remove(files));
    EXPECT_FALSE(ToDelete().check(files)) << "the failing sample's entry went too";
  }
  GiveBack(record);
}

// --- Copies ---

TEST_F(UndoTest, ACopySharesNothingAndItsUndoDeletesIt) {
  ImportTwo();
  EXPECT_TRUE(access_.SetSelQualityClass("High"));
  DIOFile::CreateDirectoryA("S:\\out");
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  FakeNode& copy = host_.AddSample("copy");
  ASSERT_TRUE(copy.Sample().Copy(&node_));
  EXPECT_FALSE(copy.Sample().IsCheckedOut());
  EXPECT_EQ("High", copy.Sample().GetSelQualityClass());
  EXPECT_THAT(copy.Sample().GetQualityClasses(), ElementsAre("Low", "High"));
  EXPECT_NE(SDTestAccess::Folder(access_), SDTestAccess::Folder(copy.Sample()));
  std::vector<SDDeleteInfo> copies;
  for (const SDSample& sample : SDTestAccess::Samples(copy.Sample())) {
    const SDDeleteInfo files = copies.emplace_back(&copy.Sample(), &sample);
    const char* qualClass = sample.GetQualClass().c_str();
    EXPECT_EQ(ReadBytes(Native(RawPath(qualClass))), ReadBytes(Native(files.getRawName())));
    EXPECT_EQ(EncodedBytes(qualClass), ReadBytes(Native(files.getEncodedName())));
    EXPECT_TRUE(Unsaved().check(files));
  }

  host_.dropsDeleted = true;
  HDBUndoInfo info = host_.undo.back().info;
  host_.undo.pop_back();
  EXPECT_TRUE(copy.Sample().DoUndo(&info));
  EXPECT_THAT(host_.deleted, ElementsAre("copy"));
  for (const SDDeleteInfo& files : copies)
    EXPECT_TRUE(ToDelete().check(files)) << "marked by the node's end";
  GiveBack(info);
}

TEST_F(UndoTest, ACopyOfNoSamplesMakesNoFolder) {
  const Tree before = Database();
  FakeNode& copy = host_.AddSample("copy");
  EXPECT_TRUE(copy.Sample().Copy(&node_));
  EXPECT_EQ(1u, host_.undo.size());
  EXPECT_TRUE(SDTestAccess::Folder(copy.Sample()).empty());
  EXPECT_EQ("", Difference(before, Database()));
}

TEST_F(UndoTest, ACopyThatFailsKeepsWhatItHas) {
  ImportTwo();
  FakeNode& refused = host_.AddSample("refused");
  const auto code = [](const FakeNode& node) {
    qz::string text;
    qz::ulong value = 0;
    node.Sample().GetLastError(text, value);
    return static_cast<SDAccess::SDError>(value);
  };
  host_.refuseBegin = true;
  EXPECT_FALSE(refused.Sample().Copy(&node_));
  EXPECT_EQ(SDAccess::ERROR_READONLY, code(refused));
  host_.refuseBegin = false;

  ASSERT_TRUE(DIOFile::Delete(EncodedPath("High")));
  const std::size_t undo = host_.undo.size();
  FakeNode& copy = host_.AddSample("copy");
  EXPECT_FALSE(copy.Sample().Copy(&node_));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, code(copy));
  EXPECT_THAT(copy.Sample().GetQualityClasses(), ElementsAre("Low"));
  EXPECT_EQ("", copy.Sample().GetSelQualityClass());
  EXPECT_EQ(undo, host_.undo.size());
  EXPECT_EQ(1, host_.closedWithoutRecord);
  // What it has is marked when the host drops it.
  const SDDeleteInfo files(&copy.Sample(), &SDTestAccess::Samples(copy.Sample()).front());
  EXPECT_TRUE(Unsaved().check(files));
  host_.Remove(copy);
  EXPECT_TRUE(ToDelete().check(files));
}

}  // namespace
}  // namespace sdtest
