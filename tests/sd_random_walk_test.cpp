// A random walk of a user through the library. Behind every step nodes and files are taken down; a
// step that is refused leaves them as they were, one that succeeds changes what it is about, undo
// brings back what an earlier step found, and opening what the last save found.
//
// SD_WALK_SEED and SD_WALK_STEPS set seed and length; scripts/soak does.
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <iostream>
#include <random>
#include <set>
#include <tuple>

#include "tests/sd_fixture.h"

namespace sdtest {
namespace {

namespace fs = std::filesystem;

const char* const kSources[] = {"a.wav",    "b.wav",    "c.wave",  "d.snd",       "stereo.wav",
                                "byte.wav", "loop.wav", "bad.wav", "missing.wav", "nodot"};
const char* const kClasses[] = {"Low", "High", "Third", "Low", "High", "Unknown"};
const char* const kOutside[] = {"S:\\out1", "S:\\out2", "S:\\missing"};
constexpr std::size_t kMostNodes = 4;
constexpr int kLastFormat = kAdpcmVs;

// Files go by their paths on S:, with '/'.
std::string OnDrive(const qz::string& path) {
  std::string name = path.c_str();
  name.erase(0, 3);
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

bool HasExtension(const std::string& name) {
  return name.find('.') != std::string::npos;
}

qz::ulong TypeOf(qz::uchar format) {
  return format == kDefault ? qz::ulong{kAdpcm} : format;
}

struct Sample {
  std::string qualClass;
  std::string original;
  qz::ulong type;
  std::string bytes;  // of the raw file; empty where that is gone
  std::string raw = {};
  std::string encoded = {};
};

struct Node {
  std::string name;
  std::string selected = {};
  std::vector<Sample> samples = {};
  bool out = false;
  std::string outFolder = {};
  bool canUndoCheckIn = false;

  Sample* Find(const std::string& qualClass) {
    const auto found = std::find_if(samples.begin(), samples.end(), [&](const Sample& sample) {
      return sample.qualClass == qualClass;
    });
    return found == samples.end() ? nullptr : &*found;
  }
};
using Nodes = std::map<int, Node>;

// A line for each node and sample. Where the files lie is the library's business.
Tree Lines(const Nodes& nodes, bool withBytes) {
  Tree lines;
  for (const auto& [id, node] : nodes) {
    const std::string start = "node " + std::to_string(id) + " " + node.name + " ";
    lines[start + "selected=" + node.selected + (node.out ? " out " : " in ") + node.outFolder +
          (node.canUndoCheckIn ? " can undo check-in" : "")];
    int place = 0;
    for (const Sample& sample : node.samples) {
      std::string& line = lines[start + std::to_string(place++) + " " + sample.qualClass];
      line = sample.original + " type" + std::to_string(sample.type);
      if (withBytes) line += sample.bytes;
    }
  }
  return lines;
}

// One database from its making to the last close. A fresh one every now and then keeps a step
// cheap.
class Walk : public SampleDataTest {
 public:
  Walk(std::mt19937_64& random, std::deque<std::string>& trace) : random_(random), trace_(trace) {
    fs::create_directories(folder_ + "/s/out1");
    fs::create_directories(folder_ + "/s/out2");
    alwaysFlagged_ = Chance(60);
    heedful_ = Chance(60);
    Say(std::string("a new database, ") + (alwaysFlagged_ ? "" : "not ") + "always flagged, " +
        (heedful_ ? "" : "not ") + "heedful");
    for (const std::string name : kSources) {
      Wav wav = SomeSound(1 + static_cast<std::uint32_t>(Below(40)), name == "stereo.wav" ? 2 : 1,
                          name == "byte.wav" ? 8 : 16);
      wav.loop = name == "loop.wav";
      if (name != "missing.wav") MakeWav(name, wav);
    }
    WriteBytes(folder_ + "/s/wav/bad.wav", "no sound");
    host_.dropsDeleted = true;
    AddPreparedSetup();
    SetupNode().AddQualityClass("Third", 3);
    Observe();
    Save(false);
  }
  void TestBody() override {}
  using SampleDataTest::TearDown;

  // False where the database has come to its end.
  bool Step() {
    refused_ = false;
    if (live_.empty()) {
      AddNode();
    } else {
      const auto node = std::next(live_.begin(), static_cast<long>(Below(live_.size())));
      if (!StepOf(node->first, *node->second)) return false;
    }
    Check();
    return true;
  }

 private:
  std::size_t Below(std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
  }
  bool Chance(std::size_t percent) { return Below(100) < percent; }
  template <class T, std::size_t N>
  T Any(T const (&choices)[N]) {
    return choices[Below(N)];
  }
  SDSetup& SetupNode() { return static_cast<FakeNode*>(host_.GetSampleSetupNode())->Setup(); }
  void Say(const std::string& what) {
    trace_.push_back(what);
    if (trace_.size() > 40) trace_.pop_front();
  }
  bool Has(const std::string& file) const { return files_.count(file) != 0; }
  bool IsSaved(const std::string& file) const { return stored_.files.count(file) != 0; }
  std::string Bytes(const std::string& file) const { return Has(file) ? files_.at(file) : ""; }

  // The answer of a step that has to succeed where it is legal.
  bool Agrees(bool isLegal, SDAccess::SDError error, const SDAccess& access) {
    EXPECT_EQ(isLegal, error == SDAccess::ERROR_OK) << error;
    EXPECT_EQ(error, SDTestAccess::LastError(access));
    refused_ = !isLegal;
    return isLegal;
  }

  // --- Steps ---

  bool StepOf(int id, FakeNode& fake) {
    SDAccess& access = fake.Sample();
    const std::string name = "n" + std::to_string(id);
    const std::string qualClass = Any(kClasses);
    const std::size_t choice = Below(100);
    if (choice < 26) {
      Import(id, access, qualClass);
    } else if (choice < 34) {
      ChangeFormat(id, access, qualClass);
    } else if (choice < 40) {
      Remove(id, access, qualClass);
    } else if (choice < 43) {
      Say(name + " select " + qualClass);
      const bool isLegal = nodes_.at(id).Find(qualClass) != nullptr;
      EXPECT_EQ(isLegal, access.SetSelQualityClass(qualClass.c_str()));
      if (!isLegal) return true;
      Note(UNDO_SD_QUALITYCHANGE, id);
      nodes_.at(id).selected = qualClass;
    } else if (choice < 58) {
      Undo();
    } else if (choice < 61) {
      ForgetRecords();
    } else if (choice < 64) {
      if (live_.size() < kMostNodes) Chance(30) ? AddNode() : Copy(id, fake);
    } else if (choice < 67) {
      Delete(id, fake);
    } else if (choice < 72) {
      CheckOut(id, access, Any(kOutside), false);
    } else if (choice < 74) {
      EditOutside();
    } else if (choice < 79) {
      CheckIn(id, access);
    } else if (choice < 85) {
      UndoCheckIn(id, access);
    } else if (choice < 86) {
      Say(name + " undo check-out");
      if (Agrees(nodes_.at(id).out, access.UndoCheckOut(), access)) nodes_.at(id).out = false;
    } else if (choice < 88) {
      CheckOut(id, access, nodes_.at(id).outFolder, true);
    } else if (choice < 97) {
      Save(Chance(10));
    } else {
      return CloseAndOpen();
    }
    return true;
  }

  struct Record {
    SDUndoAction action;
    int id;
    Node before;
  };

  // The host has the record by now.
  void Note(SDUndoAction action, int id) {
    const char* const texts[] = {"",
                                 "delete sample node",
                                 "load sample node",
                                 "import sample node",
                                 "copy sample node",
                                 "change sample encoding type",
                                 "change selected quality class"};
    EXPECT_STREQ(texts[action], host_.undo.back().info.description.c_str());
    records_.push_back({action, id, nodes_.at(id)});
    if (action != UNDO_SD_QUALITYCHANGE) checkedIn_.erase(id);
  }

  // How many of the samples, from the first, can be copied to a new folder; a file of the user
  // comes in place of the raw one for those in `replaced`.
  std::size_t Movable(const std::vector<Sample>& samples,
                      const std::set<std::string>& replaced = {}) const {
    const auto stop = std::find_if_not(samples.begin(), samples.end(), [&](const Sample& sample) {
      return HasExtension(sample.original) && Has(sample.encoded) &&
             (Has(sample.raw) || replaced.count(sample.qualClass) != 0);
    });
    return static_cast<std::size_t>(stop - samples.begin());
  }
  bool CanMove(const Node& node, const std::set<std::string>& replaced = {}) const {
    return Movable(node.samples, replaced) == node.samples.size();
  }
  bool IsSound(const std::string& file) const {
    const auto found = outside_.find(file);
    return found != outside_.end() && found->second.starts_with("RIFF");
  }

  void Import(int id, SDAccess& access, const std::string& qualClass) {
    const std::string source = Any(kSources);
    const auto format = static_cast<qz::uchar>(Below(Chance(10) ? 7 : 6));
    const std::string path = "S:\\wav\\" + source;
    Say("n" + std::to_string(id) + " import " + source + " " + std::to_string(format) + " " +
        qualClass);
    Node& node = nodes_.at(id);
    Sample* sample = node.Find(qualClass);
    const bool isTried =
        !node.out && qualClass != "Unknown" && outside_.count("wav/" + source) != 0;
    const bool isLegal = isTried && IsSound("wav/" + source) && CanMove(node, {qualClass}) &&
                         (sample != nullptr || (HasExtension(source) && format <= kLastFormat));
    // Also where it fails then.
    if (isTried && node.samples.empty()) node.selected = qualClass;
    if (!Agrees(isLegal, access.ImportSample(path.c_str(), format, qualClass.c_str()), access)) {
      return;
    }
    Note(UNDO_SDSAMPLE_IMPORTED, id);
    if (sample == nullptr) {
      sample = &node.samples.emplace_back();
      sample->qualClass = qualClass;
      sample->type = TypeOf(format);
    }
    sample->original = path;
    sample->bytes = outside_.at("wav/" + source);
  }

  void ChangeFormat(int id, SDAccess& access, const std::string& qualClass) {
    const auto format = static_cast<qz::uchar>(Below(Chance(10) ? 7 : 6));
    Say("n" + std::to_string(id) + " format " + qualClass + " " + std::to_string(format));
    Sample* const sample = nodes_.at(id).Find(qualClass);
    const qz::ulong type = TypeOf(format);
    const bool isSame = sample != nullptr && sample->type == type;
    const bool isLegal =
        isSame || (sample != nullptr && type <= kLastFormat && CanMove(nodes_.at(id)));
    const SDAccess::SDError error = access.ChangeSampleFormat(qualClass.c_str(), format);
    if (!Agrees(isLegal, error, access)) return;
    refused_ = isSame;
    if (isSame) return;
    Note(UNDO_SDSAMPLE_TYPECHANGE, id);
    sample->type = type;
  }

  void Remove(int id, SDAccess& access, const std::string& qualClass) {
    Say("n" + std::to_string(id) + " remove " + qualClass);
    Node& node = nodes_.at(id);
    const bool isLegal =
        !node.out && node.Find(qualClass) != nullptr && (node.samples.size() == 1 || CanMove(node));
    if (!Agrees(isLegal, access.RemoveSample(qualClass.c_str()), access)) return;
    Note(UNDO_SDSAMPLE_DELETED, id);
    std::erase_if(node.samples, [&](const Sample& each) { return each.qualClass == qualClass; });
  }

  // --- Check-out ---

  static std::string NameOutside(const Node& node, const Sample& sample,
                                 const std::string& folder) {
    return OnDrive((folder + "\\" + node.name + " (" + sample.qualClass + ")" +
                    sample.raw.substr(sample.raw.rfind('.')))
                       .c_str());
  }

  void CheckOut(int id, SDAccess& access, const std::string& folder, bool again) {
    Say("n" + std::to_string(id) + (again ? " redo check-out" : " check-out " + folder));
    Node& node = nodes_.at(id);
    const bool isThere =
        std::all_of(node.samples.begin(), node.samples.end(),
                    [&](const auto& sample) { return folder != "S:\\missing" && Has(sample.raw); });
    const bool isLegal = node.out == again && isThere;
    const auto error = again ? access.RedoCheckOut() : access.CheckOut(folder.c_str());
    if (again) node.out = false;
    if (!Agrees(isLegal, error, access)) return;
    node.out = true;
    node.outFolder = folder;
    for (const Sample& sample : node.samples)
      outside_[NameOutside(node, sample, folder)] = sample.bytes;
  }

  void CheckIn(int id, SDAccess& access) {
    const std::string elsewhere = Chance(80) ? "" : Any(kOutside);
    Say("n" + std::to_string(id) + " check-in " + elsewhere);
    Node& node = nodes_.at(id);
    const Node before = node;
    bool isLegal = node.out;
    std::set<std::string> replaced;
    for (Sample& sample : node.samples) {
      if (!isLegal) break;
      const std::string name =
          NameOutside(node, sample, elsewhere.empty() ? node.outFolder : elsewhere);
      isLegal = IsSound(name);
      if (isLegal) sample.bytes = outside_.at(name);
      replaced.insert(sample.qualClass);
    }
    isLegal = isLegal && CanMove(node, replaced);
    const auto error = elsewhere.empty() ? access.CheckIn() : access.CheckIn(elsewhere.c_str());
    if (!Agrees(isLegal, error, access)) {
      node = before;
      return;
    }
    node.out = false;
    node.canUndoCheckIn = !node.samples.empty();
    checkedIn_[id] = before;
  }

  void UndoCheckIn(int id, SDAccess& access) {
    Node& node = nodes_.at(id);
    const bool isLegal = !node.out && node.canUndoCheckIn;
    // What later changes have overtaken, the host warns of.
    if (heedful_ && (!wholeSave_ || (isLegal && checkedIn_.count(id) == 0))) return;
    Say("n" + std::to_string(id) + " undo check-in");
    const bool hasNames =
        std::all_of(node.samples.begin(), node.samples.end(),
                    [](const Sample& sample) { return HasExtension(sample.original); });
    Agrees(isLegal && hasNames, access.UndoCheckIn(), access);
    refused_ = !isLegal;
    if (!isLegal) return;
    node.canUndoCheckIn = false;
    forgets_ = forgets_ || (!node.samples.empty() && IsSaved(node.samples.front().raw));
    if (heedful_) node.samples = checkedIn_.at(id).samples;
    checkedIn_.erase(id);
  }

  void EditOutside() {
    std::vector<std::string> names;
    for (const auto& [name, bytes] : outside_) {
      if (name.starts_with("out") && name.back() != '/') names.push_back(name);
    }
    if (names.empty()) return;
    const std::string name = names[Below(names.size())];
    const bool isDeleted = Chance(8);
    Say((isDeleted ? "delete " : "edit ") + name);
    if (isDeleted) {
      fs::remove(folder_ + "/s/" + name);
      outside_.erase(name);
      return;
    }
    const auto length = 1 + static_cast<std::uint32_t>(Below(60));
    outside_[name] = Chance(10) ? "broken" : WavBytes(SomeSound(length));
    WriteBytes(folder_ + "/s/" + name, outside_[name]);
  }

  // --- Nodes ---

  void AddNode() {
    const int id = nextNode_++;
    Say("new n" + std::to_string(id));
    AddNode(id);
  }

  void AddNode(int id) {
    nodes_[id].name = "node" + std::to_string(id);
    live_[id] = &host_.AddSample(nodes_[id].name);
  }

  void Copy(int from, FakeNode& fake) {
    const int id = nextNode_;
    AddNode();
    Say("copy n" + std::to_string(from) + " to n" + std::to_string(id));
    SDAccess& copy = live_.at(id)->Sample();
    const bool isLegal = CanMove(nodes_.at(from));
    EXPECT_EQ(isLegal, copy.Copy(&fake));
    if (isLegal) {
      nodes_.at(id).samples = nodes_.at(from).samples;
      nodes_.at(id).selected = nodes_.at(from).selected;
      Note(UNDO_SD_COPIED, id);
    } else {
      host_.Remove(*live_.at(id));
      Forget(id);
    }
  }

  void Delete(int id, FakeNode& fake) {
    Say("delete n" + std::to_string(id));
    HDBUndoInfo info;
    EXPECT_TRUE(fake.Sample().GatherDeleteInfo(&info));
    host_.undo.push_back({&fake, info});
    host_.Remove(fake);
    Note(UNDO_SD_DELETED, id);
    Forget(id);
  }

  void Forget(int id) {
    nodes_.erase(id);
    live_.erase(id);
    checkedIn_.erase(id);
  }

  // --- Undo ---

  void Undo() {
    if (records_.empty() || (heedful_ && !wholeSave_)) return;
    const Record record = records_.back();
    records_.pop_back();
    const int id = record.id;
    Say("undo of " + std::to_string(record.action) + " n" + std::to_string(id));
    if (record.action == UNDO_SD_DELETED) AddNode(id);
    FakeHost::Undo real = host_.undo.back();
    host_.undo.pop_back();
    EXPECT_EQ(record.action, static_cast<int>(real.info.ID));
    const bool isLegal = record.action != UNDO_SD_DELETED || CanMove(record.before);
    EXPECT_EQ(isLegal, live_.at(id)->Sample().DoUndo(&real.info));
    Discard({real});
    if (record.action == UNDO_SD_COPIED) return Forget(id);
    Node& node = nodes_.at(id);
    const bool selects = record.action == UNDO_SD_DELETED || record.action == UNDO_SD_QUALITYCHANGE;
    if (selects && isLegal) node.selected = record.before.selected;
    if (record.action == UNDO_SD_QUALITYCHANGE) return;
    node.samples = record.before.samples;
    if (!isLegal) node.samples.resize(Movable(node.samples));
    checkedIn_.erase(id);
  }

  void Discard(std::vector<FakeHost::Undo> records) {
    host_.undo.swap(records);
    host_.DiscardUndo();
    host_.undo.swap(records);
  }

  // The oldest fall off the host's list.
  void ForgetRecords() {
    if (records_.empty()) return;
    const auto count = static_cast<long>(1 + Below(records_.size()));
    Say("forget " + std::to_string(count) + " records");
    records_.erase(records_.begin(), records_.begin() + count);
    const auto end = host_.undo.begin() + count;
    const std::vector<FakeHost::Undo> oldest(host_.undo.begin(), end);
    host_.undo.erase(host_.undo.begin(), end);
    Discard(oldest);
  }

  // --- Saving, closing, opening ---

  struct Stored {
    std::string setup;
    std::map<int, std::string> nodes;
    Nodes state;
    Tree files;
  };

  bool Store(const HDBAccessBaseInterface& object, std::string& bytes) {
    DIOFile* file = DIOFile::OpenFile("T:\\stored", DIOFile::OPENMODE_CREATE);
    const bool saved = object.Save(file, nullptr);
    DIOFile::CloseFile(file);
    bytes = ReadBytes(folder_ + "/t/stored");
    return saved;
  }

  // The setup first, as one transaction. `fails`: a raw file cannot be found on the way.
  void Save(bool fails) {
    Say(std::string("save") + (fails ? " that fails" : ""));
    std::string hidden;
    for (const auto& [id, node] : nodes_) {
      for (const Sample& sample : node.samples) {
        if (fails && hidden.empty() && Has(sample.raw)) hidden = sample.raw;
      }
    }
    const std::string path = folder_ + "/s/" + hidden;
    if (!hidden.empty()) fs::rename(path, folder_ + "/t/hidden");
    Stored stored;
    EXPECT_TRUE(Store(SetupNode(), stored.setup));
    wholeSave_ = true;
    for (const auto& [id, node] : nodes_) {
      for (const Sample& sample : node.samples) {
        wholeSave_ = wholeSave_ && sample.raw != hidden && Has(sample.raw) && Has(sample.encoded);
        for (const std::string& file : {sample.raw, sample.encoded}) {
          if (Has(file)) stored.files[file] = files_.at(file);
        }
      }
      EXPECT_EQ(wholeSave_, Store(live_.at(id)->Sample(), stored.nodes[id]));
      if (!wholeSave_) break;
      stored.state[id] = {node.name, node.selected, node.samples};
    }
    if (!hidden.empty()) fs::rename(folder_ + "/t/hidden", path);
    if (!wholeSave_) return;
    stored_ = stored;
    forgets_ = false;
  }

  bool CloseAndOpen() {
    if (Chance(50)) Save(false);
    const bool flagged = wholeSave_ && (alwaysFlagged_ || Chance(50));
    Say(std::string("close ") + (flagged ? "flagged" : "without the flag"));
    clean_ = clean_ && flagged && !forgets_;
    forgets_ = false;
    host_.shutDown = flagged;
    host_.Close();
    host_.shutDown = false;
    nodes_.clear();
    live_.clear();
    records_.clear();
    checkedIn_.clear();
    Load(host_.AddSetup().Setup(), stored_.setup);
    Check();
    if (!heedful_) return false;
    for (const auto& [name, content] : files_) {
      const auto saved = stored_.files.lower_bound(name);
      const bool isOfUse = saved != stored_.files.end() && saved->first.starts_with(name);
      EXPECT_TRUE(!clean_ || isOfUse || name == "db/samples/") << name << " is left behind";
    }
    Say("open");
    for (const auto& [id, node] : stored_.state) {
      AddNode(id);
      nodes_[id] = node;
      Load(live_[id]->Sample(), stored_.nodes.at(id));
    }
    wholeSave_ = true;
    return Chance(85);
  }

  void Load(HDBAccessBaseInterface& object, const std::string& bytes) {
    WriteBytes(folder_ + "/t/stored", bytes);
    DIOFile* file = DIOFile::OpenFile("T:\\stored", DIOFile::OPENMODE_OPEN);
    EXPECT_TRUE(file->SetPosition(qz::uint64{28}, DIOFile::SEEKMODE_START)) << "the type chunk";
    EXPECT_TRUE(object.Load(file, nullptr));
    DIOFile::CloseFile(file);
  }

  // --- What there is ---

  Node Observed(const FakeNode& fake) {
    const SDAccess& access = fake.Sample();
    Node node = {fake.GetName().c_str(), access.GetSelQualityClass().c_str()};
    node.out = access.IsCheckedOut();
    node.outFolder = SDTestAccess::CheckOutFolder(access).c_str();
    node.canUndoCheckIn = access.CanUndoCheckIn();
    for (const SDSample& sample : SDTestAccess::Samples(access)) {
      const std::string raw = OnDrive(SDTestAccess::Expand(access, sample.fileName));
      node.samples.push_back({sample.qualClass.c_str(), sample.originalName.c_str(),
                              sample.compType, Bytes(raw), raw,
                              OnDrive(SDTestAccess::EncodedName(access, sample.fileName))});
    }
    return node;
  }

  void Observe() {
    files_.clear();
    outside_.clear();
    const std::string root = folder_ + "/s/";
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
      const std::string name = entry.path().string().substr(root.size());
      Tree& tree = name.starts_with("db/samples") ? files_ : outside_;
      if (entry.is_directory()) {
        tree[name + "/"] = "";
      } else {
        tree[name] = Content(entry.path());
      }
    }
    nodes_.clear();
    for (const auto& [id, fake] : live_)
      nodes_[id] = Observed(*fake);
    lists_.clear();
    for (const auto* list :
         {&SDTestAccess::ToDelete(SetupNode()), &SDTestAccess::Unsaved(SetupNode())}) {
      for (const SDDeleteInfo& pair : *list) {
        lists_.push_back(OnDrive(pair.getRawName()));
        lists_.push_back(OnDrive(pair.getEncodedName()));
      }
    }
  }

  // A file's content, of an encoded one its format; read again only where size or time tell of a
  // change.
  const std::string& Content(const fs::path& path) {
    struct stat now {};
    stat(path.c_str(), &now);
    const auto [known, isNew] =
        known_.try_emplace({now.st_ino, now.st_size, now.st_mtim.tv_sec, now.st_mtim.tv_nsec}, "");
    if (!isNew) return known->second;
    const std::string bytes = ReadBytes(path.string());
    const bool isEncoded = path.extension() == ".esmp";
    return known->second = isEncoded ? "type" + std::to_string(NumberAt(bytes, 6, 2)) : bytes;
  }

  void Check() {
    const Nodes expected = std::move(nodes_);
    const Tree before = std::move(files_);
    const Tree outside = std::move(outside_);
    const std::vector<std::string> lists = std::move(lists_);
    Observe();
    EXPECT_EQ("", Difference(Lines(expected, heedful_), Lines(nodes_, heedful_)));
    // A check-out may have come as far as a file that is gone.
    if (heedful_) {
      EXPECT_EQ("", Difference(outside, outside_));
    }
    if (refused_) {
      EXPECT_EQ("", Difference(before, files_));
      EXPECT_EQ(lists, lists_);
    }
    CheckFiles(before);
    CheckHost();
  }

  // No file of a state changes, none that is saved goes, and none that is there is forgotten.
  void CheckFiles(const Tree& before) {
    for (const auto& [name, content] : before)
      EXPECT_TRUE(!Has(name) || files_.at(name) == content) << name;
    if (!heedful_) return;
    std::set<std::string> known(lists_.begin(), lists_.end());
    for (const auto& [name, content] : stored_.files) {
      EXPECT_TRUE(Has(name)) << name << " was saved";
      known.insert(name);
    }
    for (const auto& [id, node] : nodes_) {
      for (const Sample& sample : node.samples) {
        EXPECT_TRUE(Has(sample.raw)) << sample.raw;
        EXPECT_EQ("type" + std::to_string(sample.type), Bytes(sample.encoded));
        known.insert({sample.raw, sample.encoded});
      }
    }
    for (const auto& [name, content] : files_)
      EXPECT_TRUE(!clean_ || name.back() == '/' || known.count(name) != 0) << name;
  }

  void CheckHost() {
    EXPECT_EQ(records_.size(), host_.undo.size());
    EXPECT_EQ(0, host_.openModifications);
    EXPECT_EQ(0, host_.undoDisabled);
    bool anyOut = false;
    for (const auto& [id, fake] : live_) {
      const bool isOut = nodes_.at(id).out;
      anyOut = anyOut || isOut;
      EXPECT_EQ(!isOut, fake->Sample().Rename(fake, "other"));
    }
    EXPECT_EQ(anyOut ? SDSetup::ERROR_SAMPLESARECHECKEDOUT : SDSetup::ERROR_CLASSDOESNOTEXIST,
              SetupNode().RemoveQualityClass("Unknown"));
  }

  std::mt19937_64& random_;
  std::deque<std::string>& trace_;
  std::map<int, FakeNode*> live_;
  int nextNode_ = 0;
  // Within a step what has to be, behind it what is.
  Nodes nodes_;
  Tree outside_;  // files of the user
  // As they were behind the step before.
  Tree files_;                      // of the sample folder
  std::vector<std::string> lists_;  // what the setup's two lists name
  std::vector<Record> records_;
  std::map<int, Node> checkedIn_;  // before the check-in, of nodes that nothing has changed since
  Stored stored_;
  std::map<std::tuple<ino_t, off_t, time_t, long>, std::string> known_;
  bool refused_ = false;  // the step has to leave all files and lists alone
  bool alwaysFlagged_ = false;
  // Takes no check-in back that later changes have overtaken, and nothing back behind a save that
  // failed, until one succeeds. Who does may lose saved files: the setup takes them for replaced.
  bool heedful_ = false;
  bool wholeSave_ = true;  // the last save was
  bool clean_ = true;      // no close so far has left files behind
  // A check-in that was saved has been taken back: until the next save no list knows its old files.
  bool forgets_ = false;
};

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 10) : otherwise;
}

TEST(RandomWalk, KeepsToTheRules) {
  const std::uint64_t seed = FromEnvironment("SD_WALK_SEED", std::random_device()());
  const auto steps = static_cast<long>(FromEnvironment("SD_WALK_STEPS", SD_WALK_STEPS));
  std::cout << "SD_WALK_SEED=" << seed << " SD_WALK_STEPS=" << steps << std::endl;
  std::mt19937_64 random(seed);
  std::deque<std::string> trace;
  long step = 0;
  try {
    while (step < steps && !HasFailure()) {
      Walk database(random, trace);
      while (++step < steps && !HasFailure() && database.Step()) {
      }
      database.TearDown();
    }
  } catch (const std::exception& exception) {
    ADD_FAILURE() << exception.what();
  }
  if (!HasFailure()) return;
  std::string text = "The last steps:\n";
  for (const std::string& line : trace)
    text += "  " + line + "\n";
  ADD_FAILURE() << text << "Repeat: SD_WALK_SEED=" << seed << " SD_WALK_STEPS=" << step
                << " sd_tests --gtest_filter='RandomWalk.*'";
}

}  // namespace
}  // namespace sdtest
