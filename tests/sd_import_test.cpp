// Import, format change, removal and selection of samples, with what they leave on the disk, in the
// bookkeeping and with the host.
#include <algorithm>

#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

class SampleSet : public SampleNodeTest {
 protected:
  SampleSet() : wav_(SomeSound(30)) {}

  // An operation that is refused: the answer, where nothing else changed.
  template <class Operation>
  SDAccess::SDError Refused(Operation operation) {
    const Tree before = Database();
    const std::size_t undo = host_.undo.size();
    const qz::string folder = SDTestAccess::Folder(access_);
    const std::list<qz::string> classes = access_.GetQualityClasses();
    const std::size_t unsaved = SDTestAccess::Unsaved(setup_).size();
    const std::size_t toDelete = SDTestAccess::ToDelete(setup_).size();
    const SDAccess::SDError error = operation();
    EXPECT_EQ(error, LastError());
    EXPECT_EQ("", Difference(before, Database()));
    EXPECT_EQ(undo, host_.undo.size());
    EXPECT_EQ(0, host_.openModifications);
    EXPECT_EQ(folder, SDTestAccess::Folder(access_));
    EXPECT_EQ(classes, access_.GetQualityClasses());
    EXPECT_EQ(unsaved, SDTestAccess::Unsaved(setup_).size());
    EXPECT_EQ(toDelete, SDTestAccess::ToDelete(setup_).size());
    return error;
  }
  SDAccess::SDError RefusedImport(const qz::string& source, const char* qualClass = "High") {
    return Refused([&] { return access_.ImportSample(source, kPcm16, qualClass); });
  }

  SDDeleteInfo Files(const char* qualClass) { return {&access_, &Record(qualClass)}; }
  bool IsMarked(const SDDeleteInfo& files) { return SDTestAccess::ToDelete(setup_).check(files); }
  bool IsUnsaved(const SDDeleteInfo& files) { return SDTestAccess::Unsaved(setup_).check(files); }
  SDCompType TypeInFile(const char* qualClass) {
    return static_cast<SDCompType>(NumberAt(EncodedBytes(qualClass), 6, 2));
  }
  const HDBUndoInfo& LastUndo() { return host_.undo.back().info; }
  const SDUndo& LastSnapshot() { return *static_cast<const SDUndo*>(LastUndo().data); }

  Wav wav_;
};

// --- Import ---

TEST_F(SampleSet, ImportBringsTheFileInAndTellsTheHost) {
  wav_.loop = true;
  wav_.loopStart = 10;
  wav_.loopEnd = 19;
  const qz::string source = MakeWav("kick.wav", wav_);
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample(source, kAdpcmPlus, "High"));
  EXPECT_EQ(SDAccess::ERROR_OK, LastError());
  EXPECT_EQ(WavBytes(wav_), ReadBytes(Native(RawPath("High"))));
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCMPLUS, TypeInFile("High"));
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("High"));
  EXPECT_EQ("High", access_.GetSelQualityClass()) << "the first sample selects itself";

  SDInfo info;
  info.QualityClass = "untouched";
  ASSERT_EQ(&info, access_.GetSampleInformation("High", info));
  EXPECT_EQ(32000u, info.frq);
  EXPECT_EQ(30u, info.length);
  EXPECT_EQ(10u, info.loop);
  EXPECT_EQ(10u, info.loopLength);
  EXPECT_EQ(60, info.orgKey);
  EXPECT_EQ(1, info.numChannels);
  EXPECT_EQ("untouched", info.QualityClass);
  EXPECT_EQ("ADPCM+", info.type);
  EXPECT_EQ(Record("High").fileName, info.fileName);
  EXPECT_EQ(source, info.originalName);
  SDInfo original;
  ASSERT_EQ(&original, access_.GetOriginalSampleInformation("High", original));
  EXPECT_EQ(info.loopLength, original.loopLength);

  ASSERT_EQ(1u, host_.undo.size());
  EXPECT_EQ(static_cast<qz::ulong>(UNDO_SDSAMPLE_IMPORTED), LastUndo().ID);
  EXPECT_EQ("import sample node", LastUndo().description);
  EXPECT_TRUE(LastSnapshot().sampleList.empty());
  EXPECT_TRUE(LastSnapshot().internalSampleFileName.empty());
  EXPECT_TRUE(IsUnsaved(Files("High")));
  EXPECT_TRUE(SDTestAccess::ToDelete(setup_).empty());
}

TEST_F(SampleSet, ImportMovesTheOthersToANewFolderAndKeepsTheOldOne) {
  setup_.AddQualityClass("Third", 3);
  Import("a.wav", wav_, kPcm16, "Low");
  Import("b.wav", SomeSound(50), kPcm8, "High");
  const qz::string oldFolder = SDTestAccess::Folder(access_);
  const std::vector<SDDeleteInfo> oldFiles = {Files("Low"), Files("High")};
  const Tree before = Database();
  Import("c.wav", SomeSound(10), kAdpcm, "Third");
  EXPECT_NE(oldFolder, SDTestAccess::Folder(access_));
  const std::string changes = Difference(before, Database());
  EXPECT_EQ(7, std::count(changes.begin(), changes.end(), '\n')) << changes;
  EXPECT_THAT(changes, ::testing::Not(::testing::AnyOf(::testing::HasSubstr("gone"),
                                                       ::testing::HasSubstr("changed"))));
  for (const SDDeleteInfo& files : oldFiles)
    EXPECT_TRUE(IsMarked(files));
  for (const char* qualClass : {"Low", "High", "Third"}) {
    EXPECT_TRUE(IsUnsaved(Files(qualClass))) << qualClass;
    EXPECT_FALSE(IsMarked(Files(qualClass))) << qualClass;
  }
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("Low", "High", "Third"));
  EXPECT_EQ("Low", access_.GetSelQualityClass());
  EXPECT_EQ(2u, LastSnapshot().sampleList.size());
  EXPECT_EQ(oldFolder, LastSnapshot().internalSampleFileName);
}

TEST_F(SampleSet, ReimportKeepsFormatAndExtensionUntilTheNextMove) {
  Import("kick.wav", wav_, kPcm8, "High");
  const SDDeleteInfo oldFiles = Files("High");
  const Wav longer = SomeSound(77);
  const qz::string newer = MakeWav("kick.wave", longer);
  SetWriteTime(newer, 4000000000);  // clocks are coarse
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample(newer, kAdpcm, "High"));
  EXPECT_EQ(SDAccess::COMPTYPE_RAW8, Record("High").compType) << "the index plays no part";
  EXPECT_EQ(77u, Record("High").encodedInfo.length);
  EXPECT_EQ("S:\\wav\\kick.wave", Record("High").originalName);
  EXPECT_THAT(RawPath("High").c_str(), EndsWith("High.wav"));
  EXPECT_EQ(WavBytes(longer), ReadBytes(Native(RawPath("High"))));
  EXPECT_TRUE(IsMarked(oldFiles));
  EXPECT_TRUE(Exists(oldFiles.getRawName()));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("High", kPcm16));
  EXPECT_THAT(RawPath("High").c_str(), EndsWith("High.wave"));
}

// Up to date is a matter of the two times alone, and a copy keeps its source's.
TEST_F(SampleSet, ReimportOfAnOlderFileKeepsTheEncodedOne) {
  Import("kick.wav", wav_, kPcm16, "High");
  const std::string encoded = EncodedBytes("High");
  const qz::string older = MakeWav("older.wav", SomeSound(77));
  SetWriteTime(older, 1000000000);
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample(older, kPcm16, "High"));
  EXPECT_EQ(encoded, EncodedBytes("High"));
  EXPECT_EQ(77u, Record("High").info.length);
  EXPECT_EQ(30u, Record("High").encodedInfo.length);
}

TEST_F(SampleSet, ImportTakesTheFormatOfItsIndexOrTheDatabasesDefault) {
  const qz::string source = MakeWav("kick.wav", wav_);
  const auto typeOf = [&](qz::uchar format) {
    EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample(source, format, "High"));
    const SDCompType type = Record("High").compType;
    EXPECT_EQ(type, TypeInFile("High"));
    EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("High"));
    return type;
  };
  host_.defaultType = HDB_SAMPLETYPE_RAW;
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, typeOf(kDefault)) << "whatever the database's default";
  for (const qz::uchar format : {kPcm16, kAdpcm, kAdpcmPlus, kPcm8, kAdpcmVs}) {
    EXPECT_EQ(static_cast<SDCompType>(format), typeOf(format));
  }
  host_.onlyDefaultType = true;
  EXPECT_EQ(SDAccess::COMPTYPE_RAW, typeOf(kPcm8));
  host_.defaultType = HDB_SAMPLETYPE_COMPRESSED;
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, typeOf(kPcm8));
  host_.defaultType = HDB_SAMPLETYPE_DEFAULT;
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, typeOf(kPcm8));
  host_.onlyDefaultType = false;
  EXPECT_EQ(SDAccess::ERROR_UNSUPPORTEDFORMAT,
            Refused([&] { return access_.ImportSample(source, 6, "High"); }));
}

TEST_F(SampleSet, ImportRefusesBeforeItTouchesAnything) {
  Import("a.wav", wav_, kPcm16, "Low");
  const qz::string source = MakeWav("kick.wav", wav_);
  EXPECT_EQ(SDAccess::ERROR_UNKNOWNCLASS, RefusedImport(source, "high"));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, RefusedImport("S:\\wav\\missing.wav"));
  host_.refuseRequest = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, RefusedImport(source));
  host_.refuseRequest = false;
  host_.refuseBegin = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, RefusedImport(source));
  host_.refuseBegin = false;
  SDTestAccess::CheckedOut(access_) = true;
  EXPECT_EQ(SDAccess::ERROR_ISCHECKEDOUT, RefusedImport(source, "unknown"));
  EXPECT_EQ(SDAccess::ERROR_ISCHECKEDOUT, Refused([&] { return access_.RemoveSample("Low"); }));
  SDTestAccess::CheckedOut(access_) = false;
}

TEST_F(SampleSet, ImportOfAFileThatIsNoSoundLeavesTheOthersAlone) {
  Import("a.wav", wav_, kPcm16, "Low");
  const qz::string fileName = Record("Low").fileName;
  WriteBytes(folder_ + "/s/wav/text.wav", "no sound at all");
  EXPECT_EQ(SDAccess::ERROR_COULDNOTLOAD, RefusedImport("S:\\wav\\text.wav"));
  EXPECT_EQ(1, host_.closedWithoutRecord);
  EXPECT_EQ(SDAccess::ERROR_COULDNOTLOAD, RefusedImport("S:\\wav\\text.wav", "Low"));
  EXPECT_EQ(fileName, Record("Low").fileName);
  EXPECT_EQ("S:\\wav\\a.wav", Record("Low").originalName);
  EXPECT_EQ(30u, Record("Low").info.length);
}

TEST_F(SampleSet, FailedFirstImportLeavesItsClassSelected) {
  WriteBytes(folder_ + "/s/wav/text.wav", "no sound at all");
  EXPECT_EQ(SDAccess::ERROR_COULDNOTLOAD, RefusedImport("S:\\wav\\text.wav"));
  EXPECT_EQ("High", access_.GetSelQualityClass());
}

TEST_F(SampleSet, ImportDropsAReadOnlyMark) {
  const qz::string source = MakeWav("kick.wav", wav_);
  ASSERT_TRUE(SetFileAttributesA(source.c_str(), FILE_ATTRIBUTE_READONLY));
  ASSERT_EQ(SDAccess::ERROR_OK, access_.ImportSample(source, kPcm16, "High"));
  EXPECT_EQ(FILE_ATTRIBUTE_ARCHIVE, GetFileAttributesA(RawPath("High").c_str()));
  SetFileAttributesA(source.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// --- Format change ---

TEST_F(SampleSet, FormatChangeEncodesAnewInANewFolder) {
  Import("a.wav", wav_, kPcm16, "Low");
  Import("b.wav", SomeSound(50), kPcm8, "High");
  const SDDeleteInfo oldLow = Files("Low");
  const SDDeleteInfo oldHigh = Files("High");
  const std::string high = EncodedBytes("High");
  const Tree before = Database();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kAdpcmPlus));
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCMPLUS, Record("Low").compType);
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCMPLUS, TypeInFile("Low"));
  EXPECT_EQ(30u, NumberAt(EncodedBytes("Low"), 16, 8));
  EXPECT_EQ(high, EncodedBytes("High"));
  EXPECT_TRUE(IsMarked(oldLow) && IsMarked(oldHigh));
  EXPECT_TRUE(IsUnsaved(Files("Low")) && IsUnsaved(Files("High")));
  EXPECT_THAT(Difference(before, Database()), ::testing::Not(::testing::HasSubstr("changed")));
  EXPECT_EQ(static_cast<qz::ulong>(UNDO_SDSAMPLE_TYPECHANGE), LastUndo().ID);
  EXPECT_EQ("change sample encoding type", LastUndo().description);
  EXPECT_EQ("Low", LastSnapshot().selQualityClass);
  EXPECT_EQ(SDAccess::COMPTYPE_RAW, LastSnapshot().sampleList.front().compType);
}

TEST_F(SampleSet, FormatChangeToThePresentFormatDoesNothing) {
  Import("a.wav", wav_, kAdpcm, "Low");
  for (const qz::uchar format : {kAdpcm, kDefault}) {
    EXPECT_EQ(SDAccess::ERROR_OK,
              Refused([&] { return access_.ChangeSampleFormat("Low", format); }));
  }
  // The index 0 means ADPCM, whatever the database's default.
  host_.defaultType = HDB_SAMPLETYPE_RAW;
  host_.onlyDefaultType = true;
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kPcm16));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kDefault));
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, TypeInFile("Low"));
}

TEST_F(SampleSet, FormatChangeRefuses) {
  Import("a.wav", wav_, kAdpcm, "Low");
  const auto change = [&](const char* qualClass, qz::uchar format) {
    return Refused([&] { return access_.ChangeSampleFormat(qualClass, format); });
  };
  EXPECT_EQ(SDAccess::ERROR_UNKNOWNCLASS, change("unknown", kPcm16));
  EXPECT_EQ(SDAccess::ERROR_QUALITYNOTAVAILABLE, change("High", kPcm16));
  EXPECT_EQ(SDAccess::ERROR_UNSUPPORTEDFORMAT, change("Low", 6));
  EXPECT_EQ(SDAccess::ERROR_UNSUPPORTEDFORMAT, change("Low", 255));
  host_.refuseBegin = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, change("Low", kPcm16));
  host_.refuseRequest = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, change("unknown", kPcm16));
  host_.refuseBegin = host_.refuseRequest = false;
  ASSERT_TRUE(DIOFile::Delete(RawPath("Low")));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, change("Low", kPcm16));
}

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
  EXPECT_TRUE(IsMarked(oldFiles));
}

TEST_F(SampleSet, FormatChangeWhoseEncodeFailedCanBeUndone) {
  Import("a.wav", wav_, kPcm16, "Low");
  const std::size_t undo = host_.undo.size();
  FailingCall fault(1, [](platform::Call call, const std::string&) {
    return call == platform::Call::kCreateFile;
  });
  EXPECT_EQ(SDAccess::ERROR_COULDNOTWRITE, access_.ChangeSampleFormat("Low", kAdpcm));
  EXPECT_EQ(SDAccess::ERROR_COULDNOTWRITE, LastError());
  EXPECT_TRUE(fault.Fired());
  EXPECT_EQ(undo + 1, host_.undo.size());
  EXPECT_EQ(SDAccess::COMPTYPE_ADPCM, Record("Low").compType);
}

TEST_F(SampleSet, FormatChangeIsAllowedWhileCheckedOut) {
  Import("a.wav", wav_, kPcm16, "Low");
  SDTestAccess::CheckedOut(access_) = true;
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ChangeSampleFormat("Low", kPcm8));
  SDTestAccess::CheckedOut(access_) = false;
}

// --- Removal ---

TEST_F(SampleSet, RemovalOfTheOnlySampleMarksItsFilesAndMakesNoFolder) {
  Import("a.wav", wav_, kPcm16, "Low");
  const SDDeleteInfo files = Files("Low");
  const Tree before = Database();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  EXPECT_EQ("", Difference(before, Database()));
  EXPECT_TRUE(IsMarked(files));
  EXPECT_TRUE(access_.GetQualityClasses().empty());
  EXPECT_TRUE(SDTestAccess::Folder(access_).empty());
  EXPECT_EQ("Low", access_.GetSelQualityClass()) << "the selection stays";
  EXPECT_EQ(static_cast<qz::ulong>(UNDO_SDSAMPLE_DELETED), LastUndo().ID);
  EXPECT_EQ("delete sample node", LastUndo().description);
  EXPECT_EQ(1u, LastSnapshot().sampleList.size());
}

TEST_F(SampleSet, RemovalOfOneOfSeveralMovesTheOthers) {
  Import("a.wav", wav_, kPcm16, "Low");
  Import("b.wav", SomeSound(50), kPcm8, "High");
  const SDDeleteInfo oldLow = Files("Low");
  const SDDeleteInfo oldHigh = Files("High");
  const Tree before = Database();
  const std::size_t unsaved = SDTestAccess::Unsaved(setup_).size();
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  EXPECT_THAT(access_.GetQualityClasses(), ElementsAre("High"));
  EXPECT_TRUE(IsMarked(oldLow) && IsMarked(oldHigh));
  EXPECT_TRUE(IsUnsaved(Files("High")));
  EXPECT_EQ(unsaved + 1, SDTestAccess::Unsaved(setup_).size());
  // The removed sample's fresh copies are gone again.
  const std::string changes = Difference(before, Database());
  EXPECT_EQ(3, std::count(changes.begin(), changes.end(), '\n')) << changes;
  EXPECT_TRUE(Exists(RawPath("High")));
}

TEST_F(SampleSet, RemovalGivesOneReferenceBackButNotBelowNone) {
  Import("a.wav", wav_, kPcm16, "Low");
  setup_.AddRef("Low");
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  EXPECT_EQ(0, SDTestAccess::Classes(setup_).Find("Low")->GetRefCount());
  Import("a.wav", wav_, kPcm16, "Low");
  EXPECT_EQ(SDAccess::ERROR_OK, access_.RemoveSample("Low"));
  EXPECT_EQ(0, SDTestAccess::Classes(setup_).Find("Low")->GetRefCount());
}

TEST_F(SampleSet, RemovalRefuses) {
  Import("a.wav", wav_, kPcm16, "Low");
  // One code, whether the setup or only the node lacks the class.
  for (const char* qualClass : {"unknown", "High"}) {
    EXPECT_EQ(SDAccess::ERROR_QUALITYNOTAVAILABLE,
              Refused([&] { return access_.RemoveSample(qualClass); }));
  }
  host_.refuseBegin = true;
  EXPECT_EQ(SDAccess::ERROR_READONLY, Refused([&] { return access_.RemoveSample("Low"); }));
  host_.refuseBegin = false;
}

// --- Selection and the node itself ---

TEST_F(SampleSet, SelectsAmongTheNodesOwnSamples) {
  Import("a.wav", wav_, kPcm16, "Low");
  EXPECT_FALSE(access_.SetSelQualityClass("High"));
  EXPECT_EQ(SDAccess::ERROR_UNKNOWNCLASS, LastError());
  host_.refuseBegin = true;
  EXPECT_FALSE(access_.SetSelQualityClass("Low"));
  EXPECT_EQ(SDAccess::ERROR_READONLY, LastError());
  host_.refuseBegin = false;
  EXPECT_TRUE(access_.SetSelQualityClass("Low")) << "the class that is selected already";
  EXPECT_EQ(SDAccess::ERROR_OK, LastError());
  EXPECT_EQ(static_cast<qz::ulong>(UNDO_SD_QUALITYCHANGE), LastUndo().ID);
  EXPECT_EQ("change selected quality class", LastUndo().description);
  EXPECT_EQ("Low", LastSnapshot().qualClass);
}

TEST_F(SampleSet, TellsUnknownFromMissingClasses) {
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

TEST_F(SampleSet, MarksItsFilesWhenItGoesButNotWhenTheDatabaseCloses) {
  Import("a.wav", wav_, kPcm16, "Low");
  const SDDeleteInfo files = Files("Low");
  FakeNode& second = host_.AddSample("second");
  ASSERT_EQ(SDAccess::ERROR_OK,
            second.Sample().ImportSample(MakeWav("b.wav", wav_), kPcm16, "Low"));
  host_.Remove(node_);
  EXPECT_TRUE(IsMarked(files));
  host_.shutDown = true;
  host_.Remove(second);
  EXPECT_EQ(1u, SDTestAccess::ToDelete(setup_).size());
  host_.shutDown = false;
}

}  // namespace
}  // namespace sdtest
