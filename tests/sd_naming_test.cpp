// Where the files of a sample node lie and what they are called.
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::MatchesRegex;

constexpr const char* kUuid = "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}";

class Naming : public SampleNodeTest {
 protected:
  std::string Expand(const char* database, const char* name) {
    host_.filename = database;
    return SDTestAccess::Expand(access_, name).c_str();
  }
  // What an import of `source` comes to where nothing of it may stay.
  SDAccess::SDError Refused(const qz::string& source, const char* qualClass) {
    const Tree before = Database();
    const qz::string folder = SDTestAccess::Folder(access_);
    const std::size_t samples = SDTestAccess::Samples(access_).size();
    const SDAccess::SDError error = access_.ImportSample(source, kPcm16, qualClass);
    EXPECT_EQ("", Difference(before, Database()));
    EXPECT_EQ(folder, SDTestAccess::Folder(access_));
    EXPECT_EQ(samples, SDTestAccess::Samples(access_).size());
    return error;
  }
};

TEST_F(Naming, PutsANodeIntoAFolderOfItsOwn) {
  Import("kick.wav", SomeSound(20), kPcm16, "High");
  const std::string folder = SDTestAccess::Folder(access_).c_str();
  // Relative to the database's folder, with a separator at its end, which nothing repairs when the
  // file names are made of it.
  EXPECT_THAT(folder, MatchesRegex("\\\\samples\\\\" + std::string(kUuid) + "\\\\"));
  EXPECT_EQ(folder + "\\High.wav", std::string(Record("High").fileName.c_str()));
  EXPECT_EQ("S:\\db" + folder + "High.wav", std::string(RawPath("High").c_str()));
  EXPECT_EQ("S:\\db" + folder + "High.esmp", std::string(EncodedPath("High").c_str()));
  EXPECT_TRUE(Exists(RawPath("High")));
  EXPECT_TRUE(Exists(EncodedPath("High")));
}

TEST_F(Naming, KeepsTheFolderUntilItIsEmptied) {
  qz::string first;
  qz::string second;
  ASSERT_TRUE(SDTestAccess::SetupInternalName(access_, first, "x.wav", "Low"));
  const qz::string folder = SDTestAccess::Folder(access_);
  ASSERT_TRUE(SDTestAccess::SetupInternalName(access_, second, "y.aif", "High"));
  EXPECT_EQ(folder + "\\Low.wav", first);
  EXPECT_EQ(folder + "\\High.aif", second);
  SDTestAccess::Folder(access_) = "";
  ASSERT_TRUE(SDTestAccess::SetupInternalName(access_, second, "y.aif", "High"));
  EXPECT_NE(folder, SDTestAccess::Folder(access_));
}

TEST_F(Naming, NeedsAnExtension) {
  const Tree before = Database();
  qz::string name = "untouched";
  EXPECT_FALSE(SDTestAccess::SetupInternalName(access_, name, "S:\\wav\\kick", "High"));
  EXPECT_EQ("untouched", name);
  EXPECT_EQ("", Difference(before, Database()));
  WriteBytes(folder_ + "/s/kick", WavBytes(SomeSound(4)));
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, Refused("S:\\kick", "High"));
  // A dot in a folder's name counts, and gives an extension that no file can have.
  ASSERT_TRUE(DIOFile::CreateDirectoryA("S:\\a.b"));
  WriteBytes(folder_ + "/s/a.b/c", WavBytes(SomeSound(4)));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, Refused("S:\\a.b\\c", "High"));
}

TEST_F(Naming, KeepsTheCaseOfTheExtension) {
  Import("KICK.WAV", SomeSound(20), kPcm16, "High");
  EXPECT_THAT(RawPath("High").c_str(), ::testing::EndsWith("\\High.WAV"));
  EXPECT_THAT(EncodedPath("High").c_str(), ::testing::EndsWith("\\High.esmp"));
}

TEST_F(Naming, LetsAClassNameReachTheFileSystemAsItIs) {
  setup_.AddQualityClass("in\\side", 10);
  setup_.AddQualityClass("high", 11);
  const qz::string source = MakeWav("kick.wav", SomeSound(20));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, Refused(source, "in\\side"));
  Import("kick.wav", SomeSound(20), kPcm16, "High");
  // Two classes that the file system takes for one: the later copy fails, nothing is overwritten.
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, Refused(source, "high"));
}

TEST_F(Naming, TakesEveryNameAsRelativeToTheDatabasesFolder) {
  EXPECT_EQ("C:\\Sound\\samples\\U\\High.wav",
            Expand("C:\\Sound\\game.db", "\\samples\\U\\\\High.wav"));
  EXPECT_EQ("C:\\Sound\\samples\\U\\High.wav", Expand("C:/Sound/game.db", "samples/U/High.wav"));
  EXPECT_EQ("game.db\\a.wav", Expand("game.db", "a.wav"));
  EXPECT_EQ("C:a.wav", Expand("C:game.db", "a.wav"));
  EXPECT_EQ("\\a.wav", Expand("", "a.wav"));
  EXPECT_EQ("C:\\Sound\\D:\\a.wav", Expand("C:\\Sound\\game.db", "D:\\a.wav"));
  EXPECT_EQ("C:\\Sound\\..\\a.wav", Expand("C:\\Sound\\game.db", "..\\a.wav"));
}

TEST_F(Naming, DerivesTheEncodedNameFromTheLastDot) {
  host_.filename = "C:\\Sound\\game.db";
  const auto encoded = [this](const char* name) {
    return std::string(SDTestAccess::EncodedName(access_, name).c_str());
  };
  EXPECT_EQ("C:\\Sound\\s\\High.esmp", encoded("s\\High.wav"));
  EXPECT_EQ("C:\\Sound\\s\\High.1.esmp", encoded("s\\High.1.wav"));
  EXPECT_EQ("C:\\Sound\\s\\High.esmp", encoded("s\\High"));
}

TEST_F(Naming, JoinsSampleFolderAndUuidAsTheyAre) {
  qz::string name;
  setup_.SetSampleFolder("S:\\db\\samples");
  ASSERT_TRUE(SDTestAccess::CreateSampleFileName(access_, name));
  EXPECT_THAT(name.c_str(), MatchesRegex("\\\\samples" + std::string(kUuid) + "\\\\"));
}

TEST_F(Naming, MakesNoSampleFolder) {
  const qz::string source = MakeWav("kick.wav", SomeSound(20));
  setup_.SetSampleFolder("S:\\db\\missing\\");
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, Refused(source, "High"));
  // On another drive the folder is absolute, and nothing can be made below the database's.
  setup_.SetSampleFolder("T:\\");
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, Refused(source, "High"));
}

}  // namespace
}  // namespace sdtest
