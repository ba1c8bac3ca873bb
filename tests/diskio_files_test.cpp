// Files, folders and searches, as the disk shows them.
#include <map>

#include "tests/diskio_support.h"

namespace {

using diskio_test::TempFolder;
using Names = std::set<std::string>;

class FilesTest : public ::testing::Test {
 protected:
  TempFolder folder;
};

TEST_F(FilesTest, DeleteCopyAndRenameNeverLoseAnotherFile) {
  std::filesystem::create_directories(folder.Native("full/empty"));
  folder.Put("a", "first");
  folder.Put("b", "second");
  EXPECT_FALSE(DIOFile::Copy(folder.Path("a"), folder.Path("B")));
  EXPECT_FALSE(DIOFile::Rename(folder.Path("a"), folder.Path("b")));
  EXPECT_FALSE(DIOFile::Delete(folder.Path("none")));
  EXPECT_FALSE(DIOFile::Delete(folder.Path("full")));
  EXPECT_TRUE(DIOFile::Copy(folder.Path("a"), folder.Path("c")));
  EXPECT_TRUE(DIOFile::Rename(folder.Path("a"), folder.Path("d")));
  EXPECT_TRUE(DIOFile::Delete(folder.Path("C")));
  EXPECT_TRUE(DIOFile::Delete(folder.Path("full\\empty")));
  EXPECT_EQ(folder.Names(), (Names{"full/", "b", "d"}));
  EXPECT_EQ(folder.Get("b") + folder.Get("d"), "secondfirst");
}

TEST_F(FilesTest, CreatePathMakesWhatIsMissing) {
  EXPECT_TRUE(DIOFile::CreatePath(folder.Path("a/b\\.\\c.txt"), true));
  EXPECT_EQ(folder.Names(), (Names{"a/", "a/b/"}));
  EXPECT_TRUE(DIOFile::CreatePath(folder.Path("A\\b\\d"), false));
  EXPECT_EQ(folder.Names(), (Names{"a/", "a/b/", "a/b/d/"}));
  // A separator at the end leaves no component to make.
  EXPECT_TRUE(DIOFile::CreatePath(folder.Path("x\\"), false));
  EXPECT_TRUE(DIOFile::CreatePath("C:\\", true));
  EXPECT_FALSE(DIOFile::CreatePath(folder.Path(std::string(260, 'y') + "\\z"), false));
  folder.Put("file", "");
  EXPECT_FALSE(DIOFile::CreatePath(folder.Path("file\\x.txt"), true));
  EXPECT_EQ(folder.Names().size(), 4u);
}

TEST_F(FilesTest, ASearchDescribesEachEntry) {
  folder.Put("Z\xC3\xBC.wav", "12345");
  folder.Put("other.txt", "");
  ASSERT_NE(::SetFileAttributesA(folder.Path("other.txt").c_str(),
                                 FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN),
            FALSE);
  std::map<std::string, DIOFile::DIOFileInfo> found;
  DIOFile::DIOFileInfo info;
  ASSERT_TRUE(DIOFile::FindFirst(folder.Path("*"), info));
  do {
    DIOFile::DIOFileInfo copy;
    copy = info;
    EXPECT_NE(copy.privateData, info.privateData);
    found.emplace(info.fullName.c_str(), copy);
  } while (DIOFile::FindNext(info));
  EXPECT_EQ(found.count(info.fullName.c_str()), 1u);  // the last entry stays
  EXPECT_TRUE(DIOFile::FindClose(info));
  EXPECT_FALSE(DIOFile::FindNext(info) || DIOFile::FindClose(info));
  ASSERT_EQ(found.size(), 4u);

  const std::string here = folder.Path("").c_str();
  const std::string above = here.substr(0, here.rfind('\\'));
  const DIOFile::DIOFileInfo& sound = found["Z\xC3\xBC.wav"];
  EXPECT_TRUE(sound.baseName == sound.fullName);
  EXPECT_EQ(sound.pathName.c_str(), here + "\\");
  EXPECT_EQ(sound.size, 5u);
  EXPECT_TRUE(sound.timeWrite.year >= 2024 && sound.timeCreate.year >= 2024);
  EXPECT_FALSE(sound.isDir);
  EXPECT_EQ(found["other.txt"].attributes & ~qz::ulong{DIOFile::ATTRIBUTE_ARCHIVE},
            qz::ulong{DIOFile::ATTRIBUTE_READONLY} | DIOFile::ATTRIBUTE_HIDDEN);
  // These two describe the folder that they stand for.
  EXPECT_EQ(found["."].baseName.c_str(), here.substr(here.rfind('\\') + 1));
  EXPECT_EQ(found["."].pathName.c_str(), above + "\\");
  EXPECT_EQ(found[".."].baseName.c_str(), above.substr(above.rfind('\\') + 1));
  EXPECT_TRUE(found["."].isDir && found[".."].isDir);
}

TEST_F(FilesTest, ASearchWithoutFolderLooksIntoTheCurrentOne) {
  folder.Put("a.wav", "x");
  qz::string before;
  qz::string current;
  ASSERT_TRUE(DIOFile::GetCurrentDirectoryA(before));
  EXPECT_FALSE(DIOFile::ChangeDirectory(folder.Path("none")));
  ASSERT_TRUE(DIOFile::ChangeDirectory(folder.Path("")));
  EXPECT_TRUE(DIOFile::GetCurrentDirectoryA(current));
  EXPECT_TRUE(DIOFile::PathsIdentical(current, folder.Path("")));
  DIOFile::DIOFileInfo info;
  EXPECT_TRUE(DIOFile::FindFirst("*.wav", info));
  EXPECT_TRUE(info.baseName == "a.wav");
  EXPECT_TRUE(info.pathName == folder.Path("") + "\\");
  EXPECT_TRUE(DIOFile::FindClose(info));
  folder.Put(std::string(255, 'n'), "");
  EXPECT_FALSE(DIOFile::FindFirst("n*", info)) << "its path is too long";
  EXPECT_TRUE(DIOFile::ChangeDirectory(before));
}

TEST_F(FilesTest, UniqueNamesAreEmptyFilesOfTheCaller) {
  const qz::string first = DIOFile::CreateUniqueTempName();
  const qz::string second = DIOFile::CreateUniqueTempName();
  EXPECT_FALSE(DIOFile::PathsIdentical(first, second));
  EXPECT_TRUE(DIOFile::Delete(first) && DIOFile::Delete(second));
  for (const std::string& temporary : {std::string("C:\\no"), "C:\\" + std::string(300, 'x')}) {
    setenv("TMP", temporary.c_str(), 1);
    EXPECT_TRUE(DIOFile::CreateUniqueTempName().empty());
  }
  unsetenv("TMP");
}

}  // namespace
