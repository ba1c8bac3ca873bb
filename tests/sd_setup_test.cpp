// The setup node: one per database, its quality classes, its sample folder, and the files that it
// deletes.
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

class SetupNode : public SampleDataTest {
 protected:
  SetupNode() : node_(host_.AddSetup()), setup_(node_.Setup()) {}

  FakeNode& node_;
  SDSetup& setup_;
};

TEST_F(SetupNode, RegistersWithTheDatabaseUntilItGoes) {
  EXPECT_TRUE(node_.InitSucceeded());
  EXPECT_FALSE(node_.IsDuplicate());
  EXPECT_EQ(ID_TYPE_COMMON, setup_.GetRefType());
  EXPECT_EQ("Ok", FakeHost::ErrorText(node_));
  host_.Remove(node_);
  EXPECT_EQ(nullptr, host_.GetSampleSetupNode());
}

TEST_F(SetupNode, RefusesASecondOneAndKeepsTheFirst) {
  FakeNode& second = host_.AddSetup();
  EXPECT_FALSE(second.InitSucceeded());
  EXPECT_TRUE(second.IsDuplicate());
  EXPECT_EQ(SDSetup::ERROR_SETUPALREADYEXISTS, SDTestAccess::LastError(second.Setup()));
  EXPECT_EQ("Setup node already exists", FakeHost::ErrorText(second));
  host_.Remove(second);
  EXPECT_EQ(&node_, host_.GetSampleSetupNode());
}

// --- Classes ---

TEST_F(SetupNode, KeepsClassesByAscendingLevel) {
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.AddQualityClass("five", 5));
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.AddQualityClass("one", 1));
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.AddQualityClass("three", 3));
  EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("one", "three", "five"));
  EXPECT_EQ(3, setup_.GetNumQualityClasses());
  qz::string name = "untouched";
  EXPECT_FALSE(setup_.GetQualityClassName(3, name));
  EXPECT_FALSE(setup_.GetQualityClassNameFromLevel(2, name));
  EXPECT_EQ("untouched", name);
  EXPECT_TRUE(setup_.GetQualityClassName(1, name));
  EXPECT_EQ("three", name);
  EXPECT_TRUE(setup_.GetQualityClassNameFromLevel(5, name));
  EXPECT_EQ("five", name);
}

TEST_F(SetupNode, TakesNamesWithCaseAndRefusesRepeatedOnes) {
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.AddQualityClass("High", 1));
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.AddQualityClass("high", 2));
  // The name is looked at first.
  EXPECT_EQ(SDSetup::ERROR_CLASSALREADYEXISTS, setup_.AddQualityClass("High", 2));
  EXPECT_EQ("Quality Class already defined", FakeHost::ErrorText(node_));
  EXPECT_EQ(SDSetup::ERROR_LEVELALREADYEXISTS, setup_.AddQualityClass("new", 2));
  EXPECT_EQ("Quality Level already defined", FakeHost::ErrorText(node_));
  EXPECT_TRUE(setup_.ProbeQualityClass("high"));
  EXPECT_FALSE(setup_.ProbeQualityClass("HIGH"));
  EXPECT_TRUE(setup_.ProbeQualityClass(static_cast<qz::uchar>(1)));
  EXPECT_FALSE(setup_.ProbeQualityClass(static_cast<qz::uchar>(3)));
}

TEST_F(SetupNode, HoldsAClassForEveryLevel) {
  for (int level = 0; level < 256; ++level) {
    const std::string name = std::to_string(level);
    ASSERT_EQ(SDSetup::ERROR_OK,
              setup_.AddQualityClass(name.c_str(), static_cast<qz::uchar>(level)));
  }
  EXPECT_EQ(0, setup_.GetNumQualityClasses());  // cut to 8 bits
  qz::string name;
  EXPECT_TRUE(setup_.GetQualityClassName(255, name));
  EXPECT_EQ("255", name);
  EXPECT_EQ(127, setup_.GetQualityClassLevel("127"));
  EXPECT_EQ(-128, setup_.GetQualityClassLevel("128"));
  EXPECT_EQ(-1, setup_.GetQualityClassLevel("unknown"));
}

TEST_F(SetupNode, KeepsAClassThatIsReferenced) {
  setup_.AddQualityClass("High", 1);
  EXPECT_TRUE(setup_.AddRef("High"));
  EXPECT_EQ(SDSetup::ERROR_CLASSSTILLUSED, setup_.RemoveQualityClass("High"));
  EXPECT_EQ("Quality Class still used", FakeHost::ErrorText(node_));
  EXPECT_TRUE(setup_.RemoveRef("High"));
  EXPECT_FALSE(setup_.RemoveRef("Low"));
  EXPECT_FALSE(setup_.AddRef("Low"));
  EXPECT_EQ(SDSetup::ERROR_CLASSDOESNOTEXIST, setup_.RemoveQualityClass("Low"));
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.RemoveQualityClass("High"));
  EXPECT_EQ(0, setup_.GetNumQualityClasses());
  EXPECT_FALSE(setup_.RemoveRef("High"));
}

TEST_F(SetupNode, ChangesNoClassWhileASampleIsCheckedOut) {
  setup_.AddQualityClass("High", 1);
  host_.AddSample("first");
  SDAccess& sample = host_.AddSample("second").Sample();
  FakeNode other(host_, hdbTypeBaseNode, "no sample");
  other.AddReference(&node_);
  SDTestAccess::CheckedOut(sample) = true;
  EXPECT_EQ(SDSetup::ERROR_SAMPLESARECHECKEDOUT, setup_.AddQualityClass("High", 1, 3));
  EXPECT_EQ(SDSetup::ERROR_SAMPLESARECHECKEDOUT, setup_.AddQualityClass("Low", 2));
  EXPECT_EQ(SDSetup::ERROR_SAMPLESARECHECKEDOUT, setup_.RemoveQualityClass("unknown"));
  EXPECT_EQ("Some samples are checked out", FakeHost::ErrorText(node_));
  EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("High"));
  SDTestAccess::CheckedOut(sample) = false;
  EXPECT_EQ(SDSetup::ERROR_OK, setup_.RemoveQualityClass("High"));
}

// --- Sample folder ---

TEST_F(SetupNode, StoresTheFolderRelativeToTheDatabaseWhereItCan) {
  // No folder has to exist, and the operation leaves the last error alone.
  setup_.RemoveQualityClass("unknown");
  const std::string tooLong = "S:\\" + std::string(300, 'x') + "/";
  const std::vector<std::vector<std::string>> cases = {
      {"S:\\db\\game.db", "S:\\db\\samples\\", ".\\samples\\"},
      {"S:\\db\\game.db", "S:\\other\\", "..\\other\\"},
      {"S:\\db\\game.db", "T:\\elsewhere\\", "T:\\elsewhere\\"},
      {"S:\\db\\game.db", tooLong, tooLong},
      {"game.db", "S:\\samples\\", "S:\\samples\\"},    // nowhere yet
      {"S:game.db", "S:\\samples\\", ".\\samples\\"}};  // the colon is a part of its folder
  for (const std::vector<std::string>& row : cases) {
    host_.filename = row[0].c_str();
    EXPECT_EQ(0, setup_.SetSampleFolder(row[1].c_str()));
    EXPECT_EQ(row[2], setup_.GetSampleFolder().c_str());
  }
  EXPECT_EQ("Quality Class does not exist", FakeHost::ErrorText(node_));
}

// --- How files leave the disk; which ones, the random walk compares ---

class FilesToDelete : public SampleDataTest {
 protected:
  // The pair of files of one sample, on the disk.
  SDDeleteInfo Make(const std::string& folder, const std::string& name) {
    const std::string path = "S:\\db\\samples\\" + folder;
    DIOFile::CreateDirectoryA(path.c_str());
    const SDDeleteInfo files =
        SDTestAccess::Files((path + "\\" + name + ".wav").c_str(),
                            (path + "\\" + name + ".esmp").c_str(), path.c_str());
    WriteBytes(Native(files.getRawName()), "raw");
    WriteBytes(Native(files.getEncodedName()), "encoded");
    return files;
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& [name, content] : ReadTree(folder_ + "/s/db/samples"))
      names.push_back(name);
    return names;
  }

  SDDeleteInfoList list_;
};

TEST_F(FilesToDelete, TakeTheirFolderAlongUnlessItHoldsOtherFiles) {
  for (const char* name : {"High", "Low"}) {
    list_.push_back(Make("a", name));
    list_.push_back(Make("shared", name));
  }
  WriteBytes(folder_ + "/s/db/samples/shared/notes.txt", "not ours");
  EXPECT_TRUE(list_.execAll());
  EXPECT_THAT(Names(), ElementsAre("shared/", "shared/notes.txt"));
}

TEST_F(FilesToDelete, StopAtAFolderThatCannotGo) {
  list_.push_back(Make("a", "High"));
  list_.push_back(Make("b", "High"));
  list_.push_back(Make("c", "High"));
  // A subfolder is no file, so the folder is tried, and does not go; those behind it are left.
  ASSERT_TRUE(DIOFile::CreateDirectoryA("S:\\db\\samples\\b\\inner"));
  EXPECT_FALSE(list_.execAll());
  EXPECT_THAT(Names(), ElementsAre("b/", "b/inner/", "c/"));
}

TEST_F(FilesToDelete, AreTakenForGoneWhereTheyCannotBeDeleted) {
  const SDDeleteInfo files = Make("a", "High");
  list_.push_back(files);
  list_.push_back(Make("a", "Low"));
  ASSERT_TRUE(SetFileAttributesA(files.getRawName().c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_TRUE(list_.execAll());
  EXPECT_THAT(Names(), ElementsAre("a/", "a/High.wav"));
  EXPECT_TRUE(list_.execAll()) << "files that are not there are no failure";
}

TEST_F(FilesToDelete, AreFoundByTheirPathsWhateverTheSpelling) {
  const SDDeleteInfo files = SDTestAccess::Files("S:\\db\\a\\High.wav", "S:\\db\\a\\High.esmp",  //
                                                 "S:\\db\\a");
  list_.push_back(files);
  EXPECT_TRUE(list_.check(
      SDTestAccess::Files("s:/DB/a/high.WAV", "S:\\db\\.\\a\\High.esmp", "S:\\db\\\\A")));
  const qz::string other = "S:\\db\\b";
  for (const SDDeleteInfo& unlike :
       {SDTestAccess::Files(other, files.getEncodedName(), files.getFolder()),
        SDTestAccess::Files(files.getRawName(), other, files.getFolder()),
        SDTestAccess::Files(files.getRawName(), files.getEncodedName(), other)}) {
    EXPECT_FALSE(list_.check(unlike) || files == unlike);
  }
}

TEST_F(FilesToDelete, AreLeftAloneByASetupNodeThatWasRefused) {
  AddPreparedSetup();
  FakeNode& second = host_.AddSetup();
  SDTestAccess::Unsaved(second.Setup()).push_back(Make("needed", "High"));
  const Tree before = Database();
  host_.shutDown = true;
  host_.Remove(second);
  host_.shutDown = false;
  EXPECT_EQ("", Difference(before, Database()));
}

}  // namespace
}  // namespace sdtest
