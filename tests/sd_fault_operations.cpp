// The operations of both nodes that can run out of memory or touch the disk.
#include <cstdlib>
#include <memory>
#include <type_traits>

#include "tests/sd_fault_world.h"

namespace sdtest {

namespace {

using Names = Lines;
using platform::Call;

const qz::string kFile = "S:\\a node file of some name";

// An encoder does not notice what its writes come to. A raw file whose time cannot be read is taken
// for a new one, and one that cannot be read leaves the encoded file as it was.
const Calls kEncoder =
    kEnds + Calls{Call::kWriteFile,       Call::kSetFilePointer, Call::kFindFirstFile,
                  Call::kGetFullPathName, Call::kFopen,          Call::kReadFile};

Calls AllCalls() {
  Calls all;
  for (int call = 0; call < static_cast<int>(Call::kCount); ++call)
    all.insert(static_cast<Call>(call));
  return all;
}

// A failed change may leave the files that it could not delete either, all in new folders, and the
// list of a failed load what was read by then.
const Names kNewFiles = {"+ disk db/samples/", "+ unsaved ", "bookmark"};
// Where memory runs out below the library's own steps, a step fails as it does where the disk says
// no.
const std::set<int> kFileCodes = {SDAccess::ERROR_NOMEMORY,     SDAccess::ERROR_COULDNOTCOPYSAMPLE,
                                  SDAccess::ERROR_INTERNAL,     SDAccess::ERROR_COULDNOTLOAD,
                                  SDAccess::ERROR_COULDNOTREAD, SDAccess::ERROR_COULDNOTWRITE};
const std::set<int> kLoadCodes = {SDAccess::ERROR_NOMEMORY, SDAccess::ERROR_COULDNOTREAD,
                                  SDAccess::ERROR_COULDNOTGETSAMPLEINFO};
const Names kList = {"sample ", "encoded ", "stamp ", "selected ", "folder "};

int Answer(const World& w, SDAccess::SDError error) {
  return SDTestAccess::LastError(w.access_) == error ? error : kMismatch;
}
int Answer(const World& w, SDSetup::SDError error) {
  return SDTestAccess::LastError(w.setup_) == error ? error : kMismatch;
}

// --- Changes of the sample set ---

Operation Import(const std::string& name, const char* source, Format format, const char* qualClass,
                 std::function<void(World&)> prepare = {}) {
  Operation bringIn{name, {}, std::move(prepare)};
  bringIn.body = [from = qz::string(source), format, to = qz::string(qualClass)](World& w) {
    return Answer(w, w.access_.ImportSample(from, format, to));
  };
  bringIn.codes = kFileCodes;
  bringIn.encodes = true;
  bringIn.untold = kEncoder;
  return bringIn;
}

// Behind the move to a new folder the samples are as they were, in another place.
const Names kMoved = kNewFiles + Names{"folder ", "sample ", "+ to delete "};

Operation Change(const std::string& name, const char* qualClass, Format format) {
  Operation change{name, {}};
  change.body = [of = qz::string(qualClass), format](World& w) {
    // Behind a failed encode the host goes back, and then tries again.
    while (w.host_.undo.size() > 2)
      EXPECT_TRUE(w.host_.UndoLast());
    return Answer(w, w.access_.ChangeSampleFormat(of, format));
  };
  change.codes = kFileCodes;
  change.leaves = kMoved + Names{"+ undo "};
  change.encodes = true;
  change.untold = kEncoder;
  return change;
}

Operation Remove(const std::string& name, std::function<void(World&)> prepare = {}) {
  Operation remove{name, {}, std::move(prepare)};
  remove.body = [of = qz::string("Low")](World& w) {
    return Answer(w, w.access_.RemoveSample(of));
  };
  remove.codes = kFileCodes;
  remove.leaves = kMoved;
  remove.shrugs = {"+ disk db/samples/"};
  return remove;
}

// What operations find, or undo.

void ImportThird(World& w) {
  EXPECT_EQ(SDAccess::ERROR_OK, w.access_.ImportSample("W:\\16.wav", kPcm8, "Third"));
}

void ChangeHighToPlus(World& w) {
  EXPECT_EQ(SDAccess::ERROR_OK, w.access_.ChangeSampleFormat("High", kAdpcmPlus));
}

void RemoveHigh(World& w) {
  EXPECT_EQ(SDAccess::ERROR_OK, w.access_.RemoveSample("High"));
}

void EmptyNode(World& w) {
  RemoveHigh(w);
  EXPECT_EQ(SDAccess::ERROR_OK, w.access_.RemoveSample("Low"));
}

// --- Data ---

// `get` gives a block for free, or null.
Operation Data(const std::string& name, const std::function<void*(World&, qz::ulong&)>& get) {
  return {.name = name,
          .body =
              [get](World& w) {
                qz::ulong size = 0;
                const std::unique_ptr<void, decltype(&std::free)> block(get(w, size), &std::free);
                const SparedAllocations host;
                if (block != nullptr) w.result.assign(static_cast<const char*>(block.get()), size);
                return w.Code(block != nullptr);
              },
          .prepare = ChangeHighToPlus,
          .codes = kFileCodes,
          .untold = kEnds + Calls{Call::kReadFile}};
}

int ExtraData(World& w) {
  static const qz::string kHigh = "High";
  const std::unique_ptr<SDAccess::SDExtraData> extra(w.access_.GetExtraData(kHigh, 1));
  const SparedAllocations host;
  if (extra != nullptr) {
    const auto& form = extra->data.adpcmp;
    const auto bytes = form.numBlocks * sizeof(short);
    w.result = std::string(reinterpret_cast<const char*>(form.coefTable), sizeof form.coefTable) +
               std::string(reinterpret_cast<const char*>(form.blockY0), bytes) +
               std::string(reinterpret_cast<const char*>(form.blockY1), bytes);
  }
  return w.Code(extra != nullptr);
}

// --- Stored nodes ---

void OpenDatabase(World& w, DIOFile::DIOOpenMode mode) {
  w.stream = DIOFile::OpenFile("S:\\db\\database", mode);
  ASSERT_NE(nullptr, w.stream);
}

template <class Object>
FakeNode& NodeOf(World& w) {
  return std::is_same_v<Object, SDSetup> ? w.setupNode_ : w.node_;
}

template <class Object>
Object& ObjectOf(World& w) {
  return static_cast<Object&>(*NodeOf<Object>(w).GetTypeInterface());
}

template <class Object>
int SaveFile(World& w) {
  Object& object = ObjectOf<Object>(w);
  return World::Code(object, object.Save(nullptr, &kFile));
}

template <class Object>
int SaveToDatabase(World& w) {
  Object& object = ObjectOf<Object>(w);
  return World::Code(object, object.Save(w.stream, nullptr));
}

template <class Object>
void StoreInDatabase(World& w) {
  OpenDatabase(w, DIOFile::OPENMODE_CREATE);
  EXPECT_EQ(0, SaveToDatabase<Object>(w));
  DIOFile::CloseFile(w.stream);
  OpenDatabase(w, DIOFile::OPENMODE_OPEN);
  // The host reads the type chunk.
  EXPECT_TRUE(w.stream->SetPosition(qz::uint64{28}, DIOFile::SEEKMODE_START));
}

template <class Object>
int LoadFromDatabase(World& w) {
  qz::uint64 start = 0;
  {
    const SparedAllocations host;
    EXPECT_TRUE(w.stream->GetPosition(start));
  }
  const bool loaded = ObjectOf<Object>(w).Load(w.stream, nullptr);
  const SparedAllocations host;
  if (!loaded) w.stream->SetPosition(start, DIOFile::SEEKMODE_START);
  return World::Code(ObjectOf<Object>(w), loaded);
}

template <class Object>
int LoadFile(World& w) {
  return World::Code(ObjectOf<Object>(w), w.host_.LoadNodeFile(NodeOf<Object>(w), kFile));
}

template <class Object>
std::vector<Operation> StoredForms(const std::string& name, const Names& inPlace,
                                   const std::set<int>& reads, const Calls& untold) {
  return {
      {name + " save to a file", SaveFile<Object>, {}, {Object::ERROR_COULDNOTWRITE}, {"stamp "}},
      {.name = name + " save to the database",
       .body = SaveToDatabase<Object>,
       .prepare = [](World& w) { OpenDatabase(w, DIOFile::OPENMODE_CREATE); },
       .codes = {Object::ERROR_COULDNOTWRITE},
       .leaves = {"stamp ", "disk db/database"},
       .deletes = {"disk db/database"}},
      {name + " load of a file", LoadFile<Object>,
       [](World& w) { EXPECT_EQ(0, SaveFile<Object>(w)); }, reads, inPlace, false, untold},
      {name + " load from the database", LoadFromDatabase<Object>, StoreInDatabase<Object>, reads,
       inPlace, false, untold},
  };
}

// --- Undo ---

// Takes the last record of what `prepare` did; it goes only where that succeeded.
int UndoLast(World& w) {
  const HDBUndoInfo* const last = &w.host_.undo.back().info;
  HDBUndoInfo info;
  info.ID = last->ID;
  info.data = last->data;
  const bool done = w.access_.DoUndo(&info);
  if (!done) return kNoCode;
  w.access_.DiscardUndoInfo(&info);
  w.host_.undo.pop_back();
  return 0;
}

Operation Undo(const std::string& name, std::function<void(World&)> prepare) {
  Operation undo{"undo of " + name, UndoLast, std::move(prepare), {kNoCode}};
  undo.shrugs = {"+ disk db/samples/"};
  undo.deletes = {"- disk db/samples/"};
  return undo;
}

// The host drops a node whose undo or copy has failed, and that marks the node's files.
const Names kDropped = kNewFiles + Names{"+ to delete "};

int UndoDeletion(World& w) {
  FakeNode& again = w.AddNode();
  const bool done = again.Sample().DoUndo(&w.record);
  const SparedAllocations host;
  if (!done) w.DropNode(again);
  return done ? 0 : kNoCode;
}

int CopyNode(World& w) {
  FakeNode& copy = w.AddNode();
  const bool done = copy.Sample().Copy(&w.node_);
  const int code = World::Code(copy.Sample(), done);
  const SparedAllocations host;
  if (!done) w.DropNode(copy);
  return code;
}

void DeleteNode(World& w) {
  EXPECT_TRUE(w.access_.GatherDeleteInfo(&w.record));
  w.DropNode(w.node_);
}

// --- Check-out ---

const qz::string kOut = "S:\\out";
const std::set<int> kCheckOutCodes = {SDAccess::ERROR_NOMEMORY, SDAccess::ERROR_COULDNOTCOPYSAMPLE,
                                      SDAccess::ERROR_COULDNOTGATHERFILEINFO};

void CheckOut(World& w) {
  EXPECT_EQ(SDAccess::ERROR_OK, w.access_.CheckOut(kOut));
}

// With an edit, newer than the encoded file.
void CheckOutAndEdit(World& w) {
  CheckOut(w);
  WriteBytes(w.folder_ + "/s/out/kick (Low).wav", ReadBytes(w.Native("W:\\16.wav")));
}

void CheckOutEditAndCheckIn(World& w) {
  CheckOutAndEdit(w);
  EXPECT_EQ(SDAccess::ERROR_OK, w.access_.CheckIn());
}

// From the folder of the check-out where `from` is empty.
Operation CheckIn(const char* name, const qz::string& from, std::function<void(World&)> prepare) {
  return {.name = name,
          .body =
              [from](World& w) {
                return Answer(w, from.empty() ? w.access_.CheckIn() : w.access_.CheckIn(from));
              },
          .prepare = std::move(prepare),
          .codes = kFileCodes,
          .encodes = true,
          .untold = kEncoder};
}

// --- The end ---

// Drops the node; outside a shutdown its files are marked.
int Drop(World& w) {
  w.DropNode(w.node_);
  return 0;
}

int Close(World& w) {
  w.host_.shutDown = true;
  w.nodes.clear();
  w.isOpen = false;
  w.host_.Close();
  w.host_.shutDown = false;
  return 0;
}

void SaveAndChange(World& w) {
  EXPECT_TRUE(w.Save());
  ImportThird(w);
  ChangeHighToPlus(w);
}

void SaveChangeAndSave(World& w) {
  SaveAndChange(w);
  EXPECT_TRUE(w.Save());
}

void SaveChangeAndFailToSave(World& w) {
  SaveAndChange(w);
  const FailingCall fault(1, [](platform::Call call, const std::string&) {
    return call == platform::Call::kWriteFile;
  });
  EXPECT_FALSE(w.Save());
}

Operation Closing(const char* name, void (*prepare)(World&)) {
  Operation closing{name, Close, prepare};
  closing.shrugs = {"+ disk db/samples/"};
  closing.untold = AllCalls();
  closing.deletes = {"- disk db/samples/"};
  return closing;
}

// --- Texts ---

std::string Plain(const qz::string& text) {
  return text.c_str();
}

std::string Plain(const std::list<qz::string>& texts) {
  std::string all;
  for (const qz::string& text : texts)
    all += Plain(text) + ",";
  return all;
}

// `get` gives a text or several, or none where it fails.
template <class Get>
Operation Text(const char* name, Get get) {
  return Silent(name, [get](World& w) {
    const auto given = get(w);
    const SparedAllocations host;
    w.result = Plain(given);
    return !given.empty();
  });
}

qz::string ErrorText(const HDBAccessBaseInterface& node) {
  qz::string text;
  qz::ulong code = 0;
  EXPECT_TRUE(node.GetLastError(text, code));
  return text;
}

}  // namespace

std::vector<Operation> NodeOperations() {
  const qz::string high = "High";
  std::vector<Operation> all = {
      Import("import PCM16 from WAV", "W:\\16.wav", kPcm16, "Third"),
      Import("import ADPCM from WAV of 8 bits", "W:\\8.wav", kAdpcm, "Third"),
      Import("import ADPCM+ from AIFF", "W:\\16.aif", kAdpcmPlus, "Third"),
      Import("import PCM8 from AIFF of 8 bits", "W:\\8.aif", kPcm8, "Third"),
      Import("import ADPCMVS from MORT GSM", "W:\\gsm.mort", kAdpcmVs, "Third"),
      Import("import default from MORT GB", "W:\\gb.mort", kDefault, "Third"),
      Import("import over a class", "W:\\16.wav", kPcm8, "High"),
      Import("import of another kind over a class", "W:\\8.aif", kPcm8, "Low"),
      Import("first import", "W:\\16.wav", kAdpcm, "Low", EmptyNode),
      Change("change to ADPCM", "Low", kAdpcm),
      Change("change to ADPCM+", "High", kAdpcmPlus),
      Change("change to ADPCMVS", "Low", kAdpcmVs),
      Change("change to PCM8", "Low", kPcm8),
      Change("change to PCM16", "High", kPcm16),
      Remove("removal of one of two"),
      Remove("removal of the last", RemoveHigh),
      {"selection", [high](World& w) { return w.Code(w.access_.SetSelQualityClass(high)); }},
      Data("raw data",
           [high](World& w, qz::ulong& size) {
             size = 60;
             return w.access_.GetRawData(high, 1);
           }),
      Data("encoded data",
           [high](World& w, qz::ulong& size) { return w.access_.GetEncodedData(high, 1, size); }),
      Data("decoded data",
           [high](World& w, qz::ulong& size) {
             size = 60;
             return w.access_.GetDecodedData(high, 1);
           }),
      {"extra data", ExtraData, ChangeHighToPlus, kFileCodes},
      {"information",
       [high](World& w) {
         SDInfo info;
         const bool given = w.access_.GetOriginalSampleInformation(high, info) == &info;
         const SparedAllocations host;
         if (given) w.result = info.originalName.c_str();
         return w.Code(given);
       }},
      {"copy", CopyNode, {}, kFileCodes, kDropped},
      Silent("gathering", [](World& w) { return w.access_.GatherDeleteInfo(&w.record); }),
      {"load that encodes anew",
       LoadFromDatabase<SDAccess>,
       [](World& w) {
         StoreInDatabase<SDAccess>(w);
         EXPECT_TRUE(DIOFile::Delete(w.EncodedPath("High")));
       },
       kLoadCodes,
       kList + Names{"disk db/samples"},
       true,
       kEncoder,
       {},
       {"disk db/samples"}},
      Undo("an import", ImportThird),
      Undo("a format change",
           [](World& w) {
             EXPECT_TRUE(w.Save());
             ChangeHighToPlus(w);
           }),
      Undo("a removal", RemoveHigh),
      Undo("a removal of the last", EmptyNode),
      Undo("a load",
           [](World& w) {
             EXPECT_EQ(0, SaveFile<SDAccess>(w));
             EXPECT_TRUE(w.host_.LoadNodeFile(w.node_, kFile));
           }),
      Undo("a selection", [](World& w) { EXPECT_TRUE(w.access_.SetSelQualityClass("High")); }),
      {"undo of a deletion", UndoDeletion, DeleteNode, {kNoCode}, kDropped + Names{"- to delete "}},
      {"check-out",
       [](World& w) { return Answer(w, w.access_.CheckOut(kOut)); },
       {},
       kCheckOutCodes,
       {"disk out/"}},
      {.name = "check-out once more",
       .body =
           [](World& w) {
             return Answer(
                 w, w.access_.IsCheckedOut() ? w.access_.RedoCheckOut() : w.access_.CheckOut(kOut));
           },
       .prepare = CheckOutAndEdit,
       .codes = kCheckOutCodes,
       .leaves = {"disk out/", "out "},
       .deletes = {"disk out/"}},
      CheckIn("check-in", "", CheckOutAndEdit),
      CheckIn("check-in from another folder", "S:\\out\\else",
              [](World& w) {
                CheckOutAndEdit(w);
                EXPECT_TRUE(DIOFile::CreateDirectoryA("S:\\out\\else"));
                for (const char* name : {"\\kick (Low).wav", "\\kick (High).wav"}) {
                  const qz::string file = name;
                  EXPECT_TRUE(DIOFile::Rename(kOut + file, kOut + "\\else" + file));
                }
              }),
      {.name = "undo of a check-in",
       .body = [](World& w) { return Answer(w, w.access_.UndoCheckIn()); },
       .prepare = CheckOutEditAndCheckIn,
       .untold = kEnds + Calls{Call::kFindFirstFile, Call::kGetFullPathName},
       .shrugs = {"+ disk db/samples/"},
       .deletes = {"- disk db/samples/"}},
      {"end of a node", Drop, {}, {}, {}, false, kEnds, {"to delete "}},
      Closing("close behind a save", SaveChangeAndSave),
      Closing("close without a save", SaveAndChange),
      Closing("close behind a failed save", SaveChangeAndFailToSave),
      {.name = "save of the database",
       .body = [](World& w) { return w.Save() ? 0 : kNoCode; },
       .prepare = SaveAndChange,
       .codes = {kNoCode},
       .leaves = {"stamp ", "version ", "bookmark", "- unsaved ", "disk db/sav"},
       .deletes = {"disk db/sav"}},
  };
  for (Operation& operation : StoredForms<SDAccess>("node", kList, kLoadCodes, kEncoder))
    all.push_back(std::move(operation));
  return all;
}

std::vector<Operation> SetupOperations() {
  const qz::string added = "a class with a longer name";
  const qz::string folder = "S:\\db\\samples of this database alone\\";
  std::vector<Operation> all = {
      {"class to add",
       [added](World& w) { return Answer(w, w.setup_.AddQualityClass(added, 9)); },
       {},
       {SDSetup::ERROR_COULDNOTWRITE}},
      {"class to remove", [name = qz::string("Third")](
                              World& w) { return Answer(w, w.setup_.RemoveQualityClass(name)); }},
      {.name = "folder to set",
       .body = [folder](World& w) { return static_cast<int>(w.setup_.SetSampleFolder(folder)); },
       .codes = {},
       .untold = {Call::kGetFullPathName},
       .shrugs = {"place "}},
      Text("folder", [](World& w) { return w.setup_.GetSampleFolder(); }),
      Text("platform", [](World& w) { return w.setup_.GetTargetPlatform(); }),
      Text("platform of a node", [](World& w) { return w.access_.GetTargetPlatform(); }),
      Text("selected class", [](World& w) { return w.access_.GetSelQualityClass(); }),
      Text("class by place",
           [](World& w) {
             qz::string name;
             w.setup_.GetQualityClassName(3, name);
             return name;
           }),
      Text("class by level",
           [](World& w) {
             qz::string name;
             w.setup_.GetQualityClassNameFromLevel(9, name);
             return name;
           }),
      Text("error text of a node", [](World& w) { return ErrorText(w.access_); }),
      Text("error text", [](World& w) { return ErrorText(w.setup_); }),
      Text("formats", [](World& w) { return w.access_.EnumerateSampleFormats(); }),
      Text("classes", [](World& w) { return w.setup_.EnumerateQualityClasses(); }),
      Text("classes of a node", [](World& w) { return w.access_.GetQualityClasses(); }),
      Silent("objects",
             [](World& w) {
               bool made = true;
               for (const _GUID* type : {&hdbTypeSampleData, &hdbTypeSampleDataSetup}) {
                 void* object = w.host_.Base()->CreateInterface(type, &dbSubTypeTarvane);
                 made = made && object != nullptr;
                 if (object != nullptr) w.host_.Base()->ReleaseInterface(type, object);
               }
               return made;
             }),
      Silent("module",
             [](World&) {
               EXPECT_TRUE(DllMain(&platform::thisModule, DLL_PROCESS_ATTACH, nullptr));
               const bool made = RequestBaseInterface() != nullptr;
               EXPECT_TRUE(DllMain(&platform::thisModule, DLL_PROCESS_DETACH, nullptr));
               return made;
             }),
  };
  for (Operation& operation :
       StoredForms<SDSetup>("setup", {"class ", "place "}, {SDSetup::ERROR_COULDNOTREAD}, kEnds))
    all.push_back(std::move(operation));
  // With an entry whose name lies on the heap, and an error to report.
  for (Operation& operation : all) {
    operation.prepare = [former = std::move(operation.prepare),
                         isNew = operation.name == "class to add", added](World& w) {
      w.access_.SetSelQualityClass("unknown");
      if (!isNew) w.setup_.AddQualityClass(added, 9);
      if (former) former(w);
      w.access_.SetSelQualityClass("unknown");
      if (!isNew) w.setup_.RemoveQualityClass("unknown");
    };
  }
  return all;
}

}  // namespace sdtest
