// The stored form of a setup node, what a save means to the lists of files, and files that are not
// what they should be.
#include "tests/format_page.h"
#include "tests/sd_stored.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values)
    bytes += static_cast<char>(value);
  return bytes;
}

class StoredSetup : public StoredTest<SDSetup, SampleDataTest> {
 protected:
  StoredSetup() : node_(host_.AddSetup()), setup_(node_.Setup()) {}

  void Fill() {
    setup_.SetSampleFolder("S:\\db\\samples\\");
    setup_.AddQualityClass("Low 50%s", 1, 7);
    setup_.AddQualityClass("High", 200, 0);
  }

  FakeNode& Node() override { return node_; }

  std::vector<int> Counts() {
    std::vector<int> counts;
    for (const SDClass& entry : SDTestAccess::Classes(setup_))
      counts.push_back(entry.GetRefCount());
    return counts;
  }

  FakeNode& node_;
  SDSetup& setup_;
};

TEST_F(StoredSetup, HasTheBytesOfItsPage) {
  setup_.SetSampleFolder("S:\\db\\samples\\");
  setup_.AddQualityClass("Low", 10, 0);
  setup_.AddQualityClass("High", 100, 1);
  const std::string example = format_page::Examples("node-file.md")[1];
  EXPECT_EQ(example, Stored());
  EXPECT_EQ("head" + example.substr(16) + "tail", StoredInDatabase());
}

TEST_F(StoredSetup, ComesBackWithItsCountsFromADatabaseOnly) {
  Fill();
  const std::string stored = Stored();
  for (const bool ownFile : {false, true}) {
    setup_.SetSampleFolder("S:\\x\\");
    setup_.AddQualityClass("gone with the load", 99);
    const SDVersionID before = SDTestAccess::SavedVersion(setup_);
    ASSERT_EQ(SDSetup::ERROR_OK, ownFile
                                     ? LoadFile(stored)
                                     : LoadFromDatabase(stored.substr(kVersionAt) + "tail", node_));
    EXPECT_EQ(".\\samples\\", setup_.GetSampleFolder());
    EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("Low 50%s", "High"));
    EXPECT_THAT(Counts(), ElementsAre(ownFile ? 0 : 7, 0));
    EXPECT_NE(before, SDTestAccess::SavedVersion(setup_));
  }
}

TEST_F(StoredSetup, SortsStoredClassesAndDropsRepeatedOnes) {
  std::string stored = Stored().substr(0, kPayloadAt);
  const auto entry = [](const char* name, int level) {
    return std::string(name) + Bytes({0, level, 0, 0});
  };
  stored += Bytes({0, 5, 0}) + entry("b", 9) + entry("a", 3) + entry("b", 4) + entry("c", 3) +
            entry("B", 5);
  EXPECT_EQ(SDSetup::ERROR_OK, LoadFile(stored));
  EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("a", "B", "b"));
}

TEST_F(StoredSetup, LoadsNoClassWhileASampleIsCheckedOut) {
  Fill();
  const std::string stored = Stored();
  SDTestAccess::CheckedOut(host_.AddSample().Sample()) = true;
  EXPECT_EQ(SDSetup::ERROR_OK, LoadFile(stored));
  EXPECT_EQ(0, setup_.GetNumQualityClasses());
}

// --- Files that are not what they should be ---

TEST_F(StoredSetup, RefusesAFileThatEndsEarly) {
  Fill();
  RefusesEveryCut();
}

TEST_F(StoredSetup, RefusesAHeadInWhichAByteIsWrong) {
  Fill();
  JudgesEveryByteOfTheHead([] {});
}

TEST_F(StoredSetup, JudgesTheVersionBehindTheHeadOfTheData) {
  Fill();
  const SDVersionID before = SDTestAccess::SavedVersion(setup_);
  std::string newer = Stored();
  newer[58] = 2;
  std::string misspelled = newer;
  misspelled[60] = 'd';
  setup_.SetSampleFolder("S:\\kept\\");
  const SDVersionID saved = SDTestAccess::SavedVersion(setup_);
  EXPECT_NE(before, saved);
  EXPECT_EQ(SDSetup::ERROR_BADFORMAT, LoadFile(misspelled));
  EXPECT_EQ(SDSetup::ERROR_BADVERSION, LoadFile(newer));
  EXPECT_EQ("Bad version", FakeHost::ErrorText(node_));
  EXPECT_EQ("..\\kept\\", setup_.GetSampleFolder());
  EXPECT_THAT(Counts(), ElementsAre(7, 0));
  EXPECT_EQ(saved, SDTestAccess::SavedVersion(setup_));
}

TEST_F(StoredSetup, KeepsWhatWasReadInFrontOfACut) {
  Fill();
  const std::string stored = Stored();
  setup_.SetSampleFolder("S:\\x\\");
  EXPECT_EQ(SDSetup::ERROR_COULDNOTREAD, LoadFile(stored.substr(0, stored.size() - 1)));
  EXPECT_EQ(".\\samples\\", setup_.GetSampleFolder());
  EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("Low 50%s"));
}

}  // namespace
}  // namespace sdtest
