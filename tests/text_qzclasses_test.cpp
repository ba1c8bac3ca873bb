// The text class: conversion, its narrow cache, comparison and search; and texts by number.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "common/qzassert.h"
#include "common/qzclasses.h"

namespace qz {

struct StringTestAccess {
  static const char* Cache(const string& text) { return text.cBuffer; }
  static ulong CacheSize(const string& text) { return text.cLength; }
};

}  // namespace qz

namespace {

using qz::string;
using qz::StringTestAccess;

TEST(TextTest, EveryByteStringSurvivesTheWayInAndOut) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte)
    all.push_back(static_cast<char>(byte));
  for (const std::string& narrow :
       {std::string(), std::string("Z\xC3\xBCrich"), std::string("\xF0\x9F\x8E\xB5"), all}) {
    EXPECT_EQ(string(narrow.c_str()).c_str(), narrow);
  }
  EXPECT_EQ(string("Z\xC3\xBC").size(), 2u);
  EXPECT_EQ(string("\xF0\x9F\x8E\xB5").size(), 2u);  // a pair of code units
  EXPECT_TRUE(string('x') == "x");
  EXPECT_TRUE(string('\0').empty());
}

TEST(TextTest, TheNarrowFormIsMadeAnewInABufferThatIsKept) {
  string text;
  EXPECT_EQ(StringTestAccess::Cache(text), nullptr);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(StringTestAccess::CacheSize(text), 1u);

  text = "High";
  const char* const first = text.c_str();
  EXPECT_EQ(text.c_str(), first);
  text = "Low!";
  EXPECT_EQ(StringTestAccess::Cache(text), first);  // an assignment leaves the cache alone
  EXPECT_EQ(text.c_str(), first);
  EXPECT_STREQ(first, "Low!");
  text[0] = u'R';  // the wide text is the truth, however it was changed
  EXPECT_STREQ(text.c_str(), "Row!");
  text += "?";
  EXPECT_STREQ(text.c_str(), "Row!?");
  EXPECT_EQ(StringTestAccess::CacheSize(text), 6u);
  text = text.c_str();
  EXPECT_STREQ(text.c_str(), "Row!?");
}

TEST(TextTest, NeitherCopiesNorMovesTakeTheCache) {
  string text = "some longer text, beyond what is kept in place";
  const std::string narrow = text.c_str();
  const string copy = text;
  EXPECT_EQ(StringTestAccess::Cache(copy), nullptr);
  EXPECT_EQ(StringTestAccess::CacheSize(copy), 0u);
  string moved = std::move(text);
  EXPECT_EQ(StringTestAccess::Cache(moved), nullptr);
  string target = "target";
  const char* const cache = target.c_str();
  target = copy;
  EXPECT_TRUE(target == copy);
  target = std::move(moved);
  EXPECT_EQ(StringTestAccess::Cache(target), cache);
  EXPECT_EQ(target.c_str(), narrow);
}

TEST(TextTest, JoiningAndComparing) {
  const string left = "a";
  EXPECT_TRUE("x" + left + string("y") + "\xC3\xBC" == "xay\xC3\xBC");
  EXPECT_TRUE(left == "a");
  string grown = left;
  grown += grown;
  grown += "c";
  EXPECT_TRUE(grown == "aac" && grown != "AAC" && grown != string("aa"));
  // By code unit: a pair of surrogates comes before the last characters of one unit.
  EXPECT_TRUE(string("\xF0\x9F\x8E\xB5") < string("\xEF\xBF\xBD"));
}

TEST(TextTest, SearchesCountCodeUnits) {
  const string path = "C:\\Z\xC3\xBC\\b.wav";
  EXPECT_EQ(path.find('\\'), 2u);
  EXPECT_EQ(path.find('\\', 3), 5u);
  EXPECT_EQ(path.find("\\b"), 5u);
  EXPECT_EQ(path.find("b\\"), string::npos);
  EXPECT_EQ(path.find_first_of("\\:"), 1u);
  EXPECT_EQ(path.find_first_of("\xC3\xBC"), 4u);  // one character of two bytes
  EXPECT_EQ(path.find_first_of('.', 8), string::npos);
  EXPECT_EQ(path.find_last_of("\\/:"), 5u);
  EXPECT_EQ(path.find_last_of("\\/:", 4), 2u);
  EXPECT_EQ(path.find_last_of('.'), 7u);
  EXPECT_EQ(path.find_last_of("?*"), string::npos);
}

TEST(TextTest, TextsByNumberAreReadAnewAndMissingOnesAreEmpty) {
  const std::string longText(5000, 'x');
  platform::StringResource texts[] = {{1, "Ok"}, {1012, ""}, {7, longText.c_str()}};
  const HINSTANCE__ module{texts, std::size(texts)};
  const qz::strtable table(&module);
  EXPECT_TRUE(table[1] == "Ok");
  EXPECT_TRUE(table[1012].empty());
  EXPECT_TRUE(table[2].empty());
  EXPECT_EQ(table[7].size(), 4095u);
  texts[0].text = "Fine";
  EXPECT_TRUE(table[1] == "Fine");
}

TEST(AssertTest, TheHandlerIsToldAndTheFormerOneComesBack) {
  static std::string told;
  const auto record = [](const char* text, const char*, int line) {
    told = text + std::string(line > 0 ? "!" : "?");
  };
  const qz::AssertHandler former = qz::SetAssertHandler(record);
  QZ_ASSERT(1 + 1 == 2, "sum");
  EXPECT_EQ(told, "");
  QZ_ASSERT(1 + 1 == 3, "len!=0");
  EXPECT_EQ(told, "len!=0!");
  EXPECT_EQ(qz::SetAssertHandler(nullptr), +record);
  EXPECT_EQ(qz::SetAssertHandler(former), former);
  EXPECT_DEATH(QZ_ASSERT(false, "cBuffer!=NULL"), "text_qzclasses_test.*cBuffer!=NULL");
}

}  // namespace
