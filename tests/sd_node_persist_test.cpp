// The stored form of a sample node, databases that moved, and files that are not what they should
// be.
#include "tests/format_page.h"
#include "tests/sd_stored.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

constexpr std::size_t kNumbersSize = 4 + 4 + 2 * (40 + 16);  // a record behind its texts

std::string Text(const qz::string& text) {
  return std::string(text.c_str()) + '\0';
}

class StoredSample : public StoredTest<SDAccess, SampleNodeTest> {
 protected:
  FakeNode& Node() override { return node_; }

  void ImportTwo() {
    Import("a.wav", SomeSound(20), kAdpcm, "Low");
    Wav looped = SomeSound(30, 2);
    looped.loop = true;
    looped.loopStart = 5;
    looped.loopEnd = 28;
    Import("100% %s.wav", looped, kPcm8, "High");
  }
};

// The page's example, with other numbers and another time for the encoded file.
TEST_F(StoredSample, HasTheBytesOfItsPage) {
  constexpr std::size_t kEncodedLengthAt = 0xC8;
  constexpr std::size_t kEncodedSecondsAt = 0xF4;
  std::string example = format_page::Examples("node-file.md")[0];
  PutNumber(example, kEncodedLengthAt, 8, 21);
  PutNumber(example, kEncodedSecondsAt, 2, 16);
  ASSERT_TRUE(DIOFile::CreateDirectoryA("S:\\db\\samples\\tone"));
  for (const std::string name : {"High.wav", "High.esmp"})
    WriteBytes(folder_ + "/s/db/samples/tone/" + name, "never looked into");
  SetWriteTime("S:\\db\\samples\\tone\\High.wav", 1773307815, 250000000);
  SetWriteTime("S:\\db\\samples\\tone\\High.esmp", 1773307816, 250000000);

  ASSERT_EQ(SDAccess::ERROR_OK, LoadFile(example));
  const SDSample& record = Record("High");
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, record.compType);
  EXPECT_EQ(1, record.numChannels);
  EXPECT_EQ(32000u, record.info.frq);
  EXPECT_EQ(20u, record.info.length);
  EXPECT_EQ(4u, record.info.loop);
  EXPECT_EQ(16u, record.info.loopLength);
  EXPECT_EQ(62, record.info.orgKey);
  EXPECT_EQ(21u, record.encodedInfo.length);
  EXPECT_EQ(example, Stored());
  EXPECT_EQ("head" + example.substr(16) + "tail", StoredInDatabase());
}

TEST_F(StoredSample, ComesBackWhole) {
  ImportTwo();
  access_.SetSelQualityClass("High");
  const std::string stored = Stored();
  for (const bool ownFile : {true, false}) {
    FakeNode& node = host_.AddSample("loaded");
    EXPECT_EQ(SDAccess::ERROR_OK, ownFile
                                      ? LoadFile(stored, node)
                                      : LoadFromDatabase(stored.substr(kVersionAt) + "tail", node));
    SDAccess& loaded = node.Sample();
    EXPECT_THAT(loaded.GetQualityClasses(), ElementsAre("Low", "High"));
    for (const SDSample& sample : SDTestAccess::Samples(loaded))
      EXPECT_EQ(SDTestAccess::SavedVersion(setup_), sample.savedVersionIdentifier);
    EXPECT_TRUE(loaded.Save(nullptr, &name_));
    EXPECT_EQ(stored, FileBytes("stored")) << "names with two separators in a row, all numbers";
    // The folder comes from the first sample, without a separator at its end.
    const std::string folder = SDTestAccess::Folder(access_).c_str();
    EXPECT_EQ(folder.substr(0, folder.size() - 1), SDTestAccess::Folder(loaded).c_str());
    // Only the node file's load can be undone.
    EXPECT_EQ(ownFile, host_.undo.back().node == &node);
    if (ownFile) {
      EXPECT_EQ(static_cast<qz::ulong>(UNDO_SDSAMPLE_LOADED), host_.undo.back().info.ID);
      EXPECT_EQ("load sample node", host_.undo.back().info.description);
    }
    // The files are the first node's.
    host_.shutDown = true;
    host_.Remove(node);
    host_.shutDown = false;
  }
}

TEST_F(StoredSample, WithoutSamplesLeavesTheFolderAlone) {
  const std::string stored = Stored();
  EXPECT_EQ(kPayloadAt + 1 + 4, stored.size());
  ImportTwo();
  const qz::string folder = SDTestAccess::Folder(access_);
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  EXPECT_TRUE(access_.GetQualityClasses().empty());
  EXPECT_EQ("", access_.GetSelQualityClass());
  EXPECT_EQ(folder, SDTestAccess::Folder(access_));
}

// --- Load ---

TEST_F(StoredSample, MakesALostEncodedFileAnewButNoneThatIsOutOfDate) {
  ImportTwo();
  const std::string stored = Stored();
  const std::string encoded = EncodedBytes("Low");
  ASSERT_TRUE(DIOFile::Delete(EncodedPath("Low")));
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  EXPECT_EQ(encoded, EncodedBytes("Low"));
  SetEncodedBytes("Low", "stale");
  SetWriteTime(EncodedPath("Low"), 1);
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  EXPECT_EQ("stale", EncodedBytes("Low"));
}

TEST_F(StoredSample, KeepsTheSamplesInFrontOfOneThatCannotBeLoaded) {
  ImportTwo();
  const std::string stored = Stored();
  const qz::string raw = RawPath("High");
  const qz::string encoded = EncodedPath("High");
  WriteBytes(Native(raw), "no sound any more");
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored)) << "with an encoded file nobody looks";
  ASSERT_TRUE(DIOFile::Delete(encoded));
  const std::size_t undo = host_.undo.size();
  EXPECT_EQ(SDAccess::ERROR_COULDNOTGETSAMPLEINFO, LoadFile(stored));
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low"));
  ASSERT_TRUE(DIOFile::Delete(raw));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, LoadFile(stored));
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low"));
  EXPECT_EQ(undo, host_.undo.size());
}

TEST_F(StoredSample, TakesAStoredFormatAsItStands) {
  Import("a.wav", SomeSound(20), kAdpcm, "Low");
  std::string stored = Stored();
  PutNumber(stored, stored.size() - kNumbersSize, 4, 77);
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  EXPECT_EQ(77u, static_cast<qz::ulong>(Record("Low").compType));
  const std::string again = Stored();
  EXPECT_EQ(77u, NumberAt(again, again.size() - kNumbersSize, 4));
}

TEST_F(StoredSample, LoadedIsUndoneInTheListAloneAndTouchesNoFile) {
  ImportTwo();
  const std::string stored = Stored();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  const Tree before = Database();
  const std::size_t unsaved = Unsaved().size();
  const std::size_t toDelete = ToDelete().size();
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low", "High"));
  const qz::string folder = SDTestAccess::Folder(access_);
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("High"));
  EXPECT_EQ(folder, SDTestAccess::Folder(access_)) << "only the list";
  HDBUndoInfo unknown;
  unknown.ID = 7;
  EXPECT_FALSE(access_.DoUndo(&unknown));
  EXPECT_TRUE(access_.DiscardUndoInfo(&unknown)) << "a record without data";
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("High"));
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_EQ(unsaved, Unsaved().size());
  EXPECT_EQ(toDelete, ToDelete().size());
}

// --- Databases that moved ---

TEST_F(StoredSample, FollowsItsFilesFromADatabaseElsewhere) {
  ImportTwo();
  const std::string stored = Stored();
  const qz::string lowRaw = RawPath("Low");
  host_.loadLocation = "S:\\db\\game.db";
  host_.filename = "S:\\other\\place\\game.db";
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  const std::string fileName = Record("Low").fileName.c_str();
  EXPECT_EQ("..\\..\\db\\samples\\", fileName.substr(0, 17));
  EXPECT_TRUE(DIOFile::PathsIdentical(
      "S:\\other\\place\\..\\..\\db\\" + qz::string(fileName.substr(9).c_str()), RawPath("Low")));
  EXPECT_TRUE(Exists(RawPath("Low")));
  EXPECT_EQ(ReadBytes(Native(lowRaw)), ReadBytes(Native(RawPath("Low"))));
  EXPECT_EQ(fileName.substr(0, fileName.rfind('\\')), SDTestAccess::Folder(access_).c_str());
  // What is saved next leads from the new place.
  EXPECT_NE(std::string::npos, Stored().find(fileName));
}

// The names are kept as they are only where the two texts are the same, case included.
TEST_F(StoredSample, ComparesTheTwoPlacesAsTexts) {
  ImportTwo();
  const std::string stored = Stored();
  host_.loadLocation = "s:\\DB\\game.db";
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  EXPECT_EQ(std::string::npos, stored.find(Text(Record("Low").fileName)));
  EXPECT_TRUE(Exists(RawPath("Low")));
}

// From one drive to another there is no relative name, and a full one behind the database's folder
// names nothing.
TEST_F(StoredSample, IsNotFoundFromAnotherDrive) {
  ImportTwo();
  const std::string stored = Stored();
  ASSERT_TRUE(DIOFile::CreateDirectoryA("T:\\db"));
  host_.loadLocation = "S:\\db\\game.db";
  host_.filename = "T:\\db\\game.db";
  FakeNode& node = host_.AddSample("loaded");
  EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, LoadFile(stored, node));
  EXPECT_TRUE(node.Sample().GetQualityClasses().empty());
  host_.filename = "S:\\db\\game.db";
  host_.loadLocation = "game.db";
  EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, LoadFile(stored, node)) << "nor from nowhere";
}

// --- Files that are not what they should be ---

TEST_F(StoredSample, RefusesAFileThatEndsEarly) {
  ImportTwo();
  RefusesEveryCut();
}

TEST_F(StoredSample, RefusesAHeadInWhichAByteIsWrong) {
  ImportTwo();
  JudgesEveryByteOfTheHead([&] {
    // Ahead of the payload nothing changes.
    EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low", "High"));
  });
  FakeNode& node = host_.AddSample("loaded");
  EXPECT_EQ(SDAccess::ERROR_BADFORMAT, LoadFromDatabase(Stored().substr(16), node))
      << "the host has read the type";
}

TEST_F(StoredSample, RefusesMoreRecordsThanItCanCount) {
  Import("a.wav", SomeSound(20), kAdpcm, "Low");
  std::string stored = Stored();
  for (const qz::ulong count : {0x10000u, 0x10001u, 0xFFFFFFFFu}) {
    PutNumber(stored, kPayloadAt + 4, 4, count);
    EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, LoadFile(stored)) << count;
  }
}

// Lengths that a stored node promises are believed by no operation that hands data out.
TEST_F(StoredSample, GivesNoDataBeyondWhatMemoryCanHold) {
  for (const qz::uchar format : {kPcm16, kPcm8, kAdpcm, kAdpcmPlus}) {
    Import("a.wav", SomeSound(100), format, "High");
    std::string stored = Stored();
    const std::size_t numbers = stored.size() - kNumbersSize;
    for (const std::uint64_t length : {~std::uint64_t{0}, std::uint64_t{1} << 63}) {
      PutNumber(stored, numbers + 8 + 8, 8, length);
      PutNumber(stored, numbers + 8 + 56 + 8, 8, length);
      ASSERT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
      EXPECT_EQ(nullptr, access_.GetRawData("High", 0));
      EXPECT_EQ(SDAccess::ERROR_NOMEMORY, LastError());
      EXPECT_EQ(nullptr, access_.GetDecodedData("High", 0));
      EXPECT_EQ(SDAccess::ERROR_NOMEMORY, LastError());
    }
    ASSERT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("High"));
  }
}

}  // namespace
}  // namespace sdtest
