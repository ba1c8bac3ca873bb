// How files leave the disk. Which ones, the random walk compares.
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
