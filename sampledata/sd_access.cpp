#include "sampledata/sd_access.h"

#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "common/qzassert.h"
#include "sampledata/sd_main.h"
#include "sampledata/sd_modify.h"
#include "sampledata/sd_setup.h"

namespace {

// String table ids by error code. They run in two stretches, since the later errors were numbered
// behind the setup node's.
constexpr qz::ulong kErrorTexts[] = {1,    2,    3,    4,    5,    6,    7,    8,    9,
                                     10,   11,   12,   13,   1011, 1012, 1013, 1014, 1015,
                                     1016, 1018, 1019, 1020, 1021, 1022, 1024};
static_assert(std::size(kErrorTexts) == SDAccess::ERROR_NOPRECHECKINSTATE + 1);

struct FormatName {
  SDCompType type;
  const char* name;
};

// In the order in which a name is looked up.
constexpr FormatName kFormatNames[] = {{SDAccess::COMPTYPE_ADPCM, "ADPCM"},
                                       {SDAccess::COMPTYPE_ADPCMPLUS, "ADPCM+"},
                                       {SDAccess::COMPTYPE_RAW8, "PCM8"},
                                       {SDAccess::COMPTYPE_RAW, "PCM16"},
                                       {SDAccess::COMPTYPE_ADPCMVS, "ADPCMVS"}};

}  // namespace

SDAccess::~SDAccess() {
  if (baseNode == nullptr || baseNode->GetRootInterface()->IsShutDownActive()) return;
  try {
    for (SDSample& sample : sampleList)
      sample.RemoveFiles(this);
  } catch (const std::bad_alloc&) {
    // Files that could not be marked stay on disk: nothing is lost by that.
  }
}

bool SDAccess::Init(HDBBaseNodeInterface* _baseNode, bool& signularTypeDublicated) {
  QZ_ASSERT(_baseNode != nullptr, "_baseNode!=NULL");
  signularTypeDublicated = false;
  baseNode = _baseNode;
  baseInterface = static_cast<PGISampleDataBaseInterface*>(baseNode->GetBaseInterface());
  HDBBaseNodeInterface* setupNode = baseNode->GetRootInterface()->GetSampleSetupNode();
  if (setupNode == nullptr) {
    SetError(ERROR_NOSETUPNODE);
    return false;
  }
  // The setup node finds its samples through these references.
  if (!baseNode->AddReference(setupNode)) {
    SetError(ERROR_COULDNOTADDREFERENCE);
    return false;
  }
  setup = static_cast<SDSetupInterface*>(setupNode->GetTypeInterface());
  checkedOut = false;
  SetError(ERROR_OK);
  return true;
}

// --- Errors ---

SDAccess::SDError SDAccess::SetError(SDError error) const {
  lastError = error;
  return error;
}

bool SDAccess::GetLastError(qz::string& text, ulong& code) const {
  code = lastError;
  try {
    text = baseInterface->stringTab[kErrorTexts[lastError]];
  } catch (const std::bad_alloc&) {
    text.clear();
  }
  return lastError != ERROR_OK;
}

// --- The node in the host's tree ---

// No file name depends on the node's place in the tree or on its name.
bool SDAccess::Move(HDBBaseNodeInterface*, HDBBaseNodeInterface*) {
  return true;
}
bool SDAccess::ParentHasBeenRenamed() {
  return true;
}

// The names of checked-out files are made of the node's name.
bool SDAccess::Rename(HDBBaseNodeInterface*, const qz::string&) {
  return !checkedOut;
}

HDBIDType SDAccess::GetRefType() const {
  return ID_TYPE_SAMPLE;
}

qz::string SDAccess::GetTargetPlatform() const {
  return setup->GetTargetPlatform();
}

std::list<qz::string> SDAccess::EnumerateSampleFormats() const {
  return setup->EnumerateSampleFormats();
}

SDSetupInterface* SDAccess::GetSetupInterface() {
  return setup;
}

// --- Formats ---

SDCompType SDAccess::ConvertToSaveCompressionType(uchar formatIndex) const {
  return formatIndex == 0 ? COMPTYPE_ADPCM : static_cast<SDCompType>(formatIndex);
}

SDCompType SDAccess::GetDefaultSampleType() const {
  const HDBSampleType type = baseNode->GetRootInterface()->GetDefaultSampleType();
  return type == HDB_SAMPLETYPE_RAW ? COMPTYPE_RAW : COMPTYPE_ADPCM;
}

bool SDAccess::IsKnownCompType(SDCompType type) {
  return type >= COMPTYPE_RAW && type <= COMPTYPE_ADPCMVS;
}

qz::string SDAccess::CompTypeBinToString(SDCompType type) const {
  for (const FormatName& format : kFormatNames) {
    if (format.type == type) return format.name;
  }
  return qz::string();
}

SDCompType SDAccess::CompTypeStringToBin(const qz::string& type) const {
  for (const FormatName& format : kFormatNames) {
    if (type == format.name) return format.type;
  }
  return COMPTYPE_NONE;
}

// --- Samples by class ---

const SDSample* SDAccess::FindQualityClass(const qz::string& qualClass) const {
  if (!setup->ProbeQualityClass(qualClass)) {
    SetError(ERROR_UNKNOWNCLASS);
    return nullptr;
  }
  const SDSample* sample = sampleList.FindSample(qualClass);
  if (sample == nullptr) SetError(ERROR_QUALITYNOTAVAILABLE);
  return sample;
}

SDSample* SDAccess::FindQualityClass(const qz::string& qualClass) {
  return const_cast<SDSample*>(std::as_const(*this).FindQualityClass(qualClass));
}

SDInfo* SDAccess::FillInfo(const SDSample& sample, const SDInfoIntern& numbers,
                           SDInfo& _info) const {
  try {
    _info.fileName = sample.fileName;
    _info.originalName = sample.originalName;
    _info.type = CompTypeBinToString(sample.compType);
  } catch (const std::bad_alloc&) {
    SetError(ERROR_NOMEMORY);
    return nullptr;
  }
  _info.frq = numbers.frq;
  _info.length = numbers.length;
  _info.loop = numbers.loop;
  _info.loopLength = numbers.loopLength;
  _info.orgKey = numbers.orgKey;
  _info.numChannels = static_cast<uchar>(sample.numChannels);
  return &_info;
}

SDInfo* SDAccess::GetSampleInformation(const qz::string& qualClass, SDInfo& _info) const {
  const SDSample* sample = FindQualityClass(qualClass);
  return sample == nullptr ? nullptr : FillInfo(*sample, sample->encodedInfo, _info);
}

SDInfo* SDAccess::GetOriginalSampleInformation(const qz::string& qualClass, SDInfo& _info) const {
  const SDSample* sample = FindQualityClass(qualClass);
  return sample == nullptr ? nullptr : FillInfo(*sample, sample->info, _info);
}

std::list<qz::string> SDAccess::GetQualityClasses() const {
  std::list<qz::string> classes;
  try {
    for (const SDSample& sample : sampleList)
      classes.push_back(sample.GetQualClass());
  } catch (const std::bad_alloc&) {
    classes.clear();
  }
  return classes;
}

// --- The selected class ---

qz::string SDAccess::GetSelQualityClass() const {
  SetError(ERROR_OK);
  try {
    return selQualityClass;
  } catch (const std::bad_alloc&) {
    return qz::string();
  }
}

bool SDAccess::SetSelQualityClass(const qz::string& _selQualityClass) {
  // The node's own samples count, not the setup's classes.
  if (sampleList.FindSample(_selQualityClass) == nullptr) {
    SetError(ERROR_UNKNOWNCLASS);
    return false;
  }
  try {
    UndoRecord record(UNDO_SD_QUALITYCHANGE,
                      baseInterface->stringTab[UNDODESCRIPTION_QUALITYCHANGE],
                      std::make_unique<SDUndo>(selQualityClass));
    qz::string selected = _selQualityClass;
    Modification modification(baseNode);
    if (!modification.IsOpen()) {
      SetError(ERROR_READONLY);
      return false;
    }
    selQualityClass.swap(selected);
    modification.CloseWith(record);
  } catch (const std::bad_alloc&) {
    SetError(ERROR_NOMEMORY);
    return false;
  }
  SetError(ERROR_OK);
  return true;
}
