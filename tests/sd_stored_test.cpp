// The stored forms of both kinds of nodes, databases that moved, and the ways in which stored nodes
// break.
#include "tests/format_page.h"
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

constexpr std::size_t kFileSizeAt = 4;
constexpr std::size_t kVersionAt = 44;  // where a database's load starts
constexpr std::size_t kDataSizeAt = 64;
constexpr std::size_t kPayloadAt = 72;

// `Object` is the kind of the node, `Base` the fixture.
template <class Object, class Base>
class StoredTest : public Base {
 protected:
  using Error = typename Object::SDError;

  virtual FakeNode& Node() = 0;

  static HDBAccessBaseInterface& ObjectOf(FakeNode& node) { return *node.GetTypeInterface(); }
  static Error ErrorOf(FakeNode& node) {
    return static_cast<Error>(SDTestAccess::LastError(static_cast<Object&>(ObjectOf(node))));
  }
  std::string FileBytes(const char* name) const { return ReadBytes(this->folder_ + "/s/" + name); }

  // The node as a node file.
  std::string Stored() {
    EXPECT_TRUE(ObjectOf(Node()).Save(nullptr, &name_)) << FakeHost::ErrorText(Node());
    return FileBytes("stored");
  }
  // Between other things in a database.
  std::string StoredInDatabase() {
    DIOFile* stream = DIOFile::OpenFile("S:\\database", DIOFile::OPENMODE_CREATE);
    EXPECT_TRUE(stream->Write("head", 1, 4));
    EXPECT_TRUE(ObjectOf(Node()).Save(stream, nullptr));
    EXPECT_TRUE(stream->Write("tail", 1, 4));
    DIOFile::CloseFile(stream);
    return FileBytes("database");
  }

  Error LoadFile(const std::string& bytes) { return LoadFile(bytes, Node()); }
  Error LoadFile(const std::string& bytes, FakeNode& node) {
    WriteBytes(this->folder_ + "/s/stored", bytes);
    const bool loaded = this->host_.LoadNodeFile(node, name_);
    EXPECT_EQ(loaded, ErrorOf(node) == Object::ERROR_OK);
    DIOFile* again = DIOFile::OpenFile(name_, DIOFile::OPENMODE_MODIFY);
    EXPECT_NE(nullptr, again) << "the stream was left open";
    if (again != nullptr) DIOFile::CloseFile(again);
    return ErrorOf(node);
  }
  // From a database's stream in front of which and behind which other things stand.
  Error LoadFromDatabase(const std::string& bytes, FakeNode& node) {
    WriteBytes(this->folder_ + "/s/database", "head" + bytes);
    DIOFile* stream = DIOFile::OpenFile("S:\\database", DIOFile::OPENMODE_OPEN);
    EXPECT_TRUE(stream->SetPosition(qz::uint64{4}, DIOFile::SEEKMODE_START));
    const bool loaded = ObjectOf(node).Load(stream, nullptr);
    qz::uint64 position = 0;
    EXPECT_TRUE(stream->GetPosition(position)) << "the host's stream stays open";
    DIOFile::CloseFile(stream);
    EXPECT_EQ(loaded, ErrorOf(node) == Object::ERROR_OK);
    return ErrorOf(node);
  }

  // A name that was cut is looked for, and may not be found, before the cut shows.
  void RefusesEveryCut() {
    const std::string stored = Stored();
    for (std::size_t length = 0; length < stored.size(); ++length) {
      EXPECT_EQ(Object::ERROR_COULDNOTREAD, LoadFile(stored.substr(0, length))) << length;
      if (length < kVersionAt) continue;
      EXPECT_EQ(Object::ERROR_COULDNOTREAD,
                LoadFromDatabase(stored.substr(kVersionAt, length - kVersionAt), Node()))
          << length;
    }
    EXPECT_FALSE(this->host_.LoadNodeFile(Node(), "S:\\no such file"));
    EXPECT_EQ(Object::ERROR_COULDNOTREAD, ErrorOf(Node()));
  }

  // Sizes are not believed, nor missed.
  template <class Check>
  void JudgesEveryByteOfTheHead(const std::string& stored, Check check) {
    for (std::size_t at = 0; at < kPayloadAt; ++at) {
      SCOPED_TRACE(at);
      std::string damaged = stored;
      damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
      Error expected = Object::ERROR_BADFORMAT;
      const bool inSize = (at >= kFileSizeAt && at < 12) || (at >= 20 && at < 28) ||
                          (at >= 48 && at < 56) || at >= kDataSizeAt;
      if (inSize) expected = Object::ERROR_OK;
      if (at >= 56 && at < 60) expected = Object::ERROR_BADVERSION;
      EXPECT_EQ(expected, LoadFile(damaged));
      check(expected);
    }
  }

  const qz::string name_ = "S:\\stored";
};

// --- Sample nodes ---

constexpr std::size_t kNumbersSize = 4 + 4 + 2 * (40 + 16);  // a record behind its texts

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
  std::string stored = Stored();
  PutNumber(stored, stored.size() - kNumbersSize, 4, 77);  // a format is taken as it stands
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

TEST_F(StoredSample, LoadedIsUndoneInTheListAloneAndTouchesNoFile) {
  ImportTwo();
  const std::string stored = Stored();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  const Tree before = Database();
  const Sizes listed = Listed();
  EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
  const qz::string folder = SDTestAccess::Folder(access_);
  EXPECT_TRUE(host_.UndoLast());
  HDBUndoInfo unknown;
  unknown.ID = 7;
  EXPECT_FALSE(access_.DoUndo(&unknown));
  EXPECT_TRUE(access_.DiscardUndoInfo(&unknown)) << "a record without data";
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("High"));
  EXPECT_EQ(folder, SDTestAccess::Folder(access_)) << "only the list";
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_EQ(listed, Listed());
}

TEST_F(StoredSample, FollowsItsFilesFromADatabaseElsewhere) {
  ImportTwo();
  const std::string stored = Stored();
  const std::string raw = ReadBytes(Native(RawPath("Low")));
  ASSERT_TRUE(DIOFile::CreateDirectoryA("T:\\db"));
  const struct {
    const char* from;
    const char* to;
    const char* start;  // of the names, null where the files are not found
  } cases[] = {{"S:\\db\\game.db", "S:\\other\\place\\game.db", "..\\..\\db\\samples\\"},
               // The two places are compared as texts, case included: the names are made anew.
               {"s:\\DB\\game.db", "S:\\db\\game.db", "\\\\samples\\"},
               // From one drive to another there is no relative name, nor from nowhere, and a full
               // one behind the database's folder names nothing.
               {"S:\\db\\game.db", "T:\\db\\game.db", nullptr},
               {"game.db", "S:\\db\\game.db", nullptr}};
  for (const auto& [from, to, start] : cases) {
    SCOPED_TRACE(to);
    host_.loadLocation = from;
    host_.filename = to;
    if (start == nullptr) {
      EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, LoadFile(stored));
      EXPECT_TRUE(access_.GetQualityClasses().empty());
      continue;
    }
    EXPECT_EQ(SDAccess::ERROR_OK, LoadFile(stored));
    const std::string name = Record("Low").fileName.c_str();
    EXPECT_THAT(name, ::testing::StartsWith(start));
    EXPECT_EQ(raw, ReadBytes(Native(RawPath("Low"))));
    EXPECT_EQ(name.substr(0, name.rfind('\\')), SDTestAccess::Folder(access_).c_str());
    // What is saved next leads from the new place.
    EXPECT_NE(std::string::npos, Stored().find(name));
  }
}

TEST_F(StoredSample, RefusesAFileThatEndsEarly) {
  ImportTwo();
  RefusesEveryCut();
}

TEST_F(StoredSample, RefusesAHeadInWhichAByteIsWrong) {
  ImportTwo();
  JudgesEveryByteOfTheHead(Stored(), [&](Error) {
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

// --- The setup node ---

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values)
    bytes += static_cast<char>(value);
  return bytes;
}

class StoredSetup : public StoredTest<SDSetup, SampleDataTest> {
 protected:
  StoredSetup() : node_(host_.AddSetup()), setup_(node_.Setup()) {}

  void Fill() {
    setup_.SetSampleFolder("S:\\db\\samples\\");
    setup_.AddQualityClass("Low 50%s", 1, 7);
    setup_.AddQualityClass("High", 200, 0);
  }

  FakeNode& Node() override { return node_; }

  std::vector<int> Counts() {
    std::vector<int> counts;
    for (const SDClass& entry : SDTestAccess::Classes(setup_))
      counts.push_back(entry.GetRefCount());
    return counts;
  }

  FakeNode& node_;
  SDSetup& setup_;
};

TEST_F(StoredSetup, HasTheBytesOfItsPage) {
  setup_.SetSampleFolder("S:\\db\\samples\\");
  setup_.AddQualityClass("Low", 10, 0);
  setup_.AddQualityClass("High", 100, 1);
  const std::string example = format_page::Examples("node-file.md")[1];
  EXPECT_EQ(example, Stored());
  EXPECT_EQ("head" + example.substr(16) + "tail", StoredInDatabase());
}

TEST_F(StoredSetup, ComesBackWithItsCountsFromADatabaseOnly) {
  Fill();
  const std::string stored = Stored();
  for (const bool ownFile : {false, true}) {
    setup_.SetSampleFolder("S:\\x\\");
    setup_.AddQualityClass("gone with the load", 99);
    const SDVersionID before = SDTestAccess::SavedVersion(setup_);
    ASSERT_EQ(SDSetup::ERROR_OK, ownFile
                                     ? LoadFile(stored)
                                     : LoadFromDatabase(stored.substr(kVersionAt) + "tail", node_));
    EXPECT_EQ(".\\samples\\", setup_.GetSampleFolder());
    EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("Low 50%s", "High"));
    EXPECT_THAT(Counts(), ElementsAre(ownFile ? 0 : 7, 0));
    EXPECT_NE(before, SDTestAccess::SavedVersion(setup_));
  }
}

TEST_F(StoredSetup, SortsStoredClassesAndDropsRepeatedOnes) {
  std::string stored = Stored().substr(0, kPayloadAt);
  const auto entry = [](const char* name, int level) {
    return std::string(name) + Bytes({0, level, 0, 0});
  };
  stored += Bytes({0, 5, 0}) + entry("b", 9) + entry("a", 3) + entry("b", 4) + entry("c", 3) +
            entry("B", 5);
  EXPECT_EQ(SDSetup::ERROR_OK, LoadFile(stored));
  EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("a", "B", "b"));
}

TEST_F(StoredSetup, LoadsNoClassWhileASampleIsCheckedOut) {
  Fill();
  const std::string stored = Stored();
  SDTestAccess::CheckedOut(host_.AddSample().Sample()) = true;
  EXPECT_EQ(SDSetup::ERROR_OK, LoadFile(stored));
  EXPECT_EQ(0, setup_.GetNumQualityClasses());
}

TEST_F(StoredSetup, RefusesAFileThatEndsEarly) {
  Fill();
  RefusesEveryCut();
}

TEST_F(StoredSetup, RefusesAHeadInWhichAByteIsWrong) {
  Fill();
  const std::string stored = Stored();
  setup_.SetSampleFolder("S:\\kept\\");
  SDVersionID saved = SDTestAccess::SavedVersion(setup_);
  JudgesEveryByteOfTheHead(stored, [&](Error error) {
    const bool isRead = error == SDSetup::ERROR_OK;
    EXPECT_EQ(isRead ? ".\\samples\\" : "..\\kept\\", setup_.GetSampleFolder());
    EXPECT_EQ(isRead, saved != SDTestAccess::SavedVersion(setup_));
    if (error == SDSetup::ERROR_BADVERSION) {
      EXPECT_EQ("Bad version", FakeHost::ErrorText(node_));
    }
    setup_.SetSampleFolder("S:\\kept\\");
    saved = SDTestAccess::SavedVersion(setup_);
  });
}

TEST_F(StoredSetup, KeepsWhatWasReadInFrontOfACut) {
  Fill();
  const std::string stored = Stored();
  setup_.SetSampleFolder("S:\\x\\");
  EXPECT_EQ(SDSetup::ERROR_COULDNOTREAD, LoadFile(stored.substr(0, stored.size() - 1)));
  EXPECT_EQ(".\\samples\\", setup_.GetSampleFolder());
  EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("Low 50%s"));
}

}  // namespace
}  // namespace sdtest
