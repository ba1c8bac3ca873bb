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
  SDAccess::SDError RefusedImport(const qz::string& source, const char* qualClass) {
    return Refused([&] { return access_.ImportSample(source, kPcm16, qualClass); });
  }
};

TEST_F(Naming, PutsANodeIntoAFolderOfItsOwn) {
  Import("KICK.Wav", SomeSound(20), kPcm16, "High");
  const std::string folder = SDTestAccess::Folder(access_).c_str();
  // Relative to the database's folder, with a separator at its end, which nothing repairs when the
  // file names are made of it.
  EXPECT_THAT(folder, MatchesRegex("\\\\samples\\\\" + std::string(kUuid) + "\\\\"));
  EXPECT_EQ(folder + "\\High.Wav", std::string(Record("High").fileName.c_str()));
  EXPECT_EQ("S:\\db" + folder + "High.Wav", std::string(RawPath("High").c_str()));
  EXPECT_EQ("S:\\db" + folder + "High.esmp", std::string(EncodedPath("High").c_str()));
  EXPECT_TRUE(Exists(RawPath("High")));
  EXPECT_TRUE(Exists(EncodedPath("High")));
  // The sample folder and the folder's name are joined as they are.
  qz::string name;
  setup_.SetSampleFolder("S:\\db\\samples");
  ASSERT_TRUE(SDTestAccess::CreateSampleFileName(access_, name));
  EXPECT_THAT(name.c_str(), MatchesRegex("\\\\samples" + std::string(kUuid) + "\\\\"));
}

TEST_F(Naming, NeedsAnExtension) {
  WriteBytes(folder_ + "/s/kick", WavBytes(SomeSound(4)));
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, RefusedImport("S:\\kick", "High"));
  // A dot in a folder's name counts, and gives an extension that no file can have.
  ASSERT_TRUE(DIOFile::CreateDirectoryA("S:\\a.b"));
  WriteBytes(folder_ + "/s/a.b/c", WavBytes(SomeSound(4)));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, RefusedImport("S:\\a.b\\c", "High"));
}

TEST_F(Naming, LetsAClassNameReachTheFileSystemAsItIs) {
  setup_.AddQualityClass("in\\side", 10);
  setup_.AddQualityClass("high", 11);
  const qz::string source = MakeWav("kick.wav", SomeSound(20));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, RefusedImport(source, "in\\side"));
  Import("kick.wav", SomeSound(20), kPcm16, "High");
  // Two classes that the file system takes for one: the later copy fails, nothing is overwritten.
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, RefusedImport(source, "high"));
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

TEST_F(Naming, MakesNoSampleFolder) {
  const qz::string source = MakeWav("kick.wav", SomeSound(20));
  setup_.SetSampleFolder("S:\\db\\missing\\");
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, RefusedImport(source, "High"));
  // On another drive the folder is absolute, and nothing can be made below the database's.
  setup_.SetSampleFolder("T:\\");
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, RefusedImport(source, "High"));
}

}  // namespace
}  // namespace sdtest
