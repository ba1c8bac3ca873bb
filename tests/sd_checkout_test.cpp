// Check-out, check-in and the way back where the host or the memory has a say, and where files lie
// that no walk through the states, which the random walk makes, leaves behind.
#include <utility>

#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::EndsWith;

class CheckOutTest : public SampleNodeTest {
 protected:
  CheckOutTest() { DIOFile::CreateDirectoryA("S:\\out"); }

  void OutAndIn() {
    ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
    ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  }
};

TEST_F(CheckOutTest, EndsWithARedoThatFails) {
  ImportTwo();
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  ASSERT_TRUE(DIOFile::Rename("S:\\out", "S:\\away"));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, Refused([&] { return access_.RedoCheckOut(); }));
  EXPECT_FALSE(access_.IsCheckedOut());
}

// As a stored node can have them.
TEST_F(CheckOutTest, LeavesUnknownClassesOutAndNeedsAnExtension) {
  ImportTwo();
  ASSERT_EQ(SDSetup::ERROR_OK, setup_.RemoveQualityClass("Low"));
  qz::string& name = SDTestAccess::Samples(access_).back().fileName;
  const qz::string whole = std::exchange(name, "no extension");
  EXPECT_EQ(SDAccess::ERROR_COULDNOTGATHERFILEINFO,
            Refused([&] { return access_.CheckOut("S:\\out"); }));
  name = whole;
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  EXPECT_THAT(ReadTree(folder_ + "/s/out"),
              ::testing::ElementsAre(::testing::Key("kick (High).wav")));
  name = "no extension";
  EXPECT_EQ(SDAccess::ERROR_COULDNOTGATHERFILEINFO, Refused([&] { return access_.CheckIn(); }));
  name = whole;
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  EXPECT_TRUE(Exists(RawPath("Low")) && Exists(EncodedPath("Low")));
}

TEST_F(CheckOutTest, EncodesEditsAnewAndInTheSampleFormat) {
  Wav looped = SomeSound(300);
  looped.loop = true;
  looped.loopStart = 100;
  looped.loopEnd = 199;
  Import("low.wav", looped, kPcm16, "Low");
  Import("high.wav", SomeSound(30), kAdpcm, "High");
  EXPECT_EQ(100u, Record("Low").encodedInfo.loopLength);
  ASSERT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\out"));
  WriteBytes(folder_ + "/s/out/kick (Low).wav", "no sound");
  EXPECT_EQ(SDAccess::ERROR_COULDNOTLOAD, Refused([&] { return access_.CheckIn(); }));
  WriteBytes(folder_ + "/s/out/kick (Low).wav", WavBytes(SomeSound(77, 2)));
  SetWriteTime("S:\\out\\kick (Low).wav", 4000000000);  // newer, however coarse the clock
  SDTestAccess::Samples(access_).front().compType = static_cast<SDCompType>(77);
  EXPECT_EQ(SDAccess::ERROR_UNSUPPORTEDFORMAT, Refused([&] { return access_.CheckIn(); }));
  SDTestAccess::Samples(access_).front().compType = SDAccess::COMPTYPE_RAW;
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  EXPECT_EQ(77u, Record("Low").encodedInfo.length);
  EXPECT_EQ(2, Record("Low").numChannels);
  EXPECT_EQ(0u, Record("Low").info.loop + Record("Low").info.loopLength);
  EXPECT_EQ(64u + 4 * 77u, EncodedBytes("Low").size());
  EXPECT_EQ(3, host_.closedWithoutRecord) << "no undo record, refused or not";
  EXPECT_EQ(SDAccess::ERROR_OK, access_.UndoCheckIn());
  EXPECT_EQ(77u, Record("Low").info.length) << "only names come back";
  OutAndIn();
  SDTestAccess::Samples(access_).back().originalName = "no extension";
  EXPECT_EQ(SDAccess::ERROR_INTERNAL, access_.UndoCheckIn());
}

// A re-import under another extension keeps the old name until the next move.
TEST_F(CheckOutTest, UndoFindsTheOldFileUnderItsExtension) {
  const struct {
    const char* beside;
    const char* taken;
  } cases[] = {{"Low.old.wav", "\\Low.wav"},  // no raw file of that class,
               {"Lower.wav", "\\Low.wav"},    // nor this,
               {"Low", "\\Low.wav"},          // nor this
               {"Low.wave", "\\Low.wave"},    // the name that is made is there
               {"Low.aif", "\\Low.wave"}};    // two others: nobody knows which
  for (const auto& [beside, taken] : cases) {
    SCOPED_TRACE(beside);
    Import("low.wav", SomeSound(20), kPcm16, "Low");
    Import("low.wave", SomeSound(25), kPcm16, "Low");
    const SDDeleteInfo old = Files("Low");
    ASSERT_THAT(old.getRawName().c_str(), EndsWith("\\Low.wav"));
    OutAndIn();
    ASSERT_THAT(RawPath("Low").c_str(), EndsWith("\\Low.wave"));
    WriteBytes(Native(old.getFolder()) + "/" + beside, "");
    DIOFile::CreateDirectoryA(old.getFolder() + "\\Low.folder");
    EXPECT_EQ(SDAccess::ERROR_OK, access_.UndoCheckIn());
    EXPECT_EQ(old.getFolder(), Files("Low").getFolder());
    EXPECT_THAT(RawPath("Low").c_str(), EndsWith(taken));
    EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  }
}

}  // namespace
}  // namespace sdtest
