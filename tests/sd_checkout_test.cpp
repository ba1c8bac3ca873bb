// Check-out, check-in and the way back: every state and what leads out of it, the files inside and
// outside, and what a node refuses while it is out.
#include <algorithm>

#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::EndsWith;

class CheckOutTest : public SampleNodeTest {
 protected:
  CheckOutTest() {
    for (const char* folder : {"S:\\out", "S:\\other"})
      DIOFile::CreateDirectoryA(folder);
  }

  void ImportTwo() {
    Import("low.wav", SomeSound(20), kPcm16, "Low");
    Import("high.wav", SomeSound(30), kAdpcm, "High");
  }
  SDDeleteInfo Files(const char* qualClass) { return {&access_, &Record(qualClass)}; }
  SDDeleteInfoList& ToDelete() { return SDTestAccess::ToDelete(setup_); }
  SDDeleteInfoList& Unsaved() { return SDTestAccess::Unsaved(setup_); }
  Tree Outside(const char* folder = "out") const { return ReadTree(folder_ + "/s/" + folder); }
  // An edit that is newer than anything here, however coarse the clock.
  void Edit(const std::string& name, const std::string& bytes, const char* folder = "out") {
    WriteBytes(folder_ + "/s/" + folder + "/" + name, bytes);
    SetWriteTime((std::string("S:\\") + folder + "\\" + name).c_str(), 4000000000);
  }
  void Save() {
    const qz::string setupFile = "S:\\setup";
    const qz::string nodeFile = "S:\\node";
    ASSERT_TRUE(setup_.Save(nullptr, &setupFile));
    ASSERT_TRUE(access_.Save(nullptr, &nodeFile));
  }
  void OutAndIn() {
    ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
    ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  }
  // An operation after which inside all is as before.
  template <class Operation>
  SDAccess::SDError Untouched(Operation operation) {
    const Tree before = Database();
    const std::string folder = SDTestAccess::Folder(access_).c_str();
    const std::size_t toDelete = ToDelete().size();
    const std::size_t unsaved = Unsaved().size();
    const std::size_t undo = host_.undo.size();
    const SDAccess::SDError error = operation();
    EXPECT_EQ(error, LastError());
    EXPECT_EQ("", Difference(before, Database()));
    EXPECT_EQ(folder, SDTestAccess::Folder(access_).c_str());
    EXPECT_EQ(toDelete, ToDelete().size());
    EXPECT_EQ(unsaved, Unsaved().size());
    EXPECT_EQ(undo, host_.undo.size());
    return error;
  }
};

// --- States ---

// f: free, o: out; a capital where the state from before a check-in is kept.
char StateOf(const SDAccess& access) {
  if (access.IsCheckedOut()) return access.CanUndoCheckIn() ? 'O' : 'o';
  return access.CanUndoCheckIn() ? 'F' : 'f';
}

TEST_F(CheckOutTest, GoesFromEachStateWhereItShould) {
  constexpr SDAccess::SDError kOk = SDAccess::ERROR_OK;
  constexpr SDAccess::SDError kOut = SDAccess::ERROR_ISCHECKEDOUT;
  constexpr SDAccess::SDError kNotOut = SDAccess::ERROR_ISNOTCHECKEDOUT;
  constexpr SDAccess::SDError kNoCopy = SDAccess::ERROR_COULDNOTCOPYSAMPLE;
  constexpr SDAccess::SDError kNoState = SDAccess::ERROR_NOPRECHECKINSTATE;
  const struct {
    const char* name;
    std::function<SDAccess::SDError(SDAccess&)> run;
    SDAccess::SDError answers[4];
    const char* next;
  } operations[] = {
      {"CheckOut",
       [](SDAccess& node) { return node.CheckOut("S:\\out"); },
       {kOk, kOk, kOut, kOut},
       "oOoO"},
      {"CheckOut to nowhere",
       [](SDAccess& node) { return node.CheckOut("S:\\nowhere"); },
       {kNoCopy, kNoCopy, kOut, kOut},
       "fFoO"},
      {"UndoCheckOut",
       [](SDAccess& node) { return node.UndoCheckOut(); },
       {kNotOut, kNotOut, kOk, kOk},
       "fFfF"},
      {"RedoCheckOut",
       [](SDAccess& node) { return node.RedoCheckOut(); },
       {kNotOut, kNotOut, kOk, kOk},
       "fFoO"},
      {"RedoCheckOut that fails",
       [](SDAccess& node) {
         DIOFile::Rename("S:\\out", "S:\\away");
         const SDAccess::SDError error = node.RedoCheckOut();
         DIOFile::Rename("S:\\away", "S:\\out");
         return error;
       },
       {kNotOut, kNotOut, kNoCopy, kNoCopy},
       "fFfF"},
      {"CheckIn",
       [](SDAccess& node) { return node.CheckIn(); },
       {kNotOut, kNotOut, kOk, kOk},
       "fFFF"},
      {"CheckIn with a file missing",
       [](SDAccess& node) {
         DIOFile::Delete("S:\\out\\kick (High).wav");
         return node.CheckIn();
       },
       {kNotOut, kNotOut, kNoCopy, kNoCopy},
       "fFoO"},
      {"UndoCheckIn",
       [](SDAccess& node) { return node.UndoCheckIn(); },
       {kNoState, kOk, kOut, kOut},
       "ffoO"},
  };
  const qz::string source = MakeWav("kick.wav", SomeSound(20));
  for (const auto& operation : operations) {
    for (std::size_t i = 0; i < 4; ++i) {
      const char from = "fFoO"[i];
      SCOPED_TRACE(std::string(operation.name) + " from " + from);
      FakeNode& node = host_.AddSample();
      SDAccess& access = node.Sample();
      for (const char* qualClass : {"Low", "High"})
        ASSERT_EQ(kOk, access.ImportSample(source, kPcm16, qualClass));
      if (from == 'F' || from == 'O') {
        ASSERT_EQ(kOk, access.CheckOut("S:\\out"));
        ASSERT_EQ(kOk, access.CheckIn());
      }
      if (i >= 2) {
        ASSERT_EQ(kOk, access.CheckOut("S:\\out"));
      }
      ASSERT_EQ(from, StateOf(access));
      const std::size_t undo = host_.undo.size();
      EXPECT_EQ(operation.answers[i], operation.run(access));
      EXPECT_EQ(operation.next[i], StateOf(access));
      EXPECT_EQ(undo, host_.undo.size()) << "none of them leaves an undo record";
      host_.Remove(node);
    }
  }
}

// --- Out ---

TEST_F(CheckOutTest, CopiesTheRawFilesUnderReadableNames) {
  ImportTwo();
  WriteBytes(folder_ + "/s/out/kick (Low).wav", "an earlier export, which is replaced");
  EXPECT_EQ(SDAccess::ERROR_OK, Untouched([&] { return access_.CheckOut("S:\\out"); }));
  EXPECT_EQ(0, host_.closedWithoutRecord) << "no change of the node";
  const Tree expected = {{"kick (High).wav", ReadBytes(Native(RawPath("High")))},
                         {"kick (Low).wav", ReadBytes(Native(RawPath("Low")))}};
  EXPECT_EQ("", Difference(expected, Outside()));
  // Edits go when the export is made again.
  Edit("kick (Low).wav", "edited");
  EXPECT_EQ(SDAccess::ERROR_OK, Untouched([&] { return access_.RedoCheckOut(); }));
  EXPECT_EQ("", Difference(expected, Outside()));
  EXPECT_EQ(SDAccess::ERROR_OK, Untouched([&] { return access_.UndoCheckOut(); }));
  EXPECT_EQ("", Difference(expected, Outside()));
}

TEST_F(CheckOutTest, RefusesWhereTheHostOrAFileDoes) {
  ImportTwo();
  host_.refuseRequest = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, Untouched([&] { return access_.CheckOut("S:\\out"); }));
  host_.refuseRequest = false;
  EXPECT_TRUE(Outside().empty());
  ASSERT_TRUE(DIOFile::Delete(RawPath("High")));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, access_.CheckOut("S:\\out"));
  EXPECT_FALSE(access_.IsCheckedOut());
  EXPECT_EQ(1u, Outside().size()) << "what was copied stays";
}

TEST_F(CheckOutTest, OfANodeWithoutSamplesIsPossible) {
  const Tree before = Database();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\nowhere"));
  EXPECT_TRUE(access_.IsCheckedOut());
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  EXPECT_FALSE(access_.CanUndoCheckIn()) << "there was no folder before";
  EXPECT_EQ("", Difference(before, Database()));
}

TEST_F(CheckOutTest, LocksTheSampleSetAndTheClasses) {
  ImportTwo();
  host_.AddSample("other");
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  const qz::string source = MakeWav("new.wav", SomeSound(9));
  EXPECT_EQ(SDAccess::ERROR_ISCHECKEDOUT,
            Untouched([&] { return access_.ImportSample(source, kPcm16, "Low"); }));
  EXPECT_EQ(SDAccess::ERROR_ISCHECKEDOUT, Untouched([&] { return access_.RemoveSample("Low"); }));
  EXPECT_FALSE(access_.Rename(&node_, "drum"));
  EXPECT_EQ(SDSetup::ERROR_SAMPLESARECHECKEDOUT, setup_.AddQualityClass("Third", 3));
  EXPECT_EQ(SDSetup::ERROR_SAMPLESARECHECKEDOUT, setup_.AddQualityClass("Third", 3, 1));
  EXPECT_EQ(SDSetup::ERROR_SAMPLESARECHECKEDOUT, setup_.RemoveQualityClass("unknown"));
  EXPECT_EQ("Some samples are checked out", FakeHost::ErrorText(setupNode_));
  // What does not change the set is allowed.
  EXPECT_TRUE(access_.SetSelQualityClass("High"));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kPcm8));
  short* const data = access_.GetRawData("Low", 0);
  EXPECT_NE(nullptr, data);
  std::free(data);
  EXPECT_TRUE(access_.IsCheckedOut());
  EXPECT_EQ(SDAccess::ERROR_OK, access_.UndoCheckOut());
  EXPECT_TRUE(access_.Rename(&node_, "drum"));
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.AddQualityClass("Third", 3));
}

// --- In ---

TEST_F(CheckOutTest, BringsEditsInToANewFolder) {
  ImportTwo();
  const SDDeleteInfo oldLow = Files("Low");
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  const std::string edited = WavBytes(SomeSound(77));
  Edit("kick (Low).wav", edited);
  const Tree before = Database();
  const Tree outside = Outside();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  EXPECT_EQ(edited, ReadBytes(Native(RawPath("Low"))));
  EXPECT_EQ(77u, Record("Low").encodedInfo.length);
  EXPECT_EQ(SDAccess::COMPTYPE_RAW, Record("Low").compType);
  EXPECT_EQ("S:\\wav\\low.wav", Record("Low").originalName);
  EXPECT_EQ("", Difference(outside, Outside()));
  const std::string changes = Difference(before, Database());
  EXPECT_EQ(5, std::count(changes.begin(), changes.end(), '\n')) << changes;
  EXPECT_TRUE(ToDelete().check(oldLow));
  EXPECT_TRUE(Unsaved().check(Files("Low")) && Unsaved().check(Files("High")));
  EXPECT_EQ(1, host_.closedWithoutRecord);
}

TEST_F(CheckOutTest, TakesFilesFromAnotherFolderForOnce) {
  ImportTwo();
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  const std::string edited = WavBytes(SomeSound(77));
  Edit("kick (Low).wav", edited, "other");
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE,
            Untouched([&] { return access_.CheckIn("S:\\other"); }));
  Edit("kick (High).wav", edited, "other");
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckIn("S:\\other"));
  EXPECT_EQ(edited, ReadBytes(Native(RawPath("Low"))));
}

TEST_F(CheckOutTest, StaysOutWhereWhatComesInIsNoSound) {
  ImportTwo();
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  Edit("kick (High).wav", "no sound any more");
  EXPECT_EQ(SDAccess::ERROR_COULDNOTLOAD, Untouched([&] { return access_.CheckIn(); }));
  EXPECT_EQ(30u, Record("High").info.length);
  host_.refuseBegin = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, Untouched([&] { return access_.CheckIn(); }));
  host_.refuseBegin = false;
  EXPECT_TRUE(access_.IsCheckedOut());
  EXPECT_FALSE(access_.CanUndoCheckIn());
}

// --- The way back ---

TEST_F(CheckOutTest, UndoOfACheckInThatNoSaveCoversLeavesNoTrace) {
  ImportTwo();
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  Edit("kick (Low).wav", WavBytes(SomeSound(77)));
  const Tree before = Database();
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  EXPECT_EQ(SDAccess::ERROR_OK, access_.UndoCheckIn());
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_TRUE(Exists(RawPath("Low")) && Exists(EncodedPath("Low")));
  EXPECT_FALSE(ToDelete().check(Files("Low")) || ToDelete().check(Files("High")));
  EXPECT_EQ(77u, Record("Low").info.length) << "only names come back";
  EXPECT_EQ(SDAccess::ERROR_NOPRECHECKINSTATE, Untouched([&] { return access_.UndoCheckIn(); }));
}

// Only a check-in that stands lets the old folder go.
TEST_F(CheckOutTest, UndoTakesAnOldFolderBackThatASaveHasCovered) {
  ImportTwo();
  FakeNode& stays = host_.AddSample("stays");
  ASSERT_TRUE(stays.Sample().Copy(&node_));
  const SDDeleteInfo gone(&stays.Sample(), &SDTestAccess::Samples(stays.Sample()).front());
  const SDDeleteInfo old = Files("Low");
  OutAndIn();
  ASSERT_EQ(SDAccess::ERROR_OK, stays.Sample().CheckOut("S:\\out"));
  ASSERT_EQ(SDAccess::ERROR_OK, stays.Sample().CheckIn());
  const SDDeleteInfo saved = Files("Low");
  Save();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.UndoCheckIn());
  EXPECT_EQ(old, Files("Low"));
  EXPECT_FALSE(ToDelete().check(old));
  EXPECT_TRUE(ToDelete().check(saved));
  host_.shutDown = true;
  host_.Close();
  for (const SDDeleteInfo& files : {old, saved})
    EXPECT_TRUE(Exists(files.getRawName()) && Exists(files.getEncodedName()));
  EXPECT_FALSE(Exists(gone.getFolder()));
}

// A re-import under another extension keeps the old name until the next move.
TEST_F(CheckOutTest, UndoFindsTheOldFileUnderItsExtension) {
  const struct {
    const char* beside;
    const char* taken;
  } cases[] = {{"Low.old.wav", "\\Low.wav"},  // no raw file of that class,
               {"Lower.wav", "\\Low.wav"},    // nor this
               {"Low.wave", "\\Low.wave"},    // the name that is made is there
               {"Low.aif", "\\Low.wave"}};    // two others: nobody knows which
  for (const auto& [beside, taken] : cases) {
    SCOPED_TRACE(beside);
    Import("low.wav", SomeSound(20), kPcm16, "Low");
    Import("low.wave", SomeSound(25), kPcm16, "Low");
    const SDDeleteInfo old = Files("Low");
    ASSERT_THAT(old.getRawName().c_str(), EndsWith("\\Low.wav"));
    OutAndIn();
    ASSERT_THAT(RawPath("Low").c_str(), EndsWith("\\Low.wave"));
    WriteBytes(Native(old.getFolder()) + "/" + beside, "");
    DIOFile::CreateDirectoryA(old.getFolder() + "\\Low.folder");
    EXPECT_EQ(SDAccess::ERROR_OK, access_.UndoCheckIn());
    EXPECT_EQ(old.getFolder(), Files("Low").getFolder());
    EXPECT_THAT(RawPath("Low").c_str(), EndsWith(taken));
    EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  }
}

TEST_F(CheckOutTest, UndoEndsAtASampleThatCannotBeNamed) {
  ImportTwo();
  OutAndIn();
  const qz::string newName = Record("High").fileName;
  SDTestAccess::Samples(access_).back().originalName = "S:\\wav\\no extension";
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, access_.UndoCheckIn());
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, LastError());
  EXPECT_TRUE(Exists(RawPath("Low"))) << "the one in front of it is back";
  EXPECT_EQ(newName, Record("High").fileName);
  EXPECT_FALSE(access_.CanUndoCheckIn()) << "no way to repeat it";
}

TEST_F(CheckOutTest, UndoIsWholeOrNothingWhereMemoryRunsOut) {
  ImportTwo();
  const Tree before = Database();
  const SDDeleteInfoList toDelete = ToDelete();
  const SDDeleteInfoList unsaved = Unsaved();
  for (int n = 1; !HasFailure(); ++n) {
    ToDelete() = toDelete;
    Unsaved() = unsaved;
    OutAndIn();
    const SDDeleteInfo newFiles = Files("High");
    FailingAllocation fault(n);
    SDAccess::SDError error = access_.UndoCheckIn();
    const bool fired = fault.Fired();
    if (error != SDAccess::ERROR_OK) {
      EXPECT_EQ(SDAccess::ERROR_NOMEMORY, error) << n;
      EXPECT_TRUE(access_.CanUndoCheckIn()) << n;
      EXPECT_EQ(newFiles, Files("High")) << n;
      EXPECT_TRUE(Unsaved().check(newFiles) && !ToDelete().check(newFiles)) << n;
      EXPECT_TRUE(Exists(newFiles.getRawName())) << n;
      error = access_.UndoCheckIn();
    }
    EXPECT_EQ(SDAccess::ERROR_OK, error) << n;
    EXPECT_THAT(Difference(before, Database()), ::testing::Not(::testing::HasSubstr("gone"))) << n;
    EXPECT_TRUE(Exists(RawPath("Low")) && Exists(RawPath("High"))) << n;
    EXPECT_FALSE(ToDelete().check(Files("Low")) || ToDelete().check(Files("High"))) << n;
    if (!fired) return;
  }
}

}  // namespace
}  // namespace sdtest
