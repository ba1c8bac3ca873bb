// Paths as text: worked cases, and the limits of their buffers.
#include <string>

#include "tests/diskio_support.h"

namespace {

using diskio_test::Faults;
using platform::Call;

TEST(PathsTest, CleanupGivesTheNormalForm) {
  const struct {
    const char* path;
    const char* clean;
  } cases[] = {
      {"", ""},
      {"a/b", "a\\b"},
      {"a\\.\\b", "a\\b"},
      {"a\\.\\.\\.\\b", "a\\b"},
      {"a.\\b", "a\\b"},
      {"a..\\b", "a..\\b"},
      {"..\\a", "..\\a"},
      {"..\\..\\a", "..\\..\\a"},
      {"a\\..\\b", "a\\..\\b"},
      {".\\a", "\\a"},
      {"a\\.", "a\\."},
      {"\\\\server\\x", "\\\\server\\x"},
      {"//server//x", "\\\\server\\x"},
      {"\\\\\\x", "\\\\\\x"},
      {"\\\\\\\\x", "\\\\\\x"},
      {"c:\\a\\\\b\\", "c:\\a\\b\\"},
      {"C:/Sound//.//High.wav", "C:\\Sound\\High.wav"},
      {"Z\xC3\xBC/\xE9\x9F\xB3", "Z\xC3\xBC\\\xE9\x9F\xB3"},
  };
  for (const auto& c : cases) {
    qz::string path = c.path;
    EXPECT_TRUE(DIOFile::CleanupPath(path));
    EXPECT_STREQ(path.c_str(), c.clean) << c.path;
  }
}

TEST(PathsTest, IdenticalPathsAreOneTextAfterCleaningCaseAside) {
  EXPECT_TRUE(DIOFile::PathsIdentical("C:/Sound/", "c:\\sound\\"));
  EXPECT_TRUE(DIOFile::PathsIdentical("C:\\a\\.\\[Z]@", "c:\\A\\\\[z]@"));
  EXPECT_TRUE(DIOFile::PathsIdentical("", ""));
  EXPECT_FALSE(DIOFile::PathsIdentical("C:\\a", "C:\\a\\"));
  EXPECT_FALSE(DIOFile::PathsIdentical("C:\\a\\..\\b", "C:\\b"));
  EXPECT_FALSE(DIOFile::PathsIdentical("C:\\a@", "C:\\a`"));  // neighbours of the letters
  EXPECT_FALSE(DIOFile::PathsIdentical("C:\\\xC3\xBC", "C:\\\xC3\x9C"));
}

TEST(PathsTest, SplitNameTakesTheLastComponentOff) {
  const struct {
    const char* full;
    const char* path;
    const char* base;
  } cases[] = {
      {"C:\\dir\\sub", "C:\\dir", "sub"},
      {"C:\\dir", "C:\\", "dir"},
      {"C:\\", "C:\\", ""},
      {"C:", "C:", ""},
      {"C:file", "C:", "file"},
      {"file.txt", "", "file.txt"},
      {"C:\\dir\\", "C:\\dir", ""},
      {"C:\\dir\\\\\\x.tar.gz", "C:\\dir", "x.tar.gz"},
      {"\\x", "\\", "x"},
      {"\\\\x", "\\\\", "x"},
      {"\\\\\\x", "\\", "x"},
      {"a.b\\c", "a.b", "c"},
      {"", "", ""},
  };
  for (const auto& c : cases) {
    qz::string path = "old";
    qz::string base = "old";
    DIOFile::SplitName(c.full, path, base);
    EXPECT_STREQ(path.c_str(), c.path) << c.full;
    EXPECT_STREQ(base.c_str(), c.base) << c.full;
  }
  // A path may be split into itself.
  qz::string path = "C:\\dir\\sub";
  DIOFile::SplitName(path, path, path);
  EXPECT_STREQ(path.c_str(), "sub");
}

TEST(PathsTest, ChopExtensionCutsAtTheLastDotWhereverItIs) {
  const struct {
    const char* name;
    const char* left;
    const char* extension;
    bool chopped;
  } cases[] = {
      {"High.wav", "High", "wav", true},
      {"a.b.c", "a.b", "c", true},
      {"C:\\a.b\\c", "C:\\a", "b\\c", true},
      {"name.", "name", "", true},
      {".x", "", "x", true},
      {"name", "name", "", false},
  };
  for (const auto& c : cases) {
    qz::string name = c.name;
    qz::string extension = "old";
    EXPECT_EQ(DIOFile::ChopExtension(name, extension), c.chopped) << c.name;
    EXPECT_STREQ(name.c_str(), c.left);
    EXPECT_STREQ(extension.c_str(), c.extension);
  }
}

TEST(PathsTest, ExpandPathNeedsNoFileAndChangesNothingOnFailure) {
  qz::string path = "old";
  EXPECT_TRUE(DIOFile::ExpandPath("C:\\no\\such\\..\\folder\\x.wav", path));
  EXPECT_STREQ(path.c_str(), "C:\\no\\folder\\x.wav");
  // 259 characters fit, one more does not.
  const std::string longest = "C:\\" + std::string(250, 'd') + "\\" + std::string(5, 'f');
  EXPECT_TRUE(DIOFile::ExpandPath(longest.c_str(), path));
  EXPECT_STREQ(path.c_str(), longest.c_str());
  EXPECT_FALSE(DIOFile::ExpandPath((longest + "f").c_str(), path));
  Faults faults;
  faults.Fail(Call::kGetFullPathName);
  EXPECT_FALSE(DIOFile::ExpandPath("x", path));
  EXPECT_STREQ(path.c_str(), longest.c_str());
}

TEST(PathsTest, RelativePathsLeadFromOneEndToTheOther) {
  qz::string path = "old";
  EXPECT_TRUE(DIOFile::MakeRelativePath(path, "C:\\a\\b", "C:\\a\\c\\d"));
  EXPECT_STREQ(path.c_str(), "..\\c\\d");
  EXPECT_TRUE(DIOFile::MakeRelativePath(path, "C:\\a\\b\\x.db", false, "C:\\a\\b\\s\\y", false));
  EXPECT_STREQ(path.c_str(), ".\\s\\y");
  EXPECT_TRUE(DIOFile::MakeRelativePath(path, "C:\\a\\b", true, "C:\\a\\y", false));
  EXPECT_STREQ(path.c_str(), "..\\y");
  // No common root: the two forms differ in what they leave behind.
  EXPECT_FALSE(DIOFile::MakeRelativePath(path, "C:\\a", true, "D:\\a", true));
  EXPECT_STREQ(path.c_str(), "..\\y");
  EXPECT_FALSE(DIOFile::MakeRelativePath(path, "C:\\a", "D:\\a"));
  EXPECT_STREQ(path.c_str(), "");
}

TEST(PathsTest, TimesCompareByTheirFieldsButTheDayOfTheWeek) {
  const DIOFile::DIOFileTime base{2004, 6, 3, 16, 12, 30, 30, 500};
  DIOFile::DIOFileTime other = base;
  other.dayOfWeek = 1;
  EXPECT_TRUE(base == other && base <= other && base >= other);
  EXPECT_FALSE(base != other || base < other || base > other);
  qz::ushort DIOFile::DIOFileTime::*const fields[] = {
      &DIOFile::DIOFileTime::year,        &DIOFile::DIOFileTime::month,
      &DIOFile::DIOFileTime::day,         &DIOFile::DIOFileTime::hour,
      &DIOFile::DIOFileTime::minute,      &DIOFile::DIOFileTime::second,
      &DIOFile::DIOFileTime::milliseconds};
  // Each field outweighs all behind it.
  for (std::size_t i = 0; i < std::size(fields); ++i) {
    other = base;
    other.*fields[i] = static_cast<qz::ushort>(other.*fields[i] + 1);
    for (std::size_t j = i + 1; j < std::size(fields); ++j)
      other.*fields[j] = 0;
    EXPECT_TRUE(base < other && other > base && base <= other && base != other) << i;
    EXPECT_FALSE(base > other || base >= other || base == other) << i;
  }
}

}  // namespace
