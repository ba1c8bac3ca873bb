#include "sampledata/sd_setup.h"

#include <exception>
#include <iterator>

#include "sampledata/sd_main.h"

namespace {

// String table ids of the texts, by SDError.
constexpr qz::ulong kErrorTexts[] = {1001, 1002, 1003, 1004, 1005, 1006,
                                     1007, 1008, 1009, 1010, 1017, 1023};

// The result of `operation`, or `onFailure` where memory runs out.
template <class Result, class Operation>
Result Guarded(Result onFailure, Operation operation) {
  try {
    return operation();
  } catch (const std::exception&) {
    return onFailure;
  }
}

std::list<qz::string> NoTexts() {
  return {};
}

}  // namespace

std::list<qz::string> SDEnumerateSampleFormats() {
  return {"default", "PCM16", "ADPCM", "ADPCM+", "PCM8", "ADPCMVS"};
}

qz::string SDTargetPlatform() {
  return "Nintendo GAMECUBE";
}

SDSetup::~SDSetup() {
  if (baseNode == nullptr) return;
  HDBRootInterface* const root = baseNode->GetRootInterface();
  root->SetSampleSetupNode(nullptr);
  if (!root->IsShutDownActive()) return;
  // The saved database refers to none of these files. Those that cannot be deleted stay.
  deleteFilesList.exec();
  unsavedFilesList.execAll();
}

SDSetupInterface::SDError SDSetup::SetError(SDError error) const {
  lastError = error;
  return error;
}

// --- The node as a node ---

bool SDSetup::Init(HDBBaseNodeInterface* _baseNode, bool& signularTypeDublicated) {
  baseInterface = static_cast<PGISampleDataBaseInterface*>(_baseNode->GetBaseInterface());
  HDBRootInterface* const root = _baseNode->GetRootInterface();
  signularTypeDublicated = root->GetSampleSetupNode() != nullptr;
  if (signularTypeDublicated) {
    // Without a node of its own, this object leaves the first one's registration alone when it
    // goes.
    SetError(ERROR_SETUPALREADYEXISTS);
    return false;
  }
  baseNode = _baseNode;
  root->SetSampleSetupNode(baseNode);
  SetError(ERROR_OK);
  return true;
}

bool SDSetup::Copy(const HDBBaseNodeInterface* /*node*/) {
  return false;
}

// A setup node has no undo of its own.
bool SDSetup::DoUndo(HDBUndoInfo* /*info*/) {
  return true;
}
bool SDSetup::DiscardUndoInfo(HDBUndoInfo* /*info*/) const {
  return true;
}
bool SDSetup::GatherDeleteInfo(HDBUndoInfo* /*info*/) {
  return true;
}

bool SDSetup::GetLastError(qz::string& text, qz::ulong& code) const {
  code = static_cast<qz::ulong>(lastError);
  text = Guarded(qz::string(), [this] { return baseInterface->stringTab[kErrorTexts[lastError]]; });
  return lastError != ERROR_OK;
}

bool SDSetup::Move(HDBBaseNodeInterface* /*node*/, HDBBaseNodeInterface* /*newParent*/) {
  return true;
}

bool SDSetup::Rename(HDBBaseNodeInterface* /*node*/, const qz::string& /*oldname*/) {
  return true;
}

bool SDSetup::ParentHasBeenRenamed() {
  return true;
}

HDBIDType SDSetup::GetRefType() const {
  return ID_TYPE_COMMON;
}

// --- What it tells ---

qz::string SDSetup::GetSampleFolder() const {
  return Guarded(qz::string(), [this] { return sampleFolder; });
}

qz::string SDSetup::GetTargetPlatform() const {
  return Guarded(qz::string(), SDTargetPlatform);
}

std::list<qz::string> SDSetup::EnumerateSampleFormats() const {
  return Guarded(NoTexts(), SDEnumerateSampleFormats);
}

// --- Quality classes ---

std::list<qz::string> SDSetup::EnumerateQualityClasses() const {
  return Guarded(NoTexts(), [this] {
    std::list<qz::string> names;
    for (const SDClass& entry : classList)
      names.push_back(entry.GetName());
    return names;
  });
}

qz::uchar SDSetup::GetNumQualityClasses() const {
  return static_cast<qz::uchar>(classList.size());
}

signed char SDSetup::GetQualityClassLevel(const qz::string& name) const {
  const SDClass* const found = classList.Find(name);
  return found != nullptr ? static_cast<signed char>(found->GetLevel())
                          : static_cast<signed char>(-1);
}

bool SDSetup::GetQualityClassName(qz::uchar index, qz::string& name) const {
  if (index >= classList.size()) return false;
  return Guarded(false, [&] {
    name = std::next(classList.begin(), index)->GetName();
    return true;
  });
}

bool SDSetup::GetQualityClassNameFromLevel(qz::uchar level, qz::string& name) const {
  const SDClass* const found = classList.Find(level);
  if (found == nullptr) return false;
  return Guarded(false, [&] {
    name = found->GetName();
    return true;
  });
}

SDSetupInterface::SDError SDSetup::AddQualityClass(const qz::string& name, qz::uchar level,
                                                   qz::ushort count) {
  if (IsAnySampleCheckedOut()) return SetError(ERROR_SAMPLESARECHECKEDOUT);
  if (ProbeQualityClass(name)) return SetError(ERROR_CLASSALREADYEXISTS);
  if (ProbeQualityClass(level)) return SetError(ERROR_LEVELALREADYEXISTS);
  return SetError(Guarded(ERROR_COULDNOTWRITE, [&] {
    auto next = classList.begin();
    while (next != classList.end() && next->GetLevel() < level)
      ++next;
    classList.insert(next, SDClass(name, level, count));
    return ERROR_OK;
  }));
}

SDSetupInterface::SDError SDSetup::AddQualityClass(const qz::string& name, qz::uchar level) {
  return AddQualityClass(name, level, 0);
}

SDSetupInterface::SDError SDSetup::RemoveQualityClass(const qz::string& name) {
  if (IsAnySampleCheckedOut()) return SetError(ERROR_SAMPLESARECHECKEDOUT);
  const SDClass* const found = classList.Find(name);
  if (found == nullptr) return SetError(ERROR_CLASSDOESNOTEXIST);
  if (found->GetRefCount() != 0) return SetError(ERROR_CLASSSTILLUSED);
  classList.remove_if([found](const SDClass& entry) { return &entry == found; });
  return SetError(ERROR_OK);
}

bool SDSetup::ProbeQualityClass(qz::uchar level) const {
  return classList.Find(level) != nullptr;
}

bool SDSetup::ProbeQualityClass(const qz::string& name) const {
  return classList.Find(name) != nullptr;
}

bool SDSetup::AddRef(const qz::string& name) {
  return classList.AddRef(name);
}

bool SDSetup::RemoveRef(const qz::string& name) {
  return classList.RemoveRef(name);
}

// --- For sample nodes ---

bool SDSetup::IsAnySampleCheckedOut() const {
  // Every sample node of the database has referenced this one since its Init.
  for (const HDBBaseNodeInterface* node : baseNode->GetNodesReferencing()) {
    if (!node->IsType(HDBTypeStorage{hdbTypeSampleData})) continue;
    if (static_cast<SDAccessInterface*>(node->GetTypeInterface())->IsCheckedOut()) return true;
  }
  return false;
}

void SDSetup::MarkFilesForDeletion(const SDDeleteInfo& info) {
  deleteFilesList.push_back(info);
}

void SDSetup::UnmarkFilesForDeletion(const SDDeleteInfo& info) {
  deleteFilesList.remove(info);
}

void SDSetup::MarkFilesAsUnsaved(const SDDeleteInfo& info) {
  unsavedFilesList.push_back(info);
}

void SDSetup::UnmarkFilesAsUnsaved(const SDDeleteInfo& info) {
  unsavedFilesList.remove(info);
}

bool SDSetup::AreFilesUnsaved(const SDDeleteInfo& info) const {
  return unsavedFilesList.check(info);
}
