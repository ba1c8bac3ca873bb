// The stored form of a setup node, what a save means to the lists of files, and files that are not
// what they should be.
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

TEST_F(StoredSetup, HasTheAgreedBytes) {
  Fill();
  const std::string payload =
      Bytes({'.', '\\', 's', 'a', 'm', 'p', 'l', 'e', 's', '\\', 0}) + Bytes({2, 0}) +
      // A percent sign is text.
      std::string("Low 50%s") + Bytes({0, 1, 7, 0}) + std::string("High") + Bytes({0, 200, 0, 0});
  const auto size = static_cast<int>(payload.size());
  const std::string body = "TYPE" + Bytes({16, 0, 0, 0, 0, 0, 0, 0}) +
                           Bytes({0xD2, 0x1E, 0x55, 0xD0, 0x87, 0x14, 0xD4, 0x11,  //
                                  0xBA, 0x67, 0x00, 0x50, 0xDA, 0x72, 0xA9, 0x82}) +
                           "VERS" + Bytes({4, 0, 0, 0, 0, 0, 0, 0}) + Bytes({0, 0, 1, 0}) + "DATA" +
                           Bytes({size, 0, 0, 0, 0, 0, 0, 0}) + payload;
  EXPECT_EQ("KLVO" + Bytes({72 + size, 0, 0, 0, 0, 0, 0, 0}) + "OBJ " + body, Stored());

  EXPECT_EQ("head" + body + "tail", StoredInDatabase());
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
