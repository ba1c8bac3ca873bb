// Files, folders and searches, as the disk shows them.
#include <map>

#include "tests/diskio_support.h"

namespace {

using diskio_test::Faults;
using diskio_test::TempFolder;
using platform::Call;
using Names = std::set<std::string>;

class FilesTest : public ::testing::Test {
 protected:
  TempFolder folder;
};

TEST_F(FilesTest, DeleteTakesFilesAndEmptyFolders) {
  std::filesystem::create_directories(folder.Native("full/empty"));
  folder.Put("file", "x");
  EXPECT_FALSE(DIOFile::Delete(folder.Path("none")));
  EXPECT_FALSE(DIOFile::Delete(folder.Path("full")));
  EXPECT_TRUE(DIOFile::Delete(folder.Path("FILE")));
  EXPECT_TRUE(DIOFile::Delete(folder.Path("full\\empty")));
  EXPECT_EQ(folder.Names(), Names{"full/"});
}

TEST_F(FilesTest, CopyAndRenameNeverReplace) {
  folder.Put("a", "first");
  folder.Put("b", "second");
  EXPECT_FALSE(DIOFile::Copy(folder.Path("a"), folder.Path("B")));
  EXPECT_FALSE(DIOFile::Rename(folder.Path("a"), folder.Path("b")));
  EXPECT_FALSE(DIOFile::Copy(folder.Path("none"), folder.Path("c")));
  EXPECT_TRUE(DIOFile::Copy(folder.Path("a"), folder.Path("c")));
  EXPECT_TRUE(DIOFile::Rename(folder.Path("a"), folder.Path("d")));
  EXPECT_EQ(folder.Names(), (Names{"b", "c", "d"}));
  EXPECT_EQ(folder.Get("b") + folder.Get("c") + folder.Get("d"), "secondfirstfirst");
}

TEST_F(FilesTest, CreatePathMakesWhatIsMissing) {
  EXPECT_TRUE(DIOFile::CreatePath(folder.Path("a/b\\.\\c.txt"), true));
  EXPECT_EQ(folder.Names(), (Names{"a/", "a/b/"}));
  EXPECT_TRUE(DIOFile::CreatePath(folder.Path("A\\b\\d\\e"), false));
  EXPECT_EQ(folder.Names(), (Names{"a/", "a/b/", "a/b/d/", "a/b/d/e/"}));
  // A separator at the end leaves no component to make.
  EXPECT_TRUE(DIOFile::CreatePath(folder.Path("x\\"), false));
  folder.Put("file", "");
  EXPECT_FALSE(DIOFile::CreatePath(folder.Path("file\\x.txt"), true));
  EXPECT_EQ(folder.Names().size(), 5u);

  // What was made before a failure stays.
  Faults faults;
  faults.Fail(Call::kCreateDirectory, 2);
  EXPECT_FALSE(DIOFile::CreatePath(folder.Path("p\\q\\r"), false));
  EXPECT_EQ(folder.Names().count("p/"), 1u);
  EXPECT_EQ(folder.Names().size(), 6u);
  EXPECT_FALSE(DIOFile::CreatePath(folder.Path(std::string(260, 'y') + "\\z"), false));
  EXPECT_EQ(folder.Names().size(), 6u);
}

TEST_F(FilesTest, ASearchDescribesEachEntry) {
  folder.Put("Z\xC3\xBC.wav", "12345");
  folder.Put("other.txt", "");
  std::filesystem::create_directory(folder.Native("sub.wav"));
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
    found.emplace(info.fullName.c_str(), info);
  } while (DIOFile::FindNext(info));
  EXPECT_EQ(found.count(info.fullName.c_str()), 1u);  // the last entry stays
  EXPECT_TRUE(DIOFile::FindClose(info));
  EXPECT_EQ(info.privateData, nullptr);
  EXPECT_FALSE(DIOFile::FindNext(info));
  EXPECT_FALSE(DIOFile::FindClose(info));

  ASSERT_EQ(found.size(), 5u);
  const std::string here = folder.Path("").c_str();
  const std::string above = here.substr(0, here.rfind('\\'));
  const struct {
    const char* name;
    std::string base;
    std::string path;
    bool isDir;
    qz::ulong flags;  // archive aside
    qz::uint64 size;
  } cases[] = {
      {"Z\xC3\xBC.wav", "Z\xC3\xBC.wav", here + "\\", false, 0, 5},
      {"other.txt", "other.txt", here + "\\", false,
       DIOFile::ATTRIBUTE_READONLY | DIOFile::ATTRIBUTE_HIDDEN, 0},
      {"sub.wav", "sub.wav", here + "\\", true, 0, 0},
      // These two describe the folder that they stand for.
      {".", here.substr(here.rfind('\\') + 1), above + "\\", true, 0, 0},
      {"..", above.substr(above.rfind('\\') + 1), above.substr(0, above.rfind('\\') + 1), true, 0,
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(found.count(c.name), 1u);
    const DIOFile::DIOFileInfo& entry = found[c.name];
    EXPECT_EQ(entry.baseName.c_str(), c.base);
    EXPECT_EQ(entry.pathName.c_str(), c.path);
    EXPECT_EQ(entry.isDir, c.isDir);
    EXPECT_EQ(entry.attributes & ~qz::ulong{DIOFile::ATTRIBUTE_ARCHIVE}, c.flags);
    if (!c.isDir) {
      EXPECT_EQ(entry.size, c.size);
    }
    EXPECT_GE(entry.timeWrite.year, 2024);
    EXPECT_GE(entry.timeAccess.year, 2024);
    if (c.path == here + "\\") {
      EXPECT_GE(entry.timeCreate.year, 2024);  // the folder above may be older than its medium
    }
  }
}

TEST_F(FilesTest, ASearchWithoutFolderLooksIntoTheCurrentOne) {
  folder.Put("a.wav", "x");
  qz::string before;
  ASSERT_TRUE(DIOFile::GetCurrentDirectoryA(before));
  ASSERT_TRUE(DIOFile::ChangeDirectory(folder.Path("")));
  qz::string current;
  EXPECT_TRUE(DIOFile::GetCurrentDirectoryA(current));
  EXPECT_TRUE(DIOFile::PathsIdentical(current, folder.Path("")));
  DIOFile::DIOFileInfo info;
  EXPECT_TRUE(DIOFile::FindFirst("*.wav", info));
  EXPECT_TRUE(info.baseName == "a.wav");
  EXPECT_TRUE(info.pathName == folder.Path("") + "\\");
  EXPECT_TRUE(DIOFile::FindClose(info));
  EXPECT_TRUE(DIOFile::ChangeDirectory(before));
  EXPECT_FALSE(DIOFile::ChangeDirectory(folder.Path("none")));
}

TEST_F(FilesTest, AFailedSearchLeavesNoneOpen) {
  folder.Put("a", "");
  folder.Put("b", "");
  DIOFile::DIOFileInfo info;
  EXPECT_FALSE(DIOFile::FindFirst(folder.Path("none*"), info));
  EXPECT_EQ(info.privateData, nullptr);
  Faults faults;
  faults.Fail(Call::kGetFullPathName);
  EXPECT_FALSE(DIOFile::FindFirst(folder.Path("a"), info));
  EXPECT_EQ(info.privateData, nullptr);
  EXPECT_TRUE(info.fullName == "a");
  EXPECT_TRUE(info.pathName.empty());
  EXPECT_EQ(faults.Take(Call::kFindClose), 1);

  // The next entry counts even where its path cannot be told.
  ASSERT_TRUE(DIOFile::FindFirst(folder.Path("?"), info));
  faults.Fail(Call::kGetFullPathName);
  EXPECT_TRUE(DIOFile::FindNext(info));
  EXPECT_TRUE(DIOFile::FindClose(info));
}

TEST_F(FilesTest, UniqueNamesAreEmptyFilesOfTheCaller) {
  const qz::string first = DIOFile::CreateUniqueTempName();
  const qz::string second = DIOFile::CreateUniqueTempName();
  EXPECT_FALSE(DIOFile::PathsIdentical(first, second));
  for (const qz::string& name : {first, second}) {
    DIOFile::DIOFileInfo info;
    ASSERT_TRUE(DIOFile::FindFirst(name, info));
    EXPECT_EQ(info.size, 0u);
    EXPECT_EQ(info.baseName.find("dio"), 0u);
    EXPECT_TRUE(DIOFile::FindClose(info));
    EXPECT_TRUE(DIOFile::Delete(name));
  }
}

}  // namespace
