// The stored form of a setup node, what a save means to the lists of files, and files that are not
// what they should be.
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;
using Error = SDSetupInterface::SDError;

constexpr std::size_t kFileSizeAt = 4;
constexpr std::size_t kVersionAt = 44;  // where a database's load starts
constexpr std::size_t kPayloadAt = 72;

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values)
    bytes += static_cast<char>(value);
  return bytes;
}

class StoredSetup : public SampleDataTest {
 protected:
  StoredSetup() : node_(host_.AddSetup()), setup_(node_.Setup()) {}

  void Fill() {
    setup_.SetSampleFolder("S:\\db\\samples\\");
    setup_.AddQualityClass("Low 50%s", 1, 7);
    setup_.AddQualityClass("High", 200, 0);
  }

  // The node as a node file.
  std::string Stored() {
    const qz::string name = "S:\\stored";
    EXPECT_TRUE(setup_.Save(nullptr, &name));
    return ReadBytes(folder_ + "/s/stored");
  }

  Error LoadFile(const std::string& bytes) {
    WriteBytes(folder_ + "/s/stored", bytes);
    const bool loaded = host_.LoadNodeFile(node_, "S:\\stored");
    const Error error = LastError();
    EXPECT_EQ(loaded, error == SDSetup::ERROR_OK);
    // The stream is closed, whatever came of it.
    DIOFile* again = DIOFile::OpenFile("S:\\stored", DIOFile::OPENMODE_MODIFY);
    EXPECT_NE(nullptr, again);
    if (again != nullptr) DIOFile::CloseFile(again);
    return error;
  }

  // From a database's stream, in which `bytes` stand behind some of the host's own.
  Error LoadFromDatabase(const std::string& bytes) {
    WriteBytes(folder_ + "/s/database", "head" + bytes);
    DIOFile* stream = DIOFile::OpenFile("S:\\database", DIOFile::OPENMODE_OPEN);
    EXPECT_TRUE(stream->SetPosition(qz::uint64{4}, DIOFile::SEEKMODE_START));
    const bool loaded = setup_.Load(stream, nullptr);
    qz::uint64 position = 0;
    EXPECT_TRUE(stream->GetPosition(position)) << "the host's stream stays open";
    DIOFile::CloseFile(stream);
    EXPECT_EQ(loaded, LastError() == SDSetup::ERROR_OK);
    return LastError();
  }

  Error LastError() const {
    qz::string text;
    qz::ulong code = 0;
    setup_.GetLastError(text, code);
    return static_cast<Error>(code);
  }

  std::vector<int> Counts() {
    std::vector<int> counts;
    for (const SDClass& entry : SDTestAccess::Classes(setup_))
      counts.push_back(entry.GetRefCount());
    return counts;
  }

  FakeNode& node_;
  SDSetup& setup_;
};

TEST_F(StoredSetup, HasTheAgreedBytes) {
  Fill();
  const std::string payload =
      Bytes({'.', '\\', 's', 'a', 'm', 'p', 'l', 'e', 's', '\\', 0}) + Bytes({2, 0}) +
      // A percent sign is text.
      std::string("Low 50%s") + Bytes({0, 1, 7, 0}) + std::string("High") + Bytes({0, 200, 0, 0});
  const auto size = static_cast<int>(payload.size());
  const std::string body = "TYPE" + Bytes({16, 0, 0, 0, 0, 0, 0, 0}) +
                           Bytes({0xD2, 0x1E, 0x55, 0xD0, 0x87, 0x14, 0xD4, 0x11,  //
                                  0xBA, 0x67, 0x00, 0x50, 0xDA, 0x72, 0xA9, 0x82}) +
                           "VERS" + Bytes({4, 0, 0, 0, 0, 0, 0, 0}) + Bytes({0, 0, 1, 0}) + "DATA" +
                           Bytes({size, 0, 0, 0, 0, 0, 0, 0}) + payload;
  EXPECT_EQ("KLVO" + Bytes({72 + size, 0, 0, 0, 0, 0, 0, 0}) + "OBJ " + body, Stored());

  // In a database the same from the type on, at the stream's position.
  DIOFile* stream = DIOFile::OpenFile("S:\\database", DIOFile::OPENMODE_CREATE);
  ASSERT_TRUE(stream->Write("head", 1, 4));
  EXPECT_TRUE(setup_.Save(stream, nullptr));
  ASSERT_TRUE(stream->Write("tail", 1, 4));
  DIOFile::CloseFile(stream);
  EXPECT_EQ("head" + body + "tail", ReadBytes(folder_ + "/s/database"));
}

TEST_F(StoredSetup, ComesBackWithItsCountsFromADatabaseOnly) {
  Fill();
  const std::string stored = Stored();
  for (const bool ownFile : {false, true}) {
    setup_.SetSampleFolder("S:\\x\\");
    setup_.AddQualityClass("gone with the load", 99);
    const SDVersionID before = SDTestAccess::SavedVersion(setup_);
    ASSERT_EQ(SDSetup::ERROR_OK,
              ownFile ? LoadFile(stored) : LoadFromDatabase(stored.substr(kVersionAt) + "tail"));
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

TEST_F(StoredSetup, TurnsTheListsOverAtASaveInEitherMode) {
  Fill();
  for (const bool ownFile : {false, true}) {
    SDTestAccess::ToDelete(setup_).push_back(SDTestAccess::Files("a", "b", "c"));
    SDTestAccess::Unsaved(setup_).push_back(SDTestAccess::Files("a", "b", "c"));
    const SDVersionID before = SDTestAccess::SavedVersion(setup_);
    if (ownFile) {
      Stored();
    } else {
      DIOFile* stream = DIOFile::OpenFile("S:\\database", DIOFile::OPENMODE_CREATE);
      EXPECT_TRUE(setup_.Save(stream, nullptr));
      DIOFile::CloseFile(stream);
    }
    EXPECT_EQ(SDTestAccess::ToDelete(setup_).size(),
              SDTestAccess::Bookmark(SDTestAccess::ToDelete(setup_)));
    EXPECT_TRUE(SDTestAccess::Unsaved(setup_).empty());
    EXPECT_NE(before, SDTestAccess::SavedVersion(setup_));
  }
}

// Whatever makes a save fail leaves no file and nothing that counts as saved.
TEST_F(StoredSetup, LeavesNothingBehindAFailedSave) {
  Fill();
  const qz::string name = "S:\\stored";
  const std::string whole = Stored();
  // True while there was a failure to survive.
  const auto survives = [&](auto fault, const std::string& what) {
    SDTestAccess::ToDelete(setup_) = SDDeleteInfoList();
    SDTestAccess::Unsaved(setup_) = SDDeleteInfoList();
    SDTestAccess::ToDelete(setup_).push_back(SDTestAccess::Files("a", "b", "c"));
    SDTestAccess::Unsaved(setup_).push_back(SDTestAccess::Files("a", "b", "c"));
    const SDVersionID before = SDTestAccess::SavedVersion(setup_);
    DIOFile::Delete(name);  // an older file outlives a save that cannot even begin
    const auto armed = fault();
    const bool saved = setup_.Save(nullptr, &name);
    const bool fired = armed->Fired();
    if (saved) {
      // Memory that the stream could do without is no failure.
      EXPECT_EQ(whole, ReadBytes(folder_ + "/s/stored")) << what;
      return fired;
    }
    EXPECT_TRUE(fired);
    EXPECT_EQ(SDSetup::ERROR_COULDNOTWRITE, LastError()) << what;
    EXPECT_FALSE(Exists(name)) << what;
    EXPECT_EQ(0u, SDTestAccess::Bookmark(SDTestAccess::ToDelete(setup_))) << what;
    EXPECT_EQ(1u, SDTestAccess::Unsaved(setup_).size()) << what;
    EXPECT_EQ(before, SDTestAccess::SavedVersion(setup_)) << what;
    return true;
  };
  for (int n = 1;
       survives([n] { return std::make_unique<FailingAllocation>(n); }, std::to_string(n)); ++n) {
  }
  // The result of deleting an older file is not looked at: its failure shows at the creation.
  const auto counts = [](platform::Call call, const std::string&) {
    return call != platform::Call::kDeleteFile && call != platform::Call::kGetFileAttributes;
  };
  for (int n = 1; survives([&] { return std::make_unique<FailingCall>(n, counts); },
                           "platform call " + std::to_string(n));
       ++n) {
  }
}

// --- Files that are not what they should be ---

TEST_F(StoredSetup, RefusesAFileThatEndsEarly) {
  Fill();
  const std::string stored = Stored();
  for (std::size_t length = 0; length < stored.size(); ++length) {
    EXPECT_EQ(SDSetup::ERROR_COULDNOTREAD, LoadFile(stored.substr(0, length))) << length;
    if (length < kVersionAt) continue;
    EXPECT_EQ(SDSetup::ERROR_COULDNOTREAD,
              LoadFromDatabase(stored.substr(kVersionAt, length - kVersionAt)))
        << length;
  }
  EXPECT_FALSE(host_.LoadNodeFile(node_, "S:\\no such file"));
  EXPECT_EQ(SDSetup::ERROR_COULDNOTREAD, LastError());
}

TEST_F(StoredSetup, RefusesAFileInWhichAByteIsWrong) {
  Fill();
  const std::string stored = Stored();
  for (std::size_t at = 0; at < kPayloadAt; ++at) {
    std::string damaged = stored;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
    Error expected = SDSetup::ERROR_BADFORMAT;
    // Sizes are not believed, nor missed.
    const bool inSize = (at >= kFileSizeAt && at < 12) || (at >= 20 && at < 28) ||
                        (at >= 48 && at < 56) || at >= 64;
    if (inSize) expected = SDSetup::ERROR_OK;
    if (at >= 56 && at < 60) expected = SDSetup::ERROR_BADVERSION;
    EXPECT_EQ(expected, LoadFile(damaged)) << at;
  }
  // In the payload every value means something; what matters is that nothing breaks.
  for (std::size_t at = kPayloadAt; at < stored.size(); ++at) {
    for (const int value : {0, 1, 0x7F, 0x80, 0xFF}) {
      std::string damaged = stored;
      damaged[at] = static_cast<char>(value);
      const Error error = LoadFile(damaged);
      EXPECT_TRUE(error == SDSetup::ERROR_OK || error == SDSetup::ERROR_COULDNOTREAD) << at;
      EXPECT_LE(setup_.GetNumQualityClasses(), 3) << at;
    }
  }
}

TEST_F(StoredSetup, JudgesTheVersionBehindTheHeadOfTheData) {
  Fill();
  const SDVersionID before = SDTestAccess::SavedVersion(setup_);
  std::string newer = Stored();
  newer[58] = 2;
  std::string misspelled = newer;
  misspelled[60] = 'd';
  setup_.SetSampleFolder("S:\\kept\\");
  const SDVersionID saved = SDTestAccess::SavedVersion(setup_);
  EXPECT_NE(before, saved);
  EXPECT_EQ(SDSetup::ERROR_BADFORMAT, LoadFile(misspelled));
  EXPECT_EQ(SDSetup::ERROR_BADVERSION, LoadFile(newer));
  EXPECT_EQ("Bad version", FakeHost::ErrorText(node_));
  EXPECT_EQ("..\\kept\\", setup_.GetSampleFolder());
  EXPECT_THAT(Counts(), ElementsAre(7, 0));
  EXPECT_EQ(saved, SDTestAccess::SavedVersion(setup_));
}

TEST_F(StoredSetup, KeepsWhatWasReadInFrontOfACut) {
  Fill();
  const std::string stored = Stored();
  setup_.SetSampleFolder("S:\\x\\");
  EXPECT_EQ(SDSetup::ERROR_COULDNOTREAD, LoadFile(stored.substr(0, stored.size() - 1)));
  EXPECT_EQ(".\\samples\\", setup_.GetSampleFolder());
  EXPECT_THAT(setup_.EnumerateQualityClasses(), ElementsAre("Low 50%s"));
}

// Exhausted memory must not pass for a smaller list.
TEST_F(StoredSetup, ReportsExhaustedMemoryInALoad) {
  SDTestAccess::Classes(setup_).emplace_back("a name too long for the text's own buffer",
                                             static_cast<qz::uchar>(4));
  Stored();
  const qz::string name = "S:\\stored";
  for (int n = 1;; ++n) {
    FailingAllocation fault(n);
    const bool loaded = host_.LoadNodeFile(node_, name);
    const bool fired = fault.Fired();
    EXPECT_EQ(loaded ? SDSetup::ERROR_OK : SDSetup::ERROR_COULDNOTREAD, LastError()) << n;
    EXPECT_TRUE(fired || loaded) << n;
    EXPECT_TRUE(!loaded || setup_.GetNumQualityClasses() == 1) << n;
    if (!fired) break;
  }
}

}  // namespace
}  // namespace sdtest
