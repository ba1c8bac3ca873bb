// Import, format change, removal and selection of samples: what the host hears and decides, where
// files lie, and their faults. What they leave on the disk and in the bookkeeping the random walk
// compares.
#include <algorithm>

#include "tests/audio_helpers.h"
#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;

class SampleSet : public SampleNodeTest {
 protected:
  SampleSet() : wav_(SomeSound(30)) {}

  SDCompType TypeInFile(const char* qualClass) {
    return static_cast<SDCompType>(NumberAt(EncodedBytes(qualClass), 6, 2));
  }

  Wav wav_;
};

// --- Import ---

TEST_F(SampleSet, ImportedSampleTellsItsNumbersAndNames) {
  wav_.loop = true;
  wav_.loopStart = 10;
  wav_.loopEnd = 20;
  wav_.rate = 11025;
  const qz::string source = MakeWav("kick.wav", wav_);
  ASSERT_TRUE(SetFileAttributesA(source.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample(source, kAdpcmPlus, "High"));
  EXPECT_EQ(SDAccess::ERROR_OK, LastError());
  EXPECT_EQ(FILE_ATTRIBUTE_ARCHIVE, GetFileAttributesA(RawPath("High").c_str()));
  EXPECT_EQ(WavBytes(wav_), ReadBytes(Native(RawPath("High"))));
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCMPLUS, TypeInFile("High"));

  SDInfo info;
  info.QualityClass = "untouched";
  ASSERT_EQ(&info, access_.GetSampleInformation("High", info));
  EXPECT_EQ(11025u, info.frq);
  EXPECT_EQ(30u, info.length);
  EXPECT_EQ(10u, info.loop);
  EXPECT_EQ(11u, info.loopLength);
  EXPECT_EQ(60, info.orgKey);
  EXPECT_EQ(1, info.numChannels);
  EXPECT_EQ("untouched", info.QualityClass);
  EXPECT_EQ("ADPCM+", info.type);
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCMPLUS, SDTestAccess::TypeOf(access_, info.type));
  EXPECT_EQ(SDAccess::COMPTYPE_NONE, SDTestAccess::TypeOf(access_, "adpcm"));
  EXPECT_EQ(Record("High").fileName, info.fileName);
  EXPECT_EQ(source, info.originalName);
  SDInfo original;
  ASSERT_EQ(&original, access_.GetOriginalSampleInformation("High", original));
  EXPECT_EQ(info.loopLength, original.loopLength);
}

TEST_F(SampleSet, ImportTakesTheFormatOfItsIndexOrTheDatabasesDefault) {
  const qz::string source = MakeWav("kick.wav", wav_);
  const struct {
    HDBSampleType defaultType;
    bool only;
    qz::uchar format;
    SDCompType type;
  } cases[] = {{HDB_SAMPLETYPE_RAW, false, kDefault, SDAccess::COMPTYPE_ADPCM},
               {HDB_SAMPLETYPE_RAW, false, kPcm8, SDAccess::COMPTYPE_RAW8},
               {HDB_SAMPLETYPE_RAW, true, kDefault, SDAccess::COMPTYPE_RAW},
               {HDB_SAMPLETYPE_RAW, true, kPcm8, SDAccess::COMPTYPE_RAW},
               {HDB_SAMPLETYPE_COMPRESSED, true, kPcm8, SDAccess::COMPTYPE_ADPCM},
               {HDB_SAMPLETYPE_DEFAULT, true, kPcm8, SDAccess::COMPTYPE_ADPCM}};
  for (const auto& [defaultType, only, format, type] : cases) {
    host_.defaultType = defaultType;
    host_.onlyDefaultType = only;
    EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample(source, format, "High"));
    EXPECT_EQ(type, Record("High").compType);
    EXPECT_EQ(type, TypeInFile("High"));
    EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("High"));
  }
  // A change of the format knows no default of the database.
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample(source, kPcm8, "High"));
  host_.defaultType = HDB_SAMPLETYPE_RAW;
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("High", kPcm8));
  EXPECT_EQ(SDAccess::COMPTYPE_RAW8, TypeInFile("High"));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("High", kDefault));
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, TypeInFile("High"));
  EXPECT_EQ(SDAccess::ERROR_UNSUPPORTEDFORMAT,
            Refused([&] { return access_.ChangeSampleFormat("High", 255); }));
}

TEST_F(SampleSet, ChangesNothingWithoutTheHostsConsent) {
  Import("a.wav", wav_, kAdpcm, "Low");
  const qz::string source = MakeWav("kick.wav", wav_);
  const Operation import = [&] { return access_.ImportSample(source, kPcm16, "High"); };
  const Operation change = [&] { return access_.ChangeSampleFormat("Low", kPcm16); };
  const Operation removal = [&] { return access_.RemoveSample("Low"); };
  host_.refuseBegin = true;
  for (const Operation& operation : {import, change, removal})
    EXPECT_EQ(SDAccess::ERROR_READONLY, Refused(operation));
  EXPECT_FALSE(access_.SetSelQualityClass("Low"));
  EXPECT_EQ(SDAccess::ERROR_READONLY, LastError());
  FakeNode& copy = host_.AddSample("copy");
  EXPECT_FALSE(copy.Sample().Copy(&node_));
  EXPECT_EQ(SDAccess::ERROR_READONLY, ErrorOf(copy));
  host_.refuseBegin = false;
  host_.refuseRequest = true;
  const Operation unknown = [&] { return access_.ChangeSampleFormat("unknown", kPcm16); };
  const Operation checkOut = [&] { return access_.CheckOut("S:\\wav"); };
  for (const Operation& operation : {import, unknown, checkOut})
    EXPECT_EQ(SDAccess::ERROR_READONLY, Refused(operation));
  EXPECT_FALSE(Exists("S:\\wav\\kick (Low).wav"));
  host_.refuseRequest = false;
  const int closed = host_.closedWithoutRecord;
  EXPECT_EQ(SDAccess::ERROR_OK, Refused(checkOut));
  EXPECT_EQ(closed, host_.closedWithoutRecord) << "no change of the node";
  host_.refuseBegin = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, Refused([&] { return access_.CheckIn(); }));
  host_.refuseBegin = false;
  EXPECT_TRUE(access_.IsCheckedOut() && !access_.CanUndoCheckIn());
}

// What a head promises need not be there, and must fit the 32 bits of lengths and offsets.
TEST_F(SampleSet, RefusesWhatItsEncodedFileCannotHold) {
  using namespace audiotest;
  const struct {
    qz::ushort channels;
    qz::ulong frames;
    qz::uchar format;
    SDAccess::SDError error;
  } cases[] = {{1, 0xFFFFFFFF, kPcm16, SDAccess::ERROR_UNSUPPORTEDFORMAT},
               {3, 0xC0000000, kPcm8, SDAccess::ERROR_UNSUPPORTEDFORMAT},
               {0, 20, kAdpcm, SDAccess::ERROR_OK}};
  for (const auto& [channels, frames, format, error] : cases) {
    SCOPED_TRACE(channels);
    const Bytes file = AiffFile(AiffCommon(channels, frames, 16, 8000) + AiffSamples(Bytes(8)));
    WriteBytes(folder_ + "/s/wav/a.aif", {file.begin(), file.end()});
    EXPECT_EQ(error, access_.ImportSample("S:\\wav\\a.aif", format, "High"));
    EXPECT_EQ(nullptr, access_.GetDecodedData("High", 0));
    EXPECT_EQ(error == SDAccess::ERROR_OK ? SDAccess::ERROR_COULDNOTREAD
                                          : SDAccess::ERROR_QUALITYNOTAVAILABLE,
              LastError());
  }
}

// --- Format change ---

// The move is made and nothing is lost, but nothing has changed either.
TEST_F(SampleSet, FormatChangeOfARawFileThatBrokeKeepsTheOldFormat) {
  Import("a.wav", wav_, kAdpcm, "Low");
  const SDDeleteInfo oldFiles = Files("Low");
  WriteBytes(Native(RawPath("Low")), "no sound any more");
  const std::size_t undo = host_.undo.size();
  EXPECT_EQ(SDAccess::ERROR_COULDNOTREAD, access_.ChangeSampleFormat("Low", kPcm16));
  EXPECT_EQ(undo, host_.undo.size());
  EXPECT_EQ(1, host_.closedWithoutRecord);
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, Record("Low").compType);
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, TypeInFile("Low"));
  EXPECT_NE(oldFiles.getFolder(), Files("Low").getFolder());
  EXPECT_TRUE(ToDelete().check(oldFiles));
}

// A file of someone else's where a new one should go is neither taken nor removed.
TEST_F(SampleSet, ChangeDeletesNoFileThatItDidNotMake) {
  ImportTwo();
  int copies = 0;
  const Tree before = Database();
  const FailingCall hook(0, [&](platform::Call call, const std::string&) {
    // Into the new folder, in front of the second copy.
    if (call != platform::Call::kCopyFile || ++copies != 2) return false;
    const qz::string folder = SDTestAccess::Expand(access_, SDTestAccess::Folder(access_));
    WriteBytes(Native(folder + "Low.esmp"), "someone else's");
    return false;
  });
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, access_.ChangeSampleFormat("Low", kAdpcmPlus));
  const std::string difference = Difference(before, Database());
  EXPECT_THAT(difference, ::testing::HasSubstr("Low.esmp"));
  EXPECT_EQ(2, std::count(difference.begin(), difference.end(), '\n')) << difference;
}

// --- Names ---

TEST_F(SampleSet, PutsANodeIntoAFolderOfItsOwn) {
  const std::string uuid = "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\\\";
  Import("KICK.Wav", SomeSound(20), kPcm16, "High");
  const std::string folder = SDTestAccess::Folder(access_).c_str();
  // Relative to the database's folder, with a separator at its end, which nothing repairs when the
  // file names are made of it.
  EXPECT_THAT(folder, ::testing::MatchesRegex("\\\\samples\\\\" + uuid));
  EXPECT_EQ(folder + "\\High.Wav", std::string(Record("High").fileName.c_str()));
  EXPECT_EQ("S:\\db" + folder + "High.Wav", std::string(RawPath("High").c_str()));
  EXPECT_EQ("S:\\db" + folder + "High.esmp", std::string(EncodedPath("High").c_str()));
  EXPECT_TRUE(Exists(RawPath("High")));
  EXPECT_TRUE(Exists(EncodedPath("High")));
  // The sample folder and the folder's name are joined as they are.
  qz::string name;
  setup_.SetSampleFolder("S:\\db\\samples");
  ASSERT_TRUE(SDTestAccess::CreateSampleFileName(access_, name));
  EXPECT_THAT(name.c_str(), ::testing::MatchesRegex("\\\\samples" + uuid));
}

TEST_F(SampleSet, TakesEveryNameAsRelativeToTheDatabasesFolder) {
  const auto expand = [this](const char* database, const char* name) {
    host_.filename = database;
    return std::string(SDTestAccess::Expand(access_, name).c_str());
  };
  EXPECT_EQ("C:\\Sound\\samples\\U\\High.wav",
            expand("C:\\Sound\\game.db", "\\samples\\U\\\\High.wav"));
  EXPECT_EQ("C:\\Sound\\samples\\U\\High.wav", expand("C:/Sound/game.db", "samples/U/High.wav"));
  EXPECT_EQ("game.db\\a.wav", expand("game.db", "a.wav"));
  EXPECT_EQ("C:a.wav", expand("C:game.db", "a.wav"));
  EXPECT_EQ("\\a.wav", expand("", "a.wav"));
  EXPECT_EQ("C:\\Sound\\D:\\a.wav", expand("C:\\Sound\\game.db", "D:\\a.wav"));
  EXPECT_EQ("C:\\Sound\\..\\a.wav", expand("C:\\Sound\\game.db", "..\\a.wav"));
}

// --- Removal ---

TEST_F(SampleSet, RemovalGivesOneReferenceBackButNotBelowNone) {
  for (const bool isReferenced : {true, false}) {
    Import("a.wav", wav_, kPcm16, "Low");
    if (isReferenced) setup_.AddRef("Low");
    EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
    EXPECT_EQ(0, SDTestAccess::Classes(setup_).Find("Low")->GetRefCount());
  }
}

// --- Selection and the node itself ---

TEST_F(SampleSet, TellsUnknownFromMissingClasses) {
  EXPECT_FALSE(access_.SetSelQualityClass("High"));
  EXPECT_EQ(SDAccess::ERROR_UNKNOWNCLASS, LastError());
  SDInfo info;
  EXPECT_EQ(nullptr, access_.GetSampleInformation("unknown", info));
  EXPECT_EQ(SDAccess::ERROR_UNKNOWNCLASS, LastError());
  EXPECT_EQ(nullptr, access_.GetOriginalSampleInformation("High", info));
  EXPECT_EQ(SDAccess::ERROR_QUALITYNOTAVAILABLE, LastError());
  // The code stays where an operation has nothing to say.
  access_.GetQualityClasses();
  access_.Rename(&node_, "x");
  EXPECT_EQ("Quality not available for this sample", FakeHost::ErrorText(node_));
}

TEST_F(SampleSet, NeedsASetupNodeAndAReference) {
  EXPECT_TRUE(node_.InitSucceeded());
  EXPECT_EQ("Ok", FakeHost::ErrorText(node_));
  EXPECT_EQ(&setup_, access_.GetSetupInterface());
  EXPECT_TRUE(access_.Rename(&node_, "x"));
  SDTestAccess::CheckedOut(access_) = true;
  EXPECT_FALSE(access_.Rename(&node_, "x"));
  SDTestAccess::CheckedOut(access_) = false;

  host_.refuseReference = true;
  FakeNode& unreferenced = host_.AddSample("second");
  EXPECT_FALSE(unreferenced.InitSucceeded());
  EXPECT_EQ("Could not add reference", FakeHost::ErrorText(unreferenced));
  FakeHost empty("S:\\db\\empty.db");
  FakeNode& homeless = empty.AddSample();
  EXPECT_FALSE(homeless.InitSucceeded());
  EXPECT_EQ("No setup node", FakeHost::ErrorText(homeless));
}

// --- Refusals ---

TEST_F(SampleSet, TellsWhyItRefuses) {
  setup_.AddQualityClass("Third", 3);
  Import("b.wav", wav_, kPcm16, "Third");
  Import("a.wav", wav_, kPcm16, "Low");
  WriteBytes(folder_ + "/s/wav/bad.wav", "no sound");
  setup_.AddQualityClass("in\\side", 10);
  setup_.AddQualityClass("low", 11);
  WriteBytes(folder_ + "/s/kick", WavBytes(wav_));
  ASSERT_TRUE(DIOFile::CreateDirectoryA("S:\\a.b"));
  WriteBytes(folder_ + "/s/a.b/c", WavBytes(wav_));
  const auto import = [this](const char* name, qz::uchar format, const char* qualClass) {
    return [=, this] { return access_.ImportSample(name, format, qualClass); };
  };
  const auto change = [this](const char* qualClass, qz::uchar format) {
    return [=, this] { return access_.ChangeSampleFormat(qualClass, format); };
  };
  const auto homeless = [this](const Operation& operation, const char* folder = "S:\\none\\") {
    return [=, this] {
      setup_.SetSampleFolder(folder);
      const Access::SDError error = operation();
      setup_.SetSampleFolder("S:\\db\\samples\\");
      return error;
    };
  };
  const Operation removal = [this] { return access_.RemoveSample("Low"); };
  struct Row {
    Access::SDError expected;
    Operation operation;
  };
  for (const Row& row : std::vector<Row>{
           {Access::ERROR_UNKNOWNCLASS, import("S:\\wav\\a.wav", kPcm16, "unknown")},
           {Access::ERROR_COULDNOTCOPYSAMPLE, import("S:\\wav\\missing.wav", kPcm16, "High")},
           {Access::ERROR_COULDNOTLOAD, import("S:\\wav\\bad.wav", kPcm16, "High")},
           {Access::ERROR_UNSUPPORTEDFORMAT, import("S:\\wav\\a.wav", 6, "High")},
           {Access::ERROR_INTERNAL, import("S:\\kick", kPcm16, "High")},
           // A dot in a folder's name counts, and gives an extension that no file can have.
           {Access::ERROR_COULDNOTCOPYSAMPLE, import("S:\\a.b\\c", kPcm16, "High")},
           // A class name reaches the file system as it is, which may take two for one.
           {Access::ERROR_COULDNOTCOPYSAMPLE, import("S:\\wav\\a.wav", kPcm16, "in\\side")},
           {Access::ERROR_COULDNOTCOPYSAMPLE, import("S:\\wav\\a.wav", kPcm16, "low")},
           {Access::ERROR_INTERNAL, homeless(import("S:\\wav\\a.wav", kPcm16, "High"))},
           // On another drive the folder is absolute, and nothing can be made below the database's.
           {Access::ERROR_INTERNAL, homeless(import("S:\\wav\\a.wav", kPcm16, "High"), "T:\\")},
           {Access::ERROR_UNKNOWNCLASS, change("unknown", kPcm8)},
           {Access::ERROR_QUALITYNOTAVAILABLE, change("High", kPcm8)},
           {Access::ERROR_UNSUPPORTEDFORMAT, change("Low", 6)},
           {Access::ERROR_INTERNAL, homeless(change("Low", kPcm8))},
           {Access::ERROR_INTERNAL, homeless(removal)},
           {Access::ERROR_QUALITYNOTAVAILABLE, [&] { return access_.RemoveSample("unknown"); }},
           {Access::ERROR_COULDNOTCOPYSAMPLE, [&] { return access_.CheckOut("S:\\missing"); }},
           {Access::ERROR_ISNOTCHECKEDOUT, [&] { return access_.CheckIn(); }},
           {Access::ERROR_ISNOTCHECKEDOUT, [&] { return access_.UndoCheckOut(); }},
           {Access::ERROR_ISNOTCHECKEDOUT, [&] { return access_.RedoCheckOut(); }},
           {Access::ERROR_NOPRECHECKINSTATE, [&] { return access_.UndoCheckIn(); }},
           {Access::ERROR_OK, [&] { return access_.CheckOut("S:\\wav"); }},
           {Access::ERROR_ISCHECKEDOUT, import("S:\\wav\\a.wav", kPcm16, "High")},
           {Access::ERROR_ISCHECKEDOUT, removal},
           {Access::ERROR_ISCHECKEDOUT, [&] { return access_.CheckOut("S:\\wav"); }},
           {Access::ERROR_ISCHECKEDOUT, [&] { return access_.UndoCheckIn(); }},
           {Access::ERROR_COULDNOTCOPYSAMPLE, [&] { return access_.CheckIn("S:\\missing"); }},
           {Access::ERROR_INTERNAL, homeless([&] { return access_.CheckIn(); })}}) {
    EXPECT_EQ(row.expected, Refused(row.operation));
  }
}

// --- Copies, deletions ---

// What is listed too often leaves the disk all the same, so nothing else tells.
TEST_F(SampleSet, ListsItsFilesOnceForEachStateThatLeavesThem) {
  ImportTwo();
  EXPECT_EQ(Sizes(1, 3), Listed());
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckOut("S:\\wav"));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.CheckIn());
  EXPECT_EQ(Sizes(3, 5), Listed());
  EXPECT_EQ(SDAccess::ERROR_OK, access_.UndoCheckIn());
  EXPECT_EQ(Sizes(1, 5), Listed());
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  EXPECT_EQ(Sizes(3, 6), Listed());
  EXPECT_TRUE(host_.UndoLast());
  EXPECT_EQ(Sizes(1, 7), Listed());
  HDBUndoInfo record;
  EXPECT_TRUE(access_.GatherDeleteInfo(&record));
  host_.Remove(node_);
  EXPECT_EQ(Sizes(5, 7), Listed());
  EXPECT_TRUE(host_.AddSample().Sample().DoUndo(&record));
  EXPECT_EQ(Sizes(3, 9), Listed());
  host_.undo.push_back({nullptr, record});
}

TEST_F(SampleSet, ACopyThatFailsKeepsWhatItHas) {
  ImportTwo();
  ASSERT_TRUE(DIOFile::Delete(EncodedPath("High")));
  const std::size_t undo = host_.undo.size();
  FakeNode& copy = host_.AddSample("copy");
  EXPECT_FALSE(copy.Sample().Copy(&node_));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, ErrorOf(copy));
  EXPECT_THAT(copy.Sample().GetQualityClasses(), ElementsAre("Low"));
  EXPECT_EQ("", copy.Sample().GetSelQualityClass());
  EXPECT_EQ(undo, host_.undo.size());
  EXPECT_EQ(1, host_.closedWithoutRecord);
}

}  // namespace
}  // namespace sdtest
