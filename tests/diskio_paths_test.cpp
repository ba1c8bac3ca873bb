// Paths as text: worked cases, and the limits of their buffers.
#include <string>

#include "tests/diskio_support.h"

namespace {

using Pair = std::pair<const char*, const char*>;

TEST(PathsTest, CleanupGivesTheNormalForm) {
  for (const auto& [given, clean] :
       {Pair{"", ""}, Pair{"a/b", "a\\b"}, Pair{"a\\.\\.\\b", "a\\b"}, Pair{"a.\\b", "a\\b"},
        Pair{"a..\\b", "a..\\b"}, Pair{"..\\..\\a", "..\\..\\a"}, Pair{"a\\..\\b", "a\\..\\b"},
        Pair{".\\a", "\\a"}, Pair{"a\\.", "a\\."}, Pair{"//server//x", "\\\\server\\x"},
        Pair{"\\\\\\x", "\\\\\\x"}, Pair{"\\\\\\\\x", "\\\\\\x"},
        Pair{"c:\\a\\\\b\\", "c:\\a\\b\\"}, Pair{"C:/S//.//Z\xC3\xBC", "C:\\S\\Z\xC3\xBC"}}) {
    qz::string path = given;
    EXPECT_TRUE(DIOFile::CleanupPath(path));
    EXPECT_STREQ(path.c_str(), clean) << given;
  }
}

TEST(PathsTest, IdenticalPathsAreOneTextAfterCleaningCaseAside) {
  EXPECT_TRUE(DIOFile::PathsIdentical("C:/Sound/", "c:\\sound\\"));
  EXPECT_TRUE(DIOFile::PathsIdentical("C:\\a\\.\\[Z]@", "c:\\A\\\\[z]@"));
  EXPECT_FALSE(DIOFile::PathsIdentical("C:\\a", "C:\\a\\"));
  EXPECT_FALSE(DIOFile::PathsIdentical("C:\\a\\..\\b", "C:\\b"));
  EXPECT_FALSE(DIOFile::PathsIdentical("C:\\a@", "C:\\a`"));  // neighbours of the letters
}

TEST(PathsTest, SplitNameTakesTheLastComponentOff) {
  const char* const cases[][3] = {{"C:\\dir\\sub", "C:\\dir", "sub"},
                                  {"C:\\dir", "C:\\", "dir"},
                                  {"C:\\", "C:\\", ""},
                                  {"C:file", "C:", "file"},
                                  {"file.txt", "", "file.txt"},
                                  {"C:\\dir\\", "C:\\dir", ""},
                                  {"C:\\dir\\\\\\x.tar.gz", "C:\\dir", "x.tar.gz"},
                                  {"\\x", "\\", "x"},
                                  {"\\\\x", "\\\\", "x"},
                                  {"\\\\\\x", "\\", "x"}};
  for (const auto& c : cases) {
    qz::string path = c[0];
    qz::string base = "old";
    DIOFile::SplitName(path, path, base);  // a path may be split into itself
    EXPECT_STREQ(path.c_str(), c[1]) << c[0];
    EXPECT_STREQ(base.c_str(), c[2]) << c[0];
  }
}

TEST(PathsTest, ChopExtensionLeavesANameWithoutADotAlone) {
  qz::string name = "x";
  qz::string extension = "old";
  EXPECT_FALSE(DIOFile::ChopExtension(name, extension));
  EXPECT_TRUE(name == "x" && extension.empty());
  name = "C:\\a.b\\c";  // the last dot, wherever it is
  EXPECT_TRUE(DIOFile::ChopExtension(name, extension) && extension == "b\\c");
}

TEST(PathsTest, ExpandPathNeedsNoFileAndChangesNothingOnFailure) {
  qz::string path;
  EXPECT_TRUE(DIOFile::ExpandPath("C:\\no\\such\\..\\folder\\x.wav", path));
  EXPECT_STREQ(path.c_str(), "C:\\no\\folder\\x.wav");
  // 259 characters fit, one more does not.
  const std::string longest = "C:\\" + std::string(250, 'd') + "\\" + std::string(5, 'f');
  EXPECT_TRUE(DIOFile::ExpandPath(longest.c_str(), path));
  EXPECT_FALSE(DIOFile::ExpandPath((longest + "f").c_str(), path));
  EXPECT_EQ(path.c_str(), longest);
}

TEST(PathsTest, RelativePathsLeadFromOneEndToTheOther) {
  qz::string path;
  EXPECT_TRUE(DIOFile::MakeRelativePath(path, "C:\\a\\b", "C:\\a\\c\\d"));
  EXPECT_STREQ(path.c_str(), "..\\c\\d");
  EXPECT_TRUE(DIOFile::MakeRelativePath(path, "C:\\a\\b\\x.db", false, "C:\\a\\b\\s\\y", false));
  EXPECT_STREQ(path.c_str(), ".\\s\\y");
  EXPECT_FALSE(DIOFile::MakeRelativePath(path, "C:\\a", "D:\\a"));
}

TEST(PathsTest, EachFieldOfATimeOutweighsThoseBehindItButForTheDayOfTheWeek) {
  using Time = DIOFile::DIOFileTime;
  const Time base{2004, 6, 3, 16, 12, 30, 30, 500};
  Time other = base;
  other.dayOfWeek = 1;
  EXPECT_TRUE(base == other && base <= other && base >= other);
  EXPECT_FALSE(base != other || base < other || base > other);
  for (const auto field : {&Time::milliseconds, &Time::second, &Time::minute, &Time::hour,
                           &Time::day, &Time::month, &Time::year}) {
    Time later = other;  // with zeros in the fields behind
    later.*field = static_cast<qz::ushort>(later.*field + 1);
    EXPECT_TRUE(base < later && later > base && base <= later && base != later);
    EXPECT_FALSE(base > later || base >= later || base == later);
    other.*field = 0;
  }
}

}  // namespace
