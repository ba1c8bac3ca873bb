// Names: without case, in UTF-8 or not, in masks, and between native paths and our notation.
#include <vector>

#include "platform_support.h"

namespace {

class Names : public PlatformTest {
 protected:
  static std::vector<std::string> Find(const char* mask) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA data;
    const HANDLE search = FindFirstFileA(mask, &data);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
      names.emplace_back(data.cFileName);
    } while (FindNextFileA(search, &data));
    FindClose(search);
    EXPECT_FALSE(FindClose(search)) << "a search ends once";
    return names;
  }
};

using List = std::vector<std::string>;

std::u16string Widen(const std::string& text) {
  std::u16string wide(text.size() + 1, u'\0');
  const int size = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()),
                                       wide.data(), static_cast<int>(wide.size()));
  wide.resize(static_cast<std::size_t>(size));
  return wide;
}

std::string Narrow(const std::u16string& wide) {
  const int count = static_cast<int>(wide.size());
  const int size = WideCharToMultiByte(CP_ACP, 0, wide.data(), count, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, 0, wide.data(), count, text.data(), size, nullptr, nullptr);
  return text;
}

TEST(Text, EveryByteStringSurvives) {
  // All pairs of bytes behind each kind of lead.
  for (const char* front : {"", "\xC3", "\xE2\x82", "\xED", "\xF0\x9F", "\xF4\x8F\xBF"}) {
    for (int pair = 0; pair < 0x10000; ++pair) {
      const std::string text =
          front + std::string{static_cast<char>(pair >> 8), static_cast<char>(pair)};
      ASSERT_EQ(Narrow(Widen(text)), text) << pair;
    }
  }
}

TEST(Text, OnlyStrictUtf8IsCharacters) {
  EXPECT_EQ(Widen("\xC3\xA4\xF0\x9F\x8E\xB5"), u"\u00E4\U0001F3B5");
  EXPECT_EQ(Widen("\xC0\xAF"), (std::u16string{0xDCC0, 0xDCAF})) << "longer than needed";
  EXPECT_EQ(Widen("\xED\xA0\x80"), (std::u16string{0xDCED, 0xDCA0, 0xDC80})) << "a surrogate";
  EXPECT_EQ(Widen("a\xE2\x82"), (std::u16string{u'a', 0xDCE2, 0xDC82})) << "cut short";
  EXPECT_EQ(Narrow({0xD83C}), "\xEF\xBF\xBD");
  WCHAR small[2];
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, small, 2), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST_F(Names, AreFoundWithoutCaseInEveryComponent) {
  ASSERT_TRUE(CreateDirectoryA("T:\\Dir", nullptr));
  Put("Dir/\xC3\x84rger \xE9.wav", "1");  // a letter beyond ASCII, and a byte that is no UTF-8
  EXPECT_EQ(TryOpen("t:\\dIR\\\xC3\xA4RGER \xE9.WAV"), NO_ERROR);
  EXPECT_EQ(TryOpen("T:\\dir\\\xC3\xA4RGER \xE8.WAV"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(TryOpen("T:\\DIR\\x\\y"), ERROR_PATH_NOT_FOUND);
}

TEST_F(Names, ThatDifferInCaseAreOneFileUnlessBothExist) {
  Put("A.wav", "1");
  // The same file under another spelling is emptied, not doubled.
  EXPECT_EQ(TryOpen("T:\\a.WAV", GENERIC_WRITE, 0, CREATE_ALWAYS), NO_ERROR);
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_TRUE(MoveFileA("T:\\a.wav", "T:\\A.WAV"));
  EXPECT_EQ(Find("T:\\*"), (List{"A.WAV"}));
  // Where other programs made both, each answers to its own spelling.
  Put("a.wav", "3");
  EXPECT_TRUE(DeleteFileA("T:\\a.wav"));
  EXPECT_TRUE(Exists("A.WAV"));
}

TEST_F(Names, FoldersWithManyNamesStayCurrent) {
  // Looking twice, with a change by another program between, must show the change.
  for (int i = 0; i < 300; ++i)
    Put("file" + std::to_string(i), "");
  for (int round = 0; round < 50; ++round) {
    const std::string name = "New" + std::to_string(round);
    const std::string other = "T:\\NEW" + std::to_string(round);
    if (round % 10 == 5) {
      // A child that looks too must not take the news away from its parent.
      const auto look = [] { return GetFileAttributesA("T:\\nothing") != INVALID_FILE_ATTRIBUTES; };
      EXPECT_EQ(InChild(look), 0);
    }
    ASSERT_EQ(GetFileAttributesA(other.c_str()), INVALID_FILE_ATTRIBUTES);
    Put(name, "");
    ASSERT_EQ(GetFileAttributesA(other.c_str()), FILE_ATTRIBUTE_ARCHIVE) << round;
    std::filesystem::rename(root_ + '/' + name, root_ + "/gone" + name);
    ASSERT_EQ(GetFileAttributesA(other.c_str()), INVALID_FILE_ATTRIBUTES) << round;
  }
}

TEST_F(Names, MasksFollowTheRulesOfOldNames) {
  for (const char* name : {"game.db", "Game2.DB", "readme", "c.tar.gz", ".cfg", "b.wave"})
    Put(name, "");
  EXPECT_EQ(Find("T:\\game?.db"), (List{"Game2.DB", "game.db"}));
  EXPECT_EQ(Find("T:\\game??.db"), (List{"Game2.DB", "game.db"}));
  EXPECT_EQ(Find("T:\\readme?"), (List{"readme"}));
  EXPECT_EQ(Find("T:\\*."), (List{"readme"}));
  EXPECT_EQ(Find("T:\\*.wav"), List{});
  EXPECT_EQ(Find("T:\\*a*.*"), (List{"Game2.DB", "b.wave", "c.tar.gz", "game.db", "readme"}));
  std::string slow = "T:\\";
  for (int i = 0; i < 60; ++i)
    slow += "*a";
  EXPECT_EQ(Find(slow.c_str()), List{});
}

TEST_F(Names, ThatNoPathCanReachAreNotListed) {
  for (const char* name : {"good", "a\\b", "a:b", "what?", "dot.", "blank ", "line\nfeed"})
    Put(name, "");
  EXPECT_EQ(Find("T:\\*"), (List{"good"}));
}

TEST_F(Names, NativePathsTurnBackAndForth) {
  std::string path;
  std::string why;
  std::string native;
  ASSERT_TRUE(CreateDirectoryA("T:\\Dir", nullptr));
  EXPECT_TRUE(platform::FromNative(root_ + "/x/..//./Dir/new.wav", path, why));
  EXPECT_EQ(path, "T:\\Dir\\new.wav") << "the longest mount wins";
  EXPECT_TRUE(platform::FromNative(root_ + "x", path, why) && path.starts_with("C:"));
  EXPECT_TRUE(platform::ToNative("t:\\DIR\\new.wav", native));
  EXPECT_EQ(native, root_ + "/Dir/new.wav");
  EXPECT_TRUE(platform::FromNative("/", path, why));
  EXPECT_EQ(path, "C:\\");
  EXPECT_TRUE(platform::FromNative("some.wav", path, why));
  EXPECT_EQ(GetFileAttributesA((path + "\\..").c_str()), FILE_ATTRIBUTE_DIRECTORY);

  for (const char* name : {"a\\b", "c:d", "e*", "f?", "g.", "h ", "i./j", "k|", "l\nm"}) {
    why.clear();
    EXPECT_FALSE(platform::FromNative(root_ + '/' + name, path, why)) << name;
    EXPECT_FALSE(why.empty()) << name;
  }
  EXPECT_TRUE(platform::FromNative(root_ + '/' + std::string(256, 'n'), path, why));
  EXPECT_FALSE(platform::FromNative(root_ + '/' + std::string(257, 'n'), path, why));
  EXPECT_FALSE(platform::ToNative("Q:\\x", native));

  setenv("TMP", root_.c_str(), 1);
  char temporary[MAX_PATH];
  EXPECT_TRUE(GetTempPathA(MAX_PATH, temporary) == 3 && temporary == std::string("T:\\"));
  unsetenv("TMP");

  platform::MountDrive('T', "");
  EXPECT_EQ(GetFileAttributesA("T:\\Dir"), INVALID_FILE_ATTRIBUTES);
}

}  // namespace
