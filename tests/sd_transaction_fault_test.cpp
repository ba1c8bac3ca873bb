// Changes of a node's files on a system that fails at any one place: either the change is made, and
// whole, or everything is as before.
#include <algorithm>
#include <optional>

#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

using ::testing::HasSubstr;

// All that a failed change has to leave alone.
struct State {
  std::string samples;
  std::string folder;
  std::string toDelete;
  std::string unsaved;
  Tree disk;
  std::size_t undo = 0;

  bool operator==(const State&) const = default;
};

class Transaction : public SampleNodeTest {
 protected:
  using Change = std::function<SDAccess::SDError(SDAccess&)>;

  Transaction() {
    setup_.AddQualityClass("Third", 3);
    Import("low.wav", SomeSound(20), kPcm16, "Low");
    Import("high.wav", SomeSound(30, 2), kAdpcm, "High");
    MakeWav("new.wav", SomeSound(40));
    SetWriteTime("S:\\wav\\new.wav", 4000000000);
  }

  static std::string Print(const SDSample& sample) {
    std::string text;
    for (const qz::string* part : {&sample.qualClass, &sample.originalName, &sample.fileName}) {
      text += std::string(part->c_str()) + "|";
    }
    for (const std::uint64_t number :
         {std::uint64_t{sample.compType}, std::uint64_t{sample.numChannels}, sample.info.length,
          sample.encodedInfo.length, std::uint64_t{sample.info.frq}}) {
      text += std::to_string(number) + "|";
    }
    return text + "\n";
  }
  static std::string Print(const SDDeleteInfoList& list) {
    std::string text;
    for (const SDDeleteInfo& files : list) {
      text += std::string(files.getRawName().c_str()) + "|" + files.getEncodedName().c_str() + "\n";
    }
    return text;
  }
  State Now() {
    State state;
    for (const SDSample& sample : SDTestAccess::Samples(access_))
      state.samples += Print(sample);
    state.folder = SDTestAccess::Folder(access_).c_str();
    state.toDelete = Print(SDTestAccess::ToDelete(setup_));
    state.unsaved = Print(SDTestAccess::Unsaved(setup_));
    state.disk = Database();
    state.undo = host_.undo.size();
    return state;
  }
  static std::string Difference(const State& before, const State& after) {
    std::string text = sdtest::Difference(before.disk, after.disk);
    if (before.samples != after.samples) text += before.samples + "became\n" + after.samples;
    if (before.folder != after.folder) text += before.folder + " became " + after.folder + "\n";
    if (before.toDelete != after.toDelete) text += "to delete: " + after.toDelete;
    if (before.unsaved != after.unsaved) text += "unsaved: " + after.unsaved;
    if (before.undo != after.undo) text += "undo records\n";
    return text;
  }

  // The content of the files of all samples, by class: what a change comes to, wherever it lies.
  std::map<std::string, std::string> Content() {
    std::map<std::string, std::string> content;
    for (const SDSample& sample : SDTestAccess::Samples(access_)) {
      const char* name = sample.qualClass.c_str();
      content[name] = ReadBytes(Native(RawPath(name))) + EncodedBytes(name);
    }
    return content;
  }

  // Runs the change once for each place at which it can fail, each time from the same start.
  // `fault` arms the n-th failure. `isException` tells of a failure that leaves more than nothing.
  template <class Fault>
  int FailEverywhere(const Change& change, Fault fault,
                     const std::function<bool(SDAccess::SDError)>& isException = {}) {
    // What comes out where nothing fails; the undo brings back where it started.
    const auto start = Content();
    EXPECT_EQ(SDAccess::ERROR_OK, change(access_));
    const auto expected = Content();
    EXPECT_TRUE(host_.UndoLast());
    EXPECT_EQ(start, Content());

    for (int n = 1;; ++n) {
      // The lists would grow with each round, and the work on them with the lists.
      SDTestAccess::ToDelete(setup_) = SDDeleteInfoList();
      SDTestAccess::Unsaved(setup_) = SDDeleteInfoList();
      for (const SDSample& sample : SDTestAccess::Samples(access_)) {
        SDTestAccess::Unsaved(setup_).push_back(SDDeleteInfo(&access_, &sample));
      }
      const State before = Now();
      auto armed = fault(n);
      const SDAccess::SDError error = change(access_);
      const bool fired = armed->Fired();
      const std::string what = Where(*armed, n) + ", error " + std::to_string(error);
      armed.reset();
      EXPECT_EQ(0, host_.openModifications) << what;
      if (error == SDAccess::ERROR_OK) {
        // An encode that the old file stood in for is made up for at the next look.
        if (Content() != expected) {
          EXPECT_EQ(SDAccess::ERROR_OK, SDTestAccess::ReadSampleInformation(access_, high_))
              << what;
        }
        EXPECT_TRUE(expected == Content()) << what;
        EXPECT_TRUE(host_.UndoLast()) << what;
        if (!fired) return n;
      } else if (isException && isException(error)) {
        EXPECT_TRUE(host_.undo.size() == before.undo || host_.UndoLast()) << what;
        EXPECT_TRUE(start == Content()) << what;
      } else {
        EXPECT_EQ("", Difference(before, Now())) << what;
        EXPECT_EQ(error, LastError()) << what;
      }
      EXPECT_TRUE(fired) << what;
      if (HasFailure()) return n;
    }
  }

  static std::string Where(const FailingCall& fault, int) { return fault.What(); }
  static std::string Where(const FailingAllocation&, int n) {
    return "allocation " + std::to_string(n);
  }

  // Calls whose failure can be one of the operation. The results of the rest are not looked at:
  // deletions, ends of searches and files, and the writes of the encoder.
  static std::unique_ptr<FailingCall> FailCall(int n) {
    return std::make_unique<FailingCall>(n, [](platform::Call call, const std::string&) {
      switch (call) {
        case platform::Call::kDeleteFile:
        case platform::Call::kRemoveDirectory:
        case platform::Call::kFindClose:
        case platform::Call::kCloseHandle:
        case platform::Call::kWriteFile:
        case platform::Call::kSetFilePointer:
          return false;
        default:
          return true;
      }
    });
  }
  static std::unique_ptr<FailingAllocation> FailMemory(int n) {
    return std::make_unique<FailingAllocation>(n);
  }

  const qz::string low_ = "Low";
  const qz::string high_ = "High";
  const qz::string third_ = "Third";
  const qz::string source_ = "S:\\wav\\new.wav";

  const Change importNew_ = [this](SDAccess& node) {
    return node.ImportSample(source_, kAdpcmPlus, third_);
  };
  const Change reimport_ = [this](SDAccess& node) {
    return node.ImportSample(source_, kPcm8, high_);
  };
  const Change change_ = [this](SDAccess& node) {
    return node.ChangeSampleFormat(low_, kAdpcmPlus);
  };
  const Change remove_ = [this](SDAccess& node) { return node.RemoveSample(low_); };
};

TEST_F(Transaction, ImportOfANewClassIsWholeOrNothing) {
  EXPECT_GT(FailEverywhere(importNew_, FailCall), 10);
}

TEST_F(Transaction, ReimportIsWholeOrNothing) {
  EXPECT_GT(FailEverywhere(reimport_, FailCall), 10);
}

TEST_F(Transaction, RemovalIsWholeOrNothing) {
  EXPECT_GT(FailEverywhere(remove_, FailCall), 5);
}

// Behind the move a format change is not taken back by itself: the sound that cannot be read leaves
// the sample as it was in a new folder, and the file that cannot be written is the host's to undo.
TEST_F(Transaction, FormatChangeIsWholeOrNothingUntilItEncodes) {
  EXPECT_GT(FailEverywhere(change_, FailCall,
                           [](SDAccess::SDError error) {
                             return error == SDAccess::ERROR_COULDNOTREAD ||
                                    error == SDAccess::ERROR_COULDNOTWRITE;
                           }),
            5);
}

TEST_F(Transaction, FailedFirstImportLeavesNoFolder) {
  FakeNode& node = host_.AddSample("empty");
  const Tree before = Database();
  const auto unsaved = Print(SDTestAccess::Unsaved(setup_));
  for (int n = 1;; ++n) {
    const auto fault = FailCall(n);
    const SDAccess::SDError error = importNew_(node.Sample());
    if (error == SDAccess::ERROR_OK) {
      if (!fault->Fired()) break;
      EXPECT_TRUE(host_.UndoLast());
      continue;
    }
    EXPECT_EQ("", sdtest::Difference(before, Database())) << fault->What();
    EXPECT_TRUE(node.Sample().GetQualityClasses().empty()) << fault->What();
    EXPECT_TRUE(SDTestAccess::Folder(node.Sample()).empty()) << fault->What();
    EXPECT_EQ(unsaved, Print(SDTestAccess::Unsaved(setup_))) << fault->What();
  }
}

// A file of someone else's where a new one should go is neither taken nor removed.
TEST_F(Transaction, DeletesNoFileThatItDidNotMake) {
  int copies = 0;
  platform::SetFaultHook([&](platform::Call call, const char* path) -> DWORD {
    // Into the new folder, in front of the second copy.
    if (call == platform::Call::kCopyFile && ++copies == 2) {
      const std::string folder =
          SDTestAccess::Expand(access_, SDTestAccess::Folder(access_)).c_str();
      WriteBytes(Native((folder + "Low.esmp").c_str()), "someone else's");
      (void)path;
    }
    return NO_ERROR;
  });
  const State before = Now();
  EXPECT_EQ(SDAccess::ERROR_COULDNOTCOPYSAMPLE, change_(access_));
  platform::SetFaultHook({});
  const std::string difference = Difference(before, Now());
  EXPECT_THAT(difference, HasSubstr("Low.esmp"));
  EXPECT_EQ(2, std::count(difference.begin(), difference.end(), '\n')) << difference;
}

}  // namespace
}  // namespace sdtest
