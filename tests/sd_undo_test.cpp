// Undo of changes, deletions and copies of a sample node where something fails or the host has a
// say; what comes back else, and which files leave the disk, the random walk compares.
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

class UndoTest : public SampleNodeTest {
 protected:
  // Back to the host's list, for it to discard.
  void GiveBack(const HDBUndoInfo& info) { host_.undo.push_back({nullptr, info}); }
};

TEST_F(UndoTest, OfALoadBringsTheListBackAndTouchesNoFile) {
  ImportTwo();
  const qz::string file = "S:\\node";
  ASSERT_TRUE(access_.Save(nullptr, &file));
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

// --- Deletion of a node ---

TEST_F(UndoTest, OfADeletionStopsAtAFileThatIsGone) {
  ImportTwo();
  const SDDeleteInfo low = Files("Low");
  const SDDeleteInfo high = Files("High");
  HDBUndoInfo record;
  record.description = "the host's";
  EXPECT_TRUE(access_.GatherDeleteInfo(&record));
  EXPECT_EQ("the host's", record.description);
  host_.Remove(node_);
  ASSERT_TRUE(DIOFile::Delete(high.getEncodedName()));
  FakeNode& again = host_.AddSample();
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

TEST_F(UndoTest, ACopyThatFailsKeepsWhatItHas) {
  ImportTwo();
  FakeNode& refused = host_.AddSample("refused");
  host_.refuseBegin = true;
  EXPECT_FALSE(refused.Sample().Copy(&node_));
  EXPECT_EQ(SDAccess::ERROR_READONLY, ErrorOf(refused));
  host_.refuseBegin = false;

  ASSERT_TRUE(DIOFile::Delete(EncodedPath("High")));
  const std::size_t undo = host_.undo.size();
  FakeNode& copy = host_.AddSample("copy");
  EXPECT_FALSE(copy.Sample().Copy(&node_));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, ErrorOf(copy));
  EXPECT_THAT(copy.Sample().GetQualityClasses(), ElementsAre("Low"));
  EXPECT_EQ("", copy.Sample().GetSelQualityClass());
  EXPECT_EQ(undo, host_.undo.size());
  EXPECT_EQ(1, host_.closedWithoutRecord);
}

}  // namespace
}  // namespace sdtest
