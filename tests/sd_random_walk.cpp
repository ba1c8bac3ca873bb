#include "tests/sd_random_walk.h"

#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <random>
#include <stdexcept>

#include "platform/native.h"
#include "tests/sd_fixture.h"
#include "tests/sd_random_walk_model.h"

namespace sdtest {
namespace {

namespace fs = std::filesystem;
using walk::Error;
using walk::Files;
using walk::kNoFolder;
using walk::Model;

// The walk and the model went different ways.
struct Disagreement : std::runtime_error {
  using std::runtime_error::runtime_error;
};

const char* const kSources[] = {"a.wav",    "b.wav",    "c.wave",  "d.snd",       "stereo.wav",
                                "byte.wav", "loop.wav", "bad.wav", "missing.wav", "nodot"};
const char* const kClasses[] = {"Low", "High", "Third", "Low", "High", "Unknown"};
const char* const kOutside[] = {"S:\\out1", "S:\\out2", "S:\\missing"};
constexpr std::size_t kMostNodes = 4;

// --- What there is, as lines by what they are about ---

std::string Line(const Files& files) {
  const std::string folder = std::to_string(files.folder) + "/";
  return folder + files.Raw() + "+" + folder + files.Encoded() + " ";
}

const char* Description(qz::ulong action) {
  const char* const texts[] = {"",
                               "delete sample node",
                               "load sample node",
                               "import sample node",
                               "copy sample node",
                               "change sample encoding type",
                               "change selected quality class"};
  return action < std::size(texts) ? texts[action] : "?";
}

Tree Expected(const Model& model) {
  Tree state;
  for (const auto& [id, node] : model.nodes) {
    std::string& text = state["node " + std::to_string(id)];
    text = node.name + " selected=" + node.selected + (node.out ? " out" : "") +
           (node.beforeCheckIn != kNoFolder ? " canundo" : "") + ":";
    for (const walk::Sample& sample : node.samples) {
      text += " " + sample.files.qualClass + " type" + std::to_string(sample.type) + " " +
              sample.original + " " + Line(sample.files);
    }
  }
  std::string& toDelete = state["to delete"];
  for (const Files& files : model.toDelete)
    toDelete += Line(files);
  toDelete += "bookmark " + std::to_string(model.bookmark);
  std::string& unsaved = state["unsaved"];
  for (const Files& files : model.unsaved)
    unsaved += Line(files);
  std::string& undo = state["undo"];
  for (const walk::Record& record : model.records)
    undo += std::string(Description(record.action)) + ";";
  for (const auto& [folder, files] : model.disk) {
    const std::string name = "disk " + std::to_string(folder) + "/";
    state[name] = "";
    for (const auto& [file, content] : files)
      state[name + file] = content;
  }
  for (const auto& [path, content] : model.outside)
    state[path] = content;
  return state;
}

// --- The walk ---

// One database from its making to the last close. A fresh one every now and then keeps a step
// cheap.
class Walk {
 public:
  Walk(const std::string& root, std::mt19937_64& random, std::deque<std::string>& trace)
      : root_(root), random_(random), trace_(trace) {
    for (const char* part : {"/db/samples", "/wav", "/out1", "/out2"})
      fs::create_directories(root_ + part);
    platform::MountDrive('S', root_);
    alwaysFlagged_ = Chance(60);
    heedful_ = Chance(60);
    Say(std::string("a new database, ") + (alwaysFlagged_ ? "" : "not ") + "always flagged, " +
        (heedful_ ? "" : "not ") + "heedful");
    MakeSources();
    NewHost();
    host_->AddSetup().Setup().SetSampleFolder("S:\\db\\samples\\");
    int level = 0;
    for (const char* name : {"Low", "High", "Third"})
      Setup().AddQualityClass(name, static_cast<qz::uchar>(++level));
    Save(false);
  }
  ~Walk() {
    host_.reset();
    platform::MountDrive('S', "");
    fs::remove_all(root_);
  }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  // False where the database has come to its end.
  bool Step() {
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
  SDSetup& Setup() { return static_cast<FakeNode*>(host_->GetSampleSetupNode())->Setup(); }
  void Say(const std::string& what) {
    trace_.push_back(what);
    if (trace_.size() > 40) trace_.pop_front();
  }
  template <class T>
  void Agree(T expected, T actual) {
    if (expected == actual) return;
    throw Disagreement("answered " + std::to_string(actual) + " for " + std::to_string(expected));
  }
  // The answer also stands in the node.
  void Agree(Error expected, Error actual, const SDAccess& access) {
    Agree(expected, actual);
    qz::string text;
    qz::ulong code = 0;
    Agree(expected != SDAccess::ERROR_OK, access.GetLastError(text, code));
    Agree(static_cast<qz::ulong>(expected), code);
  }

  // --- Steps ---

  bool StepOf(int id, FakeNode& node) {
    SDAccess& access = node.Sample();
    const std::string name = "n" + std::to_string(id);
    const std::string qualClass = Any(kClasses);
    const std::size_t choice = Below(100);
    if (choice < 26) {
      const std::string source = std::string("S:\\wav\\") + Any(kSources);
      const int format = static_cast<int>(Below(Chance(10) ? 7 : 6));
      Say(name + " import " + source + " " + std::to_string(format) + " " + qualClass);
      const Error expected = model_.Import(id, source, format, qualClass);
      Agree(expected,
            access.ImportSample(source.c_str(), static_cast<qz::uchar>(format), qualClass.c_str()),
            access);
    } else if (choice < 34) {
      const int format = static_cast<int>(Below(Chance(10) ? 7 : 6));
      Say(name + " format " + qualClass + " " + std::to_string(format));
      const Error expected = model_.ChangeFormat(id, qualClass, format);
      Agree(expected, access.ChangeSampleFormat(qualClass.c_str(), static_cast<qz::uchar>(format)),
            access);
    } else if (choice < 40) {
      Say(name + " remove " + qualClass);
      const Error expected = model_.Remove(id, qualClass);
      Agree(expected, access.RemoveSample(qualClass.c_str()), access);
    } else if (choice < 43) {
      Say(name + " select " + qualClass);
      const bool expected = model_.Select(id, qualClass);
      Agree(expected, access.SetSelQualityClass(qualClass.c_str()));
    } else if (choice < 58) {
      Undo();
    } else if (choice < 61) {
      ForgetRecords();
    } else if (choice < 64) {
      if (live_.size() < kMostNodes) Chance(30) ? AddNode() : Copy(id, node);
    } else if (choice < 67) {
      Delete(id, node);
    } else if (choice < 88) {
      CheckOutAndIn(id, access, choice);
    } else if (choice < 97) {
      Save(Chance(10));
    } else {
      return CloseAndOpen();
    }
    return true;
  }

  void CheckOutAndIn(int id, SDAccess& access, std::size_t choice) {
    const std::string name = "n" + std::to_string(id);
    if (choice < 72) {
      const std::string folder = Any(kOutside);
      Say(name + " check-out " + folder);
      const Error expected = model_.CheckOut(id, folder);
      Agree(expected, access.CheckOut(folder.c_str()), access);
    } else if (choice < 74) {
      EditOutside();
    } else if (choice < 79) {
      const std::string folder = Chance(80) ? "" : Any(kOutside);
      Say(name + " check-in " + folder);
      const Error expected = model_.CheckIn(id, folder);
      Agree(expected, folder.empty() ? access.CheckIn() : access.CheckIn(folder.c_str()), access);
    } else if (choice < 85) {
      if (heedful_ && !wholeSave_) return;
      // What later changes have overtaken, the host warns of.
      const walk::Node& node = model_.nodes.at(id);
      if (heedful_ && node.beforeCheckIn != kNoFolder && !node.out && node.overtaken) return;
      Say(name + " undo check-in");
      const Error expected = model_.UndoCheckIn(id);
      Agree(expected, access.UndoCheckIn(), access);
    } else if (choice < 86) {
      Say(name + " undo check-out");
      const Error expected = model_.UndoCheckOut(id);
      Agree(expected, access.UndoCheckOut(), access);
    } else {
      Say(name + " redo check-out");
      const Error expected = model_.RedoCheckOut(id);
      Agree(expected, access.RedoCheckOut(), access);
    }
  }

  void AddNode() {
    const int id = nextNode_++;
    const std::string name = "node" + std::to_string(id);
    Say("new " + name);
    model_.nodes[id].name = name;
    live_[id] = &host_->AddSample(name);
  }

  void Copy(int from, FakeNode& node) {
    const int id = nextNode_;
    AddNode();
    Say("copy n" + std::to_string(from) + " to n" + std::to_string(id));
    const bool expected = model_.Copy(id, from);
    FakeNode& copy = *live_.at(id);
    Agree(expected, copy.Sample().Copy(&node));
    LearnFolder(id, copy);
    if (expected) return;
    model_.Drop(id);
    live_.erase(id);
    host_->Remove(copy);
  }

  void Delete(int id, FakeNode& node) {
    Say("delete n" + std::to_string(id));
    model_.Delete(id);
    HDBUndoInfo info;
    Agree(true, node.Sample().GatherDeleteInfo(&info));
    host_->undo.push_back({&node, info});
    live_.erase(id);
    host_->Remove(node);
  }

  void Undo() {
    if (model_.records.empty() || (heedful_ && !wholeSave_)) return;
    const walk::Record record = model_.records.back();
    Say("undo of " + std::to_string(record.action) + " n" + std::to_string(record.node));
    if (record.action == UNDO_SD_DELETED) {
      model_.nodes[record.node].name = record.before.name;
      live_[record.node] = &host_->AddSample(record.before.name);
    }
    const bool expected = model_.Undo();
    FakeNode& node = *live_.at(record.node);
    FakeHost::Undo real = host_->undo.back();
    host_->undo.pop_back();
    Agree(expected, node.Sample().DoUndo(&real.info));
    Discard({real});
    if (record.action == UNDO_SD_COPIED) live_.erase(record.node);
  }

  void Discard(std::vector<FakeHost::Undo> records) {
    host_->undo.swap(records);
    host_->DiscardUndo();
    host_->undo.swap(records);
  }

  // The oldest fall off the host's list.
  void ForgetRecords() {
    if (model_.records.empty()) return;
    const auto count = static_cast<long>(1 + Below(model_.records.size()));
    Say("forget " + std::to_string(count) + " records");
    model_.records.erase(model_.records.begin(), model_.records.begin() + count);
    const auto end = host_->undo.begin() + count;
    const std::vector<FakeHost::Undo> oldest(host_->undo.begin(), end);
    host_->undo.erase(host_->undo.begin(), end);
    Discard(oldest);
  }

  // --- Files of the user ---

  void PutOutside(const std::string& path, const std::string& bytes) {
    WriteBytes(Native(path), bytes);
    model_.outside[path] = bytes;
  }

  void MakeSources() {
    for (const char* name : kSources) {
      Wav wav = SomeSound(1 + static_cast<std::uint32_t>(Below(40)), name[0] == 's' ? 2 : 1,
                          name[0] == 'b' && name[1] == 'y' ? 8 : 16);
      wav.loop = name[0] == 'l';
      const std::string path = std::string("S:\\wav\\") + name;
      if (name != std::string("missing.wav")) {
        PutOutside(path, name == std::string("bad.wav") ? "no sound" : WavBytes(wav));
      }
    }
  }

  void EditOutside() {
    std::vector<std::string> names;
    for (const auto& [path, bytes] : model_.outside) {
      if (path.compare(0, 6, "S:\\out") == 0) names.push_back(path);
    }
    if (names.empty()) return;
    const std::string path = names[Below(names.size())];
    if (Chance(8)) {
      Say("delete " + path);
      fs::remove(Native(path));
      model_.outside.erase(path);
      return;
    }
    Say("edit " + path);
    const auto length = 1 + static_cast<std::uint32_t>(Below(60));
    PutOutside(path, Chance(10) ? "broken" : WavBytes(SomeSound(length)));
  }

  // --- Saving, closing, opening ---

  struct Stored {
    std::string setup;
    std::map<int, std::string> nodes;
  };

  bool Store(const HDBAccessBaseInterface& object, std::string& bytes) {
    DIOFile* file = DIOFile::OpenFile("S:\\stored", DIOFile::OPENMODE_CREATE);
    const bool saved = object.Save(file, nullptr);
    DIOFile::CloseFile(file);
    bytes = ReadBytes(root_ + "/stored");
    return saved;
  }

  // The setup first, as one transaction. `fails`: a raw file cannot be found on the way.
  void Save(bool fails) {
    Say(std::string("save") + (fails ? " that fails" : ""));
    std::string hidden;
    if (fails) {
      for (const auto& [id, node] : model_.nodes) {
        for (const walk::Sample& sample : node.samples) {
          if (!hidden.empty() || !model_.HasRaw(sample.files)) continue;
          hidden = folders_.at(sample.files.folder) + "/" + sample.files.Raw();
          model_.disk[sample.files.folder].erase(sample.files.Raw());
          hiddenFiles_ = sample.files;
        }
      }
    }
    const std::string path = root_ + "/db/samples/" + hidden;
    if (!hidden.empty()) fs::rename(path, root_ + "/hidden");
    Stored stored;
    bool whole = Store(Setup(), stored.setup);
    Agree(true, whole);
    model_.SaveSetup();
    for (const auto& [id, node] : live_) {
      if (!whole) continue;
      whole = model_.SaveNode(id);
      Agree(whole, Store(node->Sample(), stored.nodes[id]));
    }
    if (!hidden.empty()) {
      fs::rename(root_ + "/hidden", path);
      model_.disk[hiddenFiles_.folder][hiddenFiles_.Raw()] = ReadBytes(path);
    }
    wholeSave_ = whole;
    if (!whole) return;
    model_.Commit();
    stored_ = stored;
    savedFiles_ = FilesOfSavedState();
  }

  bool CloseAndOpen() {
    if (Chance(50)) Save(false);
    const bool flagged = wholeSave_ && (alwaysFlagged_ || Chance(50));
    Say(std::string("close ") + (flagged ? "flagged" : "without the flag"));
    if (!flagged || model_.forgotten) clean_ = false;
    host_->shutDown = flagged;
    host_.reset();
    live_.clear();
    model_.Close(flagged);
    NewHost();
    host_->AddSetup();
    Load(Setup(), stored_.setup);
    Check();
    if (!heedful_) return false;
    for (const auto& [folder, files] : model_.disk) {
      for (const auto& [name, content] : files) {
        if (clean_ && savedFiles_.count(std::to_string(folder) + "/" + name) == 0) {
          throw Disagreement("left behind: " + std::to_string(folder) + "/" + name);
        }
      }
      if (clean_ && files.empty()) throw Disagreement("an empty folder is left behind");
    }
    Say("open");
    model_.Open();
    for (const auto& [id, node] : model_.nodes) {
      live_[id] = &host_->AddSample(node.name);
      Load(live_[id]->Sample(), stored_.nodes.at(id));
    }
    wholeSave_ = true;
    return Chance(85);
  }

  Tree FilesOfSavedState() const {
    Tree files;
    for (const auto& [id, node] : model_.saved) {
      for (const walk::Sample& sample : node.samples) {
        for (const std::string& name : {sample.files.Raw(), sample.files.Encoded()}) {
          const auto folder = model_.disk.find(sample.files.folder);
          if (folder == model_.disk.end() || folder->second.count(name) == 0) continue;
          files[std::to_string(sample.files.folder) + "/" + name] = folder->second.at(name);
        }
      }
    }
    return files;
  }

  void NewHost() {
    host_ = std::make_unique<FakeHost>("S:\\db\\game.db");
    host_->dropsDeleted = true;
  }

  void Load(HDBAccessBaseInterface& object, const std::string& bytes) {
    WriteBytes(root_ + "/stored", bytes);
    DIOFile* file = DIOFile::OpenFile("S:\\stored", DIOFile::OPENMODE_OPEN);
    char typeChunk[28];
    file->Read(typeChunk, 1, sizeof typeChunk);
    const bool loaded = object.Load(file, nullptr);
    DIOFile::CloseFile(file);
    Agree(true, loaded);
  }

  // --- Comparing ---

  std::string Native(const std::string& path) const {
    std::string native = root_ + path.substr(2);
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
  }

  // A folder's name is the library's to choose.
  void LearnFolder(int id, const FakeNode& node) {
    const int folder = model_.nodes.at(id).folder;
    if (folder == kNoFolder || folders_.count(folder) != 0) return;
    std::string name = SDTestAccess::Folder(node.Sample()).c_str();
    while (!name.empty() && name.back() == '\\')
      name.pop_back();
    name.erase(0, name.rfind('\\') + 1);
    if (name.empty() || numbers_.count(name) != 0) return;
    folders_[folder] = name;
    numbers_[name] = folder;
  }

  std::string Number(const std::string& folder) const {
    const auto found = numbers_.find(folder);
    return found == numbers_.end() ? folder : std::to_string(found->second);
  }

  // "number/file" of a full path.
  std::string Short(const qz::string& path) const {
    const std::string text = path.c_str();
    const auto file = text.rfind('\\');
    const auto folder = text.rfind('\\', file - 1);
    if (text.compare(0, folder, "S:\\db\\samples") != 0) return text;
    return Number(text.substr(folder + 1, file - folder - 1)) + "/" + text.substr(file + 1);
  }

  std::string Line(const qz::string& raw, const qz::string& encoded) const {
    return Short(raw) + "+" + Short(encoded) + " ";
  }

  std::string Line(const FakeNode& node) const {
    const SDAccess& access = node.Sample();
    std::string text =
        std::string(node.GetName().c_str()) + " selected=" + access.GetSelQualityClass().c_str() +
        (access.IsCheckedOut() ? " out" : "") + (access.CanUndoCheckIn() ? " canundo" : "") + ":";
    for (const SDSample& sample : SDTestAccess::Samples(access)) {
      text += std::string(" ") + sample.qualClass.c_str() + " type" +
              std::to_string(sample.compType) + " " + sample.originalName.c_str() + " " +
              Line(SDTestAccess::Expand(access, sample.fileName),
                   SDTestAccess::EncodedName(access, sample.fileName));
    }
    return text;
  }

  // A file's content, read again only where size or time tell of a change.
  const std::string& Content(const fs::path& path, bool isEncoded) {
    struct stat now {};
    stat(path.c_str(), &now);
    Known& known = known_[path.string()];
    if (known.inode != now.st_ino || known.size != now.st_size ||
        known.seconds != now.st_mtim.tv_sec || known.nanoseconds != now.st_mtim.tv_nsec) {
      std::string bytes = ReadBytes(path.string());
      if (isEncoded && bytes.size() > 8) bytes = "encoded" + std::to_string(NumberAt(bytes, 6, 2));
      known = {now.st_ino, now.st_size, now.st_mtim.tv_sec, now.st_mtim.tv_nsec, bytes};
    }
    return known.content;
  }

  Tree Actual() {
    Tree state;
    for (const auto& [id, node] : live_) {
      LearnFolder(id, *node);
      state["node " + std::to_string(id)] = Line(*node);
    }
    const auto text = [&](const SDDeleteInfoList& list) {
      std::string lines;
      for (const SDDeleteInfo& files : list)
        lines += Line(files.getRawName(), files.getEncodedName());
      return lines;
    };
    const SDDeleteInfoList& toDelete = SDTestAccess::ToDelete(Setup());
    state["to delete"] =
        text(toDelete) + "bookmark " + std::to_string(SDTestAccess::Bookmark(toDelete));
    state["unsaved"] = text(SDTestAccess::Unsaved(Setup()));
    std::string& undo = state["undo"];
    for (const FakeHost::Undo& record : host_->undo) {
      undo += std::string(record.info.description.c_str()) + ";";
    }
    for (const fs::directory_entry& folder : fs::directory_iterator(root_ + "/db/samples")) {
      const std::string name = "disk " + Number(folder.path().filename().string()) + "/";
      state[name] = "";
      for (const fs::directory_entry& file : fs::directory_iterator(folder)) {
        const bool isEncoded = file.path().extension() == ".esmp";
        state[name + file.path().filename().string()] = Content(file.path(), isEncoded);
      }
    }
    for (const char* folder : {"wav", "out1", "out2"}) {
      for (const fs::directory_entry& file : fs::directory_iterator(root_ + "/" + folder)) {
        state[std::string("S:\\") + folder + "\\" + file.path().filename().string()] =
            Content(file.path(), false);
      }
    }
    return state;
  }

  void Check() {
    const Tree actual = Actual();
    const Tree expected = Expected(model_);
    if (actual != expected) {
      std::string text;
      for (const auto& [what, line] : expected) {
        const auto found = actual.find(what);
        if (found == actual.end()) {
          text += "missing: " + what + "\n";
        } else if (found->second != line) {
          text += what + "\n  expected " + line + "\n  is       " + found->second + "\n";
        }
      }
      for (const auto& [what, line] : actual) {
        if (expected.count(what) == 0) text += "unexpected: " + what + "\n";
      }
      throw Disagreement(text);
    }
    if (heedful_ && FilesOfSavedState() != savedFiles_) throw Disagreement("a saved file is lost");
    Agree(0, host_->openModifications);
    Agree(0, host_->undoDisabled);
    bool anyOut = false;
    for (const auto& [id, node] : live_) {
      const bool out = model_.nodes.at(id).out;
      anyOut = anyOut || out;
      Agree(!out, node->Sample().Rename(node, "other"));
    }
    Agree(anyOut ? SDSetup::ERROR_SAMPLESARECHECKEDOUT : SDSetup::ERROR_CLASSDOESNOTEXIST,
          Setup().RemoveQualityClass("Unknown"));
  }

  struct Known {
    ino_t inode = 0;
    off_t size = -1;
    std::int64_t seconds = 0;
    long nanoseconds = 0;
    std::string content;
  };

  const std::string root_;
  std::mt19937_64& random_;
  std::deque<std::string>& trace_;
  Model model_;
  std::unique_ptr<FakeHost> host_;
  std::map<int, FakeNode*> live_;  // by the model's number
  int nextNode_ = 0;
  std::map<int, std::string> folders_;  // names by the model's number
  std::map<std::string, int> numbers_;
  std::map<std::string, Known> known_;
  Stored stored_;
  Tree savedFiles_;
  Files hiddenFiles_;
  bool alwaysFlagged_ = false;
  // Takes no check-in back that later changes have overtaken, and nothing back behind a save that
  // failed, until one succeeds. Who does may lose saved files: the setup takes them for replaced.
  bool heedful_ = false;
  bool wholeSave_ = true;  // the last save was
  bool clean_ = true;      // nothing that is to go has been forgotten
};

}  // namespace

std::string RandomWalk(std::uint64_t seed, long steps) {
  std::mt19937_64 random(seed);
  std::deque<std::string> trace;
  const platform_test::TempFolder folder(platform_test::FastPlace());
  std::string failure;
  long step = 0;
  try {
    while (step < steps) {
      Walk database(folder.Native("s"), random, trace);
      while (step < steps) {
        ++step;
        if (!database.Step()) break;
      }
    }
  } catch (const std::exception& disagreement) {
    failure = disagreement.what();
    failure += "\nThe last steps:\n";
    for (const std::string& line : trace)
      failure += "  " + line + "\n";
    failure += "Repeat: SD_WALK_SEED=" + std::to_string(seed) +
               " SD_WALK_STEPS=" + std::to_string(step) +
               " sd_tests --gtest_filter='RandomWalk.*'\n";
  }
  return failure;
}

}  // namespace sdtest
